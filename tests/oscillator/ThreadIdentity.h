// What the kernel says about a thread of this process.
#pragma once

#include <sys/types.h>

#include <fstream>
#include <string>

namespace oscillator_test {

/// The thread's name as /proc shows it ("" when the thread is gone).
inline std::string kernelThreadName(pid_t tid) {
    std::ifstream comm("/proc/self/task/" + std::to_string(tid) + "/comm");
    std::string name;
    std::getline(comm, name);
    return name;
}

}  // namespace oscillator_test
