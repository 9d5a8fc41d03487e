// A scratch directory for one test, removed with everything in it.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

class TemporaryDirectory {
public:
    TemporaryDirectory() {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/tickmon-test-XXXXXX";
        if (mkdtemp(pattern.data()) != nullptr) {
            directory = pattern;
        }
    }
    ~TemporaryDirectory() {
        if (!directory.empty()) {
            const std::string command = "rm -rf '" + directory + "'";
            if (std::system(command.c_str()) != 0) {
                ADD_FAILURE() << "could not remove " << directory;
            }
        }
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return directory; }
    std::string file(const std::string& name) const { return directory + "/" + name; }

    /// Writes `contents` to `name` in the directory, executable when asked.
    std::string write(const std::string& name, const std::string& contents, bool executable = false) const {
        const std::string path = file(name);
        std::ofstream(path) << contents;
        if (executable) {
            chmod(path.c_str(), 0755);
        }
        return path;
    }

    static std::string read(const std::string& path) {
        std::ifstream in(path);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }

private:
    std::string directory;
};
