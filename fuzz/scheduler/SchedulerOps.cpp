#include "SchedulerOps.h"

#include "OpCodec.h"
#include "TickModuleIdentity.h"

namespace sched_fuzz {

using zyn_fuzz::kMaxArmDepth;

namespace {

// Phase 11 configures the oscillator, after which phase 14 starts its thread
// (which the target parks, ParkedOscillator.h). 11 comes only as "any value":
// every start costs a thread, and kept rare they keep the runs fast.
// The other codes are phases the module does not subscribe to.
constexpr uint32_t kPhases[] = {
    TickModule::Phase::Idle, TickModule::Phase::StartTicks, TickModule::Phase::ShutDown, 12, 15, 0, 17, 10, UINT32_MAX};

OpKind allowedAt(OpKind kind, int depth) {
    return kind == OpKind::ArmNested && depth >= kMaxArmDepth ? OpKind::ArmThrow : kind;
}

template <typename Channel>
void codeOp(Channel& channel, Op& op, int depth) {
    zyn_fuzz::codeKind(channel, op, depth, kNestableKinds, kAllKinds, &allowedAt);
    if (zyn_fuzz::codeSharedOp(channel, op, depth, &codeOp<Channel>)) {
        return;
    }
    switch (op.kind) {
        case OpKind::Register:
            zyn_fuzz::codeRegisterHead(channel, op);
            channel.interesting32(op.a);
            zyn_fuzz::codeRegisterName(channel, op);
            break;
        case OpKind::CopyForeignHandle:
            zyn_fuzz::codeSlot(channel, op.slot);
            break;
        case OpKind::SetPriority:
        case OpKind::SetStartOffset:
            zyn_fuzz::codeSlot(channel, op.slot);
            channel.interesting32(op.a);
            break;
        case OpKind::ArmThrow:
            zyn_fuzz::codeClient(channel, op.client);
            channel.inRange(op.variant, static_cast<uint8_t>(ThrowKind::Int));
            channel.text(op.text, uint8_t{23});
            break;
        case OpKind::Initialize:
            channel.interesting32(op.a);
            zyn_fuzz::codePlatformResults(channel, op);
            break;
        case OpKind::Phase:
            channel.oneOf(op.a, kPhases, true);
            break;
        default:
            break;
    }
}

}  // namespace

Op decodeOp(zyn_fuzz::InputDecoder& input) {
    Op op;
    codeOp(input, op, 0);
    return op;
}

void encodeOp(zyn_fuzz::InputEncoder& output, const Op& op) {
    Op copy = op;
    codeOp(output, copy, 0);
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
