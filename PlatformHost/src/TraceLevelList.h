// The per-module trace levels given in the environment, e.g.
// KIV_TRACE="ZYN.TS:7,OTHER:2".
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace platform_host::detail {

/// The highest trace level; a module at this level writes everything.
constexpr uint32_t kMaxTraceLevel = 7;

using TraceLevelList = std::vector<std::pair<std::string, uint32_t>>;

/// Parses comma-separated MODULE:LEVEL entries (blanks around either ignored,
/// LEVEL 0 to 7); an all-blank text is an empty list. Returns false, with
/// `levels` empty, when any entry is malformed: the whole value is ignored
/// rather than half applied.
bool parseTraceLevelList(const std::string& text, TraceLevelList& levels);

}  // namespace platform_host::detail
