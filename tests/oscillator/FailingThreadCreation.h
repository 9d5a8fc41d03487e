// Makes thread creation fail on demand, as it does when a process runs out of
// threads or memory for stacks.
#pragma once

#include "NonCopyable.h"

namespace oscillator_test {

/// While an object of this class exists, pthread_create in this process
/// fails with EAGAIN (std::thread then throws std::system_error).
class ThreadCreationFailure : test_support::NonCopyable {
public:
    ThreadCreationFailure();
    ~ThreadCreationFailure();

    /// How many creations were refused while this object existed.
    int refusals() const;
};

}  // namespace oscillator_test
