#include "FastOps.h"

#include "OpCodec.h"

namespace fast_fuzz {

using zyn_fuzz::ByteReader;
using zyn_fuzz::kMaxArmDepth;

namespace {

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
    if (zyn_fuzz::decodeSharedOp(input, op, depth, &decodeOp)) {
        return op;
    }
    switch (op.kind) {
        case OpKind::Register:
            zyn_fuzz::decodeRegisterHead(input, op);
            op.text = zyn_fuzz::decodeName(input);
            break;
        case OpKind::UnregisterFromOnTick:
            op.slot = zyn_fuzz::decodeSlot(input);
            break;
        case OpKind::ScriptRemoveResult:
            op.a = decodeRemoveResult(input);
            break;
        case OpKind::ScriptGetNextNull:
            op.a = 1u + input.byte() % 6u;
            break;
        case OpKind::Initialize:
            zyn_fuzz::decodePlatformResults(input, op);
            break;
        case OpKind::Phase:
            op.a = decodePhase(input);
            break;
        default:
            break;
    }
    return op;
}

std::string describe(const Op& op) {
    switch (op.kind) {
        case OpKind::Register:
            return "Register(variant " + std::to_string(op.variant) + ", client " + std::to_string(op.client) +
                   ", name \"" + zyn_fuzz::printable(op.text) + "\")";
        case OpKind::UnregisterFromOnTick:
            return "UnregisterFromOnTick(" + zyn_fuzz::describeSlot(op.slot) + ")";
        case OpKind::ScriptRemoveResult:
            return "list refuses unknown pointers with " + zyn_fuzz::hex8(op.a);
        case OpKind::ScriptGetNextNull:
            return "list delivers null on GetNext call " + std::to_string(op.a) + " from now";
        case OpKind::Initialize:
            return "Initialize(" + zyn_fuzz::describePlatformResults(op) + ")";
        default:
            return zyn_fuzz::describeSharedOp(op, &describe);
    }
}

}  // namespace fast_fuzz
