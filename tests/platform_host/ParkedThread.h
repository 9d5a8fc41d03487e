// A thread that waits for work, so tests can change its scheduling, name and
// timer slack from outside and read them back from inside.
#pragma once

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <condition_variable>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

class ParkedThread {
public:
    ParkedThread() : worker([this] { park(); }) {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return tid != 0; });
    }
    ~ParkedThread() {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            leave = true;
        }
        changed.notify_all();
        worker.join();
    }
    ParkedThread(const ParkedThread&) = delete;
    ParkedThread& operator=(const ParkedThread&) = delete;

    std::thread& thread() { return worker; }
    pid_t kernelId() const { return tid; }

    /// Runs `work` on the parked thread and waits until it has run.
    void runThere(const std::function<void()>& work) {
        std::unique_lock<std::mutex> lock(mutex);
        task = &work;
        changed.notify_all();
        changed.wait(lock, [this] { return task == nullptr; });
    }

    /// The thread's timer slack as it sees it itself.
    unsigned long ownTimerSlack() {
        unsigned long slack = 0;
        runThere([&slack] { slack = static_cast<unsigned long>(::prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0)); });
        return slack;
    }

    /// A file of the thread's /proc directory.
    std::string procFile(const std::string& name) const {
        const std::string taskFile = "/proc/self/task/" + std::to_string(tid) + "/" + name;
        if (std::ifstream(taskFile).good()) {
            return taskFile;
        }
        // Some kernels list timerslack_ns only under the thread's own /proc/<tid>.
        return "/proc/" + std::to_string(tid) + "/" + name;
    }

    std::string readProcFile(const std::string& name) const {
        std::ifstream file(procFile(name));
        std::string content;
        std::getline(file, content);
        return content;
    }

private:
    void park() {
        std::unique_lock<std::mutex> lock(mutex);
        tid = static_cast<pid_t>(::syscall(SYS_gettid));
        changed.notify_all();
        while (!leave) {
            if (task != nullptr) {
                (*task)();
                task = nullptr;
                changed.notify_all();
            }
            changed.wait(lock);
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    const std::function<void()>* task = nullptr;
    bool leave = false;
    pid_t tid = 0;
    std::thread worker;  // last: starts once the fields above exist
};
