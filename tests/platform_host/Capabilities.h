// Capabilities of the calling thread. Linux keeps them per thread, so a test
// thread can give one up without affecting the rest of the test process.
#pragma once

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

inline bool callingThreadHasCapability(int capability) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2]{};
    return ::syscall(SYS_capget, &header, data) == 0 &&
           (data[capability / 32].effective & (1u << (capability % 32))) != 0;
}

/// Gives up `capability` for the calling thread; false when that failed.
inline bool dropCapabilityOfCallingThread(int capability) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2]{};
    if (::syscall(SYS_capget, &header, data) != 0) {
        return false;
    }
    data[capability / 32].effective &= ~(1u << (capability % 32));
    return ::syscall(SYS_capset, &header, data) == 0;
}

/// Linux lets a process set the timer slack of another of its threads only
/// with CAP_SYS_NICE.
inline bool processMaySetOtherThreadsTimerSlack() { return callingThreadHasCapability(CAP_SYS_NICE); }
