#include "ThreadStat.h"

#include <dirent.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "ProcFiles.h"

namespace tickmon {
namespace {

// Field numbers as proc(5) counts them.
constexpr size_t kUtimeField = 14;
constexpr size_t kStimeField = 15;
constexpr size_t kRtPriorityField = 40;
constexpr size_t kPolicyField = 41;

std::optional<uint64_t> toUnsigned(const std::string& text) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
        return std::nullopt;
    }
    return std::strtoull(text.c_str(), nullptr, 10);
}

/// The file of thread `tid`, empty when it cannot be read (the thread ended).
std::string readTaskFile(pid_t tid, const char* file) { return readWholeFile(taskFilePath(tid, file)).value_or(""); }

}  // namespace

std::optional<ThreadStat> parseThreadStat(const std::string& line) {
    const std::optional<std::vector<std::string>> fields = statFieldsAfterName(line);
    if (!fields) {
        return std::nullopt;
    }
    auto at = [&fields](size_t number) -> const std::string& { return (*fields)[number - kFirstStatFieldAfterName]; };
    if (fields->size() < kPolicyField - kFirstStatFieldAfterName + 1 || at(kFirstStatFieldAfterName).size() != 1) {
        return std::nullopt;
    }
    const auto utime = toUnsigned(at(kUtimeField));
    const auto stime = toUnsigned(at(kStimeField));
    const auto rtPriority = toUnsigned(at(kRtPriorityField));
    const auto policy = toUnsigned(at(kPolicyField));
    if (!utime || !stime || !rtPriority || !policy) {
        return std::nullopt;
    }
    ThreadStat stat;
    const size_t open = line.find('(');
    stat.comm = line.substr(open + 1, line.rfind(')') - open - 1);
    stat.state = at(kFirstStatFieldAfterName)[0];
    stat.utimeTicks = *utime;
    stat.stimeTicks = *stime;
    stat.rtPriority = static_cast<uint32_t>(*rtPriority);
    stat.policy = static_cast<uint32_t>(*policy);
    return stat;
}

std::string schedulingPolicyName(uint32_t policy) {
    switch (policy) {
        case 0:
            return "SCHED_OTHER";
        case 1:
            return "SCHED_FIFO";
        case 2:
            return "SCHED_RR";
        case 3:
            return "SCHED_BATCH";
        case 5:
            return "SCHED_IDLE";
        case 6:
            return "SCHED_DEADLINE";
        default:
            return "policy " + std::to_string(policy);
    }
}

std::optional<uint64_t> parseSchedstatRuntime(const std::string& text) {
    std::istringstream fields(text);
    std::string first;
    if (!(fields >> first)) {
        return std::nullopt;
    }
    return toUnsigned(first);
}

std::vector<pid_t> findThreadsByName(const std::string& name) {
    std::vector<pid_t> found;
    DIR* tasks = opendir("/proc/self/task");
    if (tasks == nullptr) {
        return found;
    }
    while (const dirent* entry = readdir(tasks)) {
        const std::optional<uint64_t> tid = toUnsigned(entry->d_name);
        if (!tid) {
            continue;
        }
        std::string comm = readTaskFile(static_cast<pid_t>(*tid), "comm");
        if (!comm.empty() && comm.back() == '\n') {
            comm.pop_back();
        }
        if (comm == name) {
            found.push_back(static_cast<pid_t>(*tid));
        }
    }
    closedir(tasks);
    return found;
}

std::optional<ThreadStat> readThreadStat(pid_t tid) { return parseThreadStat(readTaskFile(tid, "stat")); }

std::optional<ThreadCpuTime> readThreadCpuTime(pid_t tid) {
    if (const auto runtime = parseSchedstatRuntime(readTaskFile(tid, "schedstat"))) {
        return ThreadCpuTime{*runtime, "schedstat"};
    }
    const std::optional<ThreadStat> stat = readThreadStat(tid);
    const long ticksPerSecond = sysconf(_SC_CLK_TCK);
    if (!stat || ticksPerSecond <= 0) {
        return std::nullopt;
    }
    const uint64_t ticks = stat->utimeTicks + stat->stimeTicks;
    return ThreadCpuTime{ticks * (1000000000ULL / static_cast<uint64_t>(ticksPerSecond)), "stat"};
}

}  // namespace tickmon
