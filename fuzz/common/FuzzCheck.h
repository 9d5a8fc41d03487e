// Failure reporting of the fuzz targets.
//
// A disagreement between the library and the reference model ends the run
// with abort(), after printing what was expected, what happened and the
// operations of the current input that led there; libFuzzer then keeps the
// input as a crash reproducer.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace zyn_fuzz {

/// The operations of the current input, in order, for the failure report.
class OperationTrail {
public:
    static OperationTrail& current() {
        static OperationTrail trail;
        return trail;
    }

    void clear() { steps.clear(); }

    /// Records a step; with ZYN_FUZZ_ECHO set in the environment it is also
    /// printed at once, to see what an input does.
    void add(std::string step) {
        if (echo) {
            std::fprintf(stderr, "%s\n", step.c_str());
        }
        steps.push_back(std::move(step));
    }
    const std::vector<std::string>& all() const { return steps; }

private:
    OperationTrail() : echo(std::getenv("ZYN_FUZZ_ECHO") != nullptr) {}

    bool echo;
    std::vector<std::string> steps;
};

[[noreturn]] inline void fail(const std::string& what) {
    std::fprintf(stderr, "\n==== library and model disagree ====\n%s\n---- operations of this input ----\n",
                 what.c_str());
    const auto& steps = OperationTrail::current().all();
    for (size_t i = 0; i < steps.size(); ++i) {
        std::fprintf(stderr, "%4zu  %s\n", i, steps[i].c_str());
    }
    std::fflush(stderr);
    std::abort();
}

/// Fails unless `condition` holds; the report is `what` followed by
/// `where`. Nothing is built while the check passes.
inline void check(bool condition, const char* what, const std::string& where) {
    if (!condition) {
        fail(std::string(what) + " " + where);
    }
}

/// Fails unless `actual` equals `expected`; `what` names the compared value.
template <typename T>
inline void checkEqual(const T& actual, const T& expected, const char* what, const std::string& where) {
    if (!(actual == expected)) {
        fail(std::string(what) + " " + where + ": library has " + std::to_string(actual) + ", model expects " +
             std::to_string(expected));
    }
}

}  // namespace zyn_fuzz
