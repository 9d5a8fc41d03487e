#include "FastOps.h"

#include "OpCodec.h"
#include "TickModuleIdentity.h"

namespace zyn_fuzz::fast {
namespace {

/// How the fast target lays out its operations (OpCodec.h).
struct Layout {
    /// What the list answers when asked to remove a pointer it does not
    /// hold: always an error, with or without the top bit.
    static constexpr uint32_t kRemoveResults[] = {32771, 32768, 0x800C, 0x9201, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu};
    /// The list delivers null at the latest on this GetNext call from now.
    static constexpr uint32_t kLastNullCall = 6;

    /// Neither Register nor Initialize takes more than the other module's.
    static constexpr bool kHandlersHaveIntervals = false;
    // Phase 14 is one the fast module does not subscribe to, like the codes
    // without a name.
    static constexpr uint32_t kPhases[] = {TickModule::Phase::Configure,
                                           TickModule::Phase::Idle,
                                           TickModule::Phase::ShutDown,
                                           TickModule::Phase::StartTicks,
                                           12,
                                           15,
                                           0,
                                           UINT32_MAX};

    static OpKind allowedAt(OpKind kind, int depth) {
        if (kind == OpKind::ArmNested && depth >= kMaxArmDepth) {
            return OpKind::TraceLevel;
        }
        // The unlocked variant is for tick functions only.
        return kind == OpKind::UnregisterFromOnTick && depth == 0 ? OpKind::Unregister : kind;
    }

    template <typename Channel>
    static void codeOwn(Channel& channel, Op& op) {
        if (op.kind == OpKind::UnregisterFromOnTick) {
            codeSlot(channel, op.slot);
        } else if (op.kind == OpKind::ScriptRemoveResult) {
            channel.oneOf(op.a, kRemoveResults, false);
        } else {
            uint32_t later = op.a - 1;
            channel.inRange(later, kLastNullCall - 1);
            op.a = later + 1;
        }
    }

    static std::string describeOwn(const Op& op) {
        if (op.kind == OpKind::UnregisterFromOnTick) {
            return "UnregisterFromOnTick(" + describeSlot(op.slot) + ")";
        }
        if (op.kind == OpKind::ScriptRemoveResult) {
            return "list refuses unknown pointers with " + hex8(op.a);
        }
        return "list delivers null on GetNext call " + std::to_string(op.a) + " from now";
    }
};

}  // namespace

Op decodeOp(InputDecoder& input) { return decodeWith<Layout, Op>(input); }
void encodeOp(InputEncoder& output, const Op& op) { encodeWith<Layout>(output, op); }
std::string describe(const Op& op) { return describeWith<Layout>(op); }

}  // namespace zyn_fuzz::fast
