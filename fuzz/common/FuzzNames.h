// Handler names as a hostile client would pass them: empty, around the
// 31-character limit of the record, up to 4096 bytes long, non-ASCII, with
// or without a terminator after the first 32 bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace zyn_fuzz {

/// How an input makes a name buffer: it spells the bytes out, or gives the
/// recipe of a generated one.
struct NameRecipe {
    enum class Form : uint8_t { Empty, Spelled, NearLimit, Generated };
    static constexpr uint8_t kLastForm = static_cast<uint8_t>(Form::Generated);
    /// Spelled names are short; longer ones are generated.
    static constexpr uint8_t kMaxSpelled = 47;
    /// NearLimit: 30 characters and up to this many more.
    static constexpr uint8_t kMaxBeyond30 = 3;
    static constexpr uint16_t kMaxGenerated = 4096;

    Form form = Form::Empty;
    std::string spelled;         ///< Spelled: the bytes, NULs included
    uint8_t beyond30 = 0;        ///< NearLimit
    uint16_t length = 0;         ///< Generated
    uint8_t seed = 0;            ///< Generated: the first byte's value
    uint8_t terminatorSlot = 0;  ///< Generated: 0 or where a NUL goes (32 + 16 * slot)
};

inline NameRecipe spelledName(std::string bytes) {
    NameRecipe recipe;
    recipe.form = NameRecipe::Form::Spelled;
    recipe.spelled = std::move(bytes);
    return recipe;
}

/// 30 + `beyond30` characters ending in a byte with the top bit set.
inline NameRecipe nearLimitName(uint8_t beyond30) {
    NameRecipe recipe;
    recipe.form = NameRecipe::Form::NearLimit;
    recipe.beyond30 = beyond30;
    return recipe;
}

/// `length` bytes with no NUL in the first 32, then a NUL in
/// `terminatorSlot` when it is not 0.
inline NameRecipe generatedName(uint16_t length, uint8_t seed, uint8_t terminatorSlot = 0) {
    NameRecipe recipe;
    recipe.form = NameRecipe::Form::Generated;
    recipe.length = length;
    recipe.seed = seed;
    recipe.terminatorSlot = terminatorSlot;
    return recipe;
}

/// The bytes of the name buffer a recipe makes. What the library sees is the
/// C string at `buffer.c_str()`, which ends at the first NUL of the buffer.
inline std::string nameBuffer(const NameRecipe& recipe) {
    switch (recipe.form) {
        case NameRecipe::Form::Empty:
            return std::string();
        case NameRecipe::Form::Spelled:
            return recipe.spelled;
        case NameRecipe::Form::NearLimit: {
            const size_t length = 30u + recipe.beyond30;
            std::string name;
            for (size_t i = 0; i + 1 < length; ++i) {
                name.push_back(static_cast<char>('A' + i % 26));
            }
            name.push_back(static_cast<char>(0xE9));
            return name;
        }
        case NameRecipe::Form::Generated:
            break;
    }
    std::string name(recipe.length, '\0');
    for (size_t i = 0; i < recipe.length; ++i) {
        auto value = static_cast<uint8_t>(recipe.seed + i * 7u + (i >> 3));
        name[i] = static_cast<char>(value == 0 ? 0xA5 : value);
    }
    const size_t terminatorAt = 32u + recipe.terminatorSlot * 16u;
    if (recipe.terminatorSlot != 0 && terminatorAt < recipe.length) {
        name[terminatorAt] = '\0';
    }
    return name;
}

/// Reads or writes a name recipe (see InputCodec.h for the directions).
template <typename Channel>
void codeName(Channel& channel, NameRecipe& recipe) {
    auto form = static_cast<uint8_t>(recipe.form);
    channel.inRange(form, NameRecipe::kLastForm);
    recipe.form = static_cast<NameRecipe::Form>(form);
    switch (recipe.form) {
        case NameRecipe::Form::Empty:
            break;
        case NameRecipe::Form::Spelled:
            channel.text(recipe.spelled, NameRecipe::kMaxSpelled);
            break;
        case NameRecipe::Form::NearLimit:
            channel.inRange(recipe.beyond30, NameRecipe::kMaxBeyond30);
            break;
        case NameRecipe::Form::Generated:
            channel.inRange(recipe.length, NameRecipe::kMaxGenerated);
            channel.inRange(recipe.seed, uint8_t{UINT8_MAX});
            channel.inRange(recipe.terminatorSlot, uint8_t{UINT8_MAX});
            break;
    }
}

/// What a C function reading `buffer.c_str()` sees.
inline std::string asCString(const std::string& buffer) { return std::string(buffer.c_str()); }

/// The name a record keeps: "%s" into a 32-byte field.
inline std::string storedName(const std::string& buffer) { return asCString(buffer).substr(0, 31); }

/// Printable form of a name for failure reports.
inline std::string printable(const std::string& text) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : text.substr(0, 64)) {
        if (c >= 0x20 && c < 0x7F && c != '\\') {
            out.push_back(static_cast<char>(c));
        } else {
            out += "\\x";
            out.push_back(digits[c >> 4]);
            out.push_back(digits[c & 0xF]);
        }
    }
    if (text.size() > 64) {
        out += "...(" + std::to_string(text.size()) + " bytes)";
    }
    return out;
}

}  // namespace zyn_fuzz
