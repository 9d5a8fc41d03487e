#include "FastOps.h"

#include "OpCodec.h"
#include "TickModuleIdentity.h"

namespace fast_fuzz {

using zyn_fuzz::kMaxArmDepth;

namespace {

// Phase 14 is one the fast module does not subscribe to, like the others.
constexpr uint32_t kPhases[] = {TickModule::Phase::Configure,
                                TickModule::Phase::Idle,
                                TickModule::Phase::ShutDown,
                                TickModule::Phase::StartTicks,
                                12,
                                15,
                                0,
                                UINT32_MAX};

/// What the list answers when asked to remove a pointer it does not hold:
/// always an error, with or without the top bit.
constexpr uint32_t kRemoveResults[] = {32771, 32768, 0x800C, 0x9201, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu};

/// The list delivers null at the latest on this GetNext call from now.
constexpr uint32_t kLastNullCall = 6;

OpKind allowedAt(OpKind kind, int depth) {
    if (kind == OpKind::ArmNested && depth >= kMaxArmDepth) {
        return OpKind::TraceLevel;
    }
    // The unlocked variant is for tick functions only.
    return kind == OpKind::UnregisterFromOnTick && depth == 0 ? OpKind::Unregister : kind;
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
            zyn_fuzz::codeRegisterName(channel, op);
            break;
        case OpKind::UnregisterFromOnTick:
            zyn_fuzz::codeSlot(channel, op.slot);
            break;
        case OpKind::ScriptRemoveResult:
            channel.oneOf(op.a, kRemoveResults, false);
            break;
        case OpKind::ScriptGetNextNull: {
            uint32_t later = op.a - 1;
            channel.inRange(later, kLastNullCall - 1);
            op.a = later + 1;
            break;
        }
        case OpKind::Initialize:
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
