#include "TraceLevelList.h"

#include <algorithm>

namespace platform_host::detail {

namespace {

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t");
    return first == std::string::npos ? std::string() : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The last ':' separates the name from the level (one or two digits).
bool parseEntry(const std::string& entry, TraceLevelList& levels) {
    const auto colon = entry.rfind(':');
    if (colon == std::string::npos) {
        return false;
    }
    const std::string name = trimmed(entry.substr(0, colon));
    const std::string level = trimmed(entry.substr(colon + 1));
    const bool isNumber =
        !level.empty() && level.size() <= 2 && level.find_first_not_of("0123456789") == std::string::npos;
    const auto value = static_cast<uint32_t>(isNumber ? std::stoul(level) : kMaxTraceLevel + 1);
    if (name.empty() || value > kMaxTraceLevel) {
        return false;
    }
    levels.emplace_back(name, value);
    return true;
}

}  // namespace

bool parseTraceLevelList(const std::string& text, TraceLevelList& levels) {
    levels.clear();
    if (trimmed(text).empty()) {
        return true;
    }
    for (std::string::size_type begin = 0;;) {
        const auto end = std::min(text.find(',', begin), text.size());
        if (!parseEntry(text.substr(begin, end - begin), levels)) {
            levels.clear();
            return false;
        }
        if (end == text.size()) {
            return true;
        }
        begin = end + 1;
    }
}

}  // namespace platform_host::detail
