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

/// Parses a comma-separated list of MODULE:LEVEL entries (spaces around names
/// and levels are ignored, LEVEL is 0 to 7, the last ':' separates the two).
/// An empty or all-blank text is a valid empty list. Returns false, with
/// `levels` left empty, when any entry is malformed: the whole value is then
/// ignored rather than half applied.
bool parseTraceLevelList(const std::string& text, TraceLevelList& levels);

}  // namespace platform_host::detail
