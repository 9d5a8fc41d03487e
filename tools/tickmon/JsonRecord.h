// The monitor's JSON record is built with nlohmann-json; its ordered flavour
// keeps the members in the order the record has always listed them.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

namespace tickmon {

using Json = nlohmann::ordered_json;

/// The value, or null when there is none.
template <typename T>
Json valueOrNull(const std::optional<T>& value) {
    return value ? Json(*value) : Json(nullptr);
}

/// `record` as the file holds it: two-space indentation and a final newline.
inline std::string jsonText(const Json& record) { return record.dump(2) + "\n"; }

}  // namespace tickmon
