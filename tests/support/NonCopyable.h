// A base for test helpers that stand for something happening in the process
// (a replaced system function, an open counting scope, a running thread):
// a copy would undo or repeat it twice, so none is made.
#pragma once

namespace test_support {

class NonCopyable {
public:
    NonCopyable(const NonCopyable&) = delete;
    NonCopyable& operator=(const NonCopyable&) = delete;

protected:
    NonCopyable() = default;
    ~NonCopyable() = default;
};

}  // namespace test_support
