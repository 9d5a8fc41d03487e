#include "OutputFiles.h"

#include <cerrno>
#include <cstring>

namespace tickmon {
namespace {

bool openOne(const char* option, const std::string& path, std::unique_ptr<std::ofstream>& file, std::string& error) {
    if (path.empty()) {
        return true;
    }
    file = std::make_unique<std::ofstream>(path, std::ios::out | std::ios::trunc);
    if (!file->is_open()) {
        error = std::string(option) + ": cannot write '" + path + "': " + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace

bool OutputFiles::open(const MonitorOptions& options, std::string& error) {
    return openOne("--json", options.jsonPath, json, error) &&
           openOne("--histogram", options.histogramPath, histogram, error) &&
           openOne("--timeline", options.timelinePath, timeline, error);
}

}  // namespace tickmon
