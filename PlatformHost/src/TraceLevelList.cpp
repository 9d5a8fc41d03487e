#include "TraceLevelList.h"

namespace platform_host::detail {

namespace {

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string::npos) {
        return {};
    }
    const auto last = text.find_last_not_of(" \t");
    return text.substr(first, last - first + 1);
}

bool parseLevel(const std::string& text, uint32_t& level) {
    if (text.empty() || text.size() > 2) {
        return false;
    }
    uint32_t value = 0;
    for (char digit : text) {
        if (digit < '0' || digit > '9') {
            return false;
        }
        value = value * 10 + static_cast<uint32_t>(digit - '0');
    }
    if (value > kMaxTraceLevel) {
        return false;
    }
    level = value;
    return true;
}

bool parseEntry(const std::string& entry, TraceLevelList& levels) {
    const auto colon = entry.rfind(':');
    if (colon == std::string::npos) {
        return false;
    }
    const std::string name = trimmed(entry.substr(0, colon));
    uint32_t level = 0;
    if (name.empty() || !parseLevel(trimmed(entry.substr(colon + 1)), level)) {
        return false;
    }
    levels.emplace_back(name, level);
    return true;
}

}  // namespace

bool parseTraceLevelList(const std::string& text, TraceLevelList& levels) {
    levels.clear();
    if (trimmed(text).empty()) {
        return true;
    }
    std::string::size_type begin = 0;
    while (true) {
        const auto comma = text.find(',', begin);
        const auto end = comma == std::string::npos ? text.size() : comma;
        if (!parseEntry(text.substr(begin, end - begin), levels)) {
            levels.clear();
            return false;
        }
        if (comma == std::string::npos) {
            return true;
        }
        begin = comma + 1;
    }
}

}  // namespace platform_host::detail
