#include "SchedulerOps.h"

#include "OpCodec.h"

namespace sched_fuzz {

using zyn_fuzz::ByteReader;
using zyn_fuzz::kMaxArmDepth;

namespace {

uint32_t decodePhase(ByteReader& input) {
    // Phase 11 configures the oscillator, after which phase 14 starts its
    // thread; the target parks that thread (ParkedOscillator.h). 11 comes
    // from the raw values only, so the stored inputs keep their meaning.
    static const uint32_t phases[] = {13, 14, 16, 12, 15, 0, 17, 10, UINT32_MAX};
    const uint8_t selector = input.byte();
    if (selector < 200) {
        return phases[selector % (sizeof(phases) / sizeof(phases[0]))];
    }
    return input.u32();
}

OpKind decodeKind(ByteReader& input, int depth) {
    const uint8_t selector = input.byte();
    const uint8_t range = depth == 0 ? kAllKinds : kNestableKinds;
    OpKind kind = static_cast<OpKind>(selector % range);
    if (kind == OpKind::ArmNested && depth >= kMaxArmDepth) {
        kind = OpKind::ArmThrow;
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
            op.a = input.interesting32();
            op.text = zyn_fuzz::decodeName(input);
            break;
        case OpKind::CopyForeignHandle:
            op.slot = zyn_fuzz::decodeSlot(input);
            break;
        case OpKind::SetPriority:
        case OpKind::SetStartOffset:
            op.slot = zyn_fuzz::decodeSlot(input);
            op.a = input.interesting32();
            break;
        case OpKind::ArmThrow:
            op.client = zyn_fuzz::decodeClient(input);
            op.variant = static_cast<uint8_t>(input.byte() % 5);
            op.text = input.bytes(input.byte() % 24u);
            break;
        case OpKind::Initialize:
            op.a = input.interesting32();
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
    const std::string slot = zyn_fuzz::describeSlot(op.slot);
    switch (op.kind) {
        case OpKind::Register:
            return "Register(variant " + std::to_string(op.variant) + ", client " + std::to_string(op.client) +
                   ", interval " + std::to_string(op.a) + ", name \"" + zyn_fuzz::printable(op.text) + "\")";
        case OpKind::SetPriority:
            return "SetTickPriority(" + slot + ", " + std::to_string(static_cast<int32_t>(op.a)) + ")";
        case OpKind::SetStartOffset:
            return "SetStartOffset(" + slot + ", " + std::to_string(op.a) + ")";
        case OpKind::Freeze:
            return "Freeze()";
        case OpKind::Unfreeze:
            return "Unfreeze()";
        case OpKind::CopyForeignHandle:
            return "copy the unregistered handle in " + slot + " into a free slot";
        case OpKind::ArmThrow:
            return "arm client " + std::to_string(op.client) + " to throw kind " + std::to_string(op.variant) + " \"" +
                   zyn_fuzz::printable(op.text) + "\"";
        case OpKind::Initialize:
            return "Initialize(priority " + std::to_string(static_cast<int32_t>(op.a)) + ", " +
                   zyn_fuzz::describePlatformResults(op) + ")";
        default:
            return zyn_fuzz::describeSharedOp(op, &describe);
    }
}

}  // namespace sched_fuzz
