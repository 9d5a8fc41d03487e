#include "ProcFiles.h"

#include <fstream>
#include <sstream>

namespace tickmon {

std::optional<std::string> readWholeFile(const std::string& path) {
    std::ifstream in(path);
    if (!in) {
        return std::nullopt;
    }
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string taskFilePath(pid_t tid, const char* file) { return "/proc/self/task/" + std::to_string(tid) + "/" + file; }

std::optional<std::vector<std::string>> statFieldsAfterName(const std::string& line) {
    const size_t open = line.find('(');
    const size_t close = line.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open) {
        return std::nullopt;
    }
    std::vector<std::string> fields;
    std::istringstream rest(line.substr(close + 1));
    std::string field;
    while (rest >> field) {
        fields.push_back(field);
    }
    return fields;
}

}  // namespace tickmon
