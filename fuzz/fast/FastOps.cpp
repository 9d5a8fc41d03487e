#include "FastOps.h"

#include "FuzzNames.h"
#include "PlatformResults.h"

namespace fast_fuzz {

using zyn_fuzz::ByteReader;

namespace {

constexpr int kMaxArmDepth = 2;

uint32_t decodePhase(ByteReader& input) {
    static const uint32_t phases[] = {11, 13, 16, 14, 12, 15, 0, UINT32_MAX};
    const uint8_t selector = input.byte();
    if (selector < 200) {
        return phases[selector % (sizeof(phases) / sizeof(phases[0]))];
    }
    return input.u32();
}

/// What the list answers when asked to remove a pointer it does not hold:
/// always an error, with or without the top bit.
uint32_t decodeRemoveResult(ByteReader& input) {
    static const uint32_t results[] = {32771, 32768, 0x800C, 0x9201, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu};
    return results[input.byte() % (sizeof(results) / sizeof(results[0]))];
}

OpKind decodeKind(ByteReader& input, int depth) {
    const uint8_t selector = input.byte();
    OpKind kind = static_cast<OpKind>(selector % (depth == 0 ? kAllKinds : kNestableKinds));
    if (kind == OpKind::ArmNested && depth >= kMaxArmDepth) {
        kind = OpKind::TraceLevel;
    }
    if (kind == OpKind::UnregisterFromOnTick && depth == 0) {
        // The unlocked variant is for tick functions only.
        kind = OpKind::Unregister;
    }
    return kind;
}

}  // namespace

Op decodeOp(ByteReader& input, int depth) {
    Op op;
    op.kind = decodeKind(input, depth);
    switch (op.kind) {
        case OpKind::Register: {
            const uint8_t variant = input.byte();
            op.variant = variant < 8 ? variant : 0;
            op.client = input.byte() % kClients;
            op.text = zyn_fuzz::decodeName(input);
            break;
        }
        case OpKind::Unregister:
        case OpKind::UnregisterFromOnTick:
        case OpKind::Enable:
        case OpKind::Disable:
            op.slot = input.byte() % (kSlots + 1);
            break;
        case OpKind::AddGroup:
        case OpKind::RemoveGroup:
        case OpKind::WriteEnabled:
            op.slot = input.byte() % (kSlots + 1);
            op.a = input.interesting32();
            break;
        case OpKind::EnableGroup:
        case OpKind::DisableGroup:
            op.a = input.interesting32();
            break;
        case OpKind::ArmNested:
            op.client = input.byte() % kClients;
            op.nested.push_back(decodeOp(input, depth + 1));
            break;
        case OpKind::TraceLevel:
            op.a = input.byte() % 8u;
            break;
        case OpKind::ScriptRemoveResult:
            op.a = decodeRemoveResult(input);
            break;
        case OpKind::ScriptGetNextNull:
            op.a = 1u + input.byte() % 6u;
            break;
        case OpKind::Initialize:
            op.b = zyn_fuzz::decodePlatformResult(input);
            op.c = zyn_fuzz::decodePlatformResult(input);
            op.d = zyn_fuzz::decodePlatformResult(input);
            break;
        case OpKind::Phase:
            op.a = decodePhase(input);
            break;
        case OpKind::LoadForeignRecord:
        case OpKind::Tick:
        case OpKind::Uninitialize:
            break;
    }
    return op;
}

std::string describe(const Op& op) {
    const std::string slot = op.slot == kNullSlot ? "null" : "slot " + std::to_string(op.slot);
    switch (op.kind) {
        case OpKind::Register:
            return "Register(variant " + std::to_string(op.variant) + ", client " + std::to_string(op.client) +
                   ", name \"" + zyn_fuzz::printable(op.text) + "\")";
        case OpKind::Unregister:
            return "Unregister(" + slot + ")";
        case OpKind::UnregisterFromOnTick:
            return "UnregisterFromOnTick(" + slot + ")";
        case OpKind::Enable:
            return "Enable(" + slot + ")";
        case OpKind::Disable:
            return "Disable(" + slot + ")";
        case OpKind::AddGroup:
            return "AddGroup(" + slot + ", " + std::to_string(op.a) + ")";
        case OpKind::RemoveGroup:
            return "RemoveGroup(" + slot + ", " + std::to_string(op.a) + ")";
        case OpKind::EnableGroup:
            return "EnableTickGroup(" + std::to_string(op.a) + ")";
        case OpKind::DisableGroup:
            return "DisableTickGroup(" + std::to_string(op.a) + ")";
        case OpKind::WriteEnabled:
            return "write enabled = " + std::to_string(op.a) + " into " + slot;
        case OpKind::LoadForeignRecord:
            return "load the unregistered record into a free slot";
        case OpKind::ArmNested:
            return "arm client " + std::to_string(op.client) + " with { " + describe(op.nested.front()) + " }";
        case OpKind::TraceLevel:
            return "trace level " + std::to_string(op.a);
        case OpKind::ScriptRemoveResult:
            return "list refuses unknown pointers with " + zyn_fuzz::hex8(op.a);
        case OpKind::ScriptGetNextNull:
            return "list delivers null on GetNext call " + std::to_string(op.a) + " from now";
        case OpKind::Tick:
            return "Tick";
        case OpKind::Initialize:
            return "Initialize(platform results " + zyn_fuzz::hex8(op.b) + " " + zyn_fuzz::hex8(op.c) + " " +
                   zyn_fuzz::hex8(op.d) + ")";
        case OpKind::Uninitialize:
            return "Uninitialize()";
        case OpKind::Phase:
            return "Phase " + std::to_string(op.a);
    }
    return "?";
}

}  // namespace fast_fuzz
