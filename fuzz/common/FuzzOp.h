// One operation of a fuzz input, for either target: what the target's
// OpKind names, with the arguments the kind takes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "FuzzNames.h"
#include "HarnessLimits.h"

namespace zyn_fuzz {

template <typename Kind>
struct BasicOp {
    Kind kind = Kind::Tick;
    uint8_t slot = kNullSlot;
    uint8_t client = 0;
    uint8_t variant = 0;
    uint32_t a = 0;               ///< interval, priority, offset, group id, level, phase, written value, scripted value
    uint32_t b = 0;               ///< Initialize: module registration result
    uint32_t c = 0;               ///< Initialize: callback registration result
    uint32_t d = 0;               ///< Initialize: interface registration result
    NameRecipe name;              ///< Register: how the name buffer is made
    std::string text;             ///< Register: the name buffer; ArmThrow: the exception text
    std::vector<BasicOp> nested;  ///< ArmNested: the operation to arm
};

}  // namespace zyn_fuzz
