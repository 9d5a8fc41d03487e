#include "SchedulerOps.h"

#include "OpCodec.h"
#include "TickModuleIdentity.h"

namespace zyn_fuzz::sched {
namespace {

/// How the scheduler target lays out its operations (OpCodec.h).
struct Layout {
    /// Arming goes at most kMaxArmDepth deep; past that, a throw is armed.
    static OpKind allowedAt(OpKind kind, int depth) {
        return kind == OpKind::ArmNested && depth >= kMaxArmDepth ? OpKind::ArmThrow : kind;
    }

    // Phase 11 configures the oscillator, after which phase 14 starts its
    // thread (which the target parks, ParkedOscillator.h). 11 comes only as
    // "any value": every start costs a thread, and kept rare they keep the
    // runs fast. The codes without a name are phases the module does not
    // subscribe to.
    static constexpr uint32_t kPhases[] = {TickModule::Phase::Idle,
                                           TickModule::Phase::StartTicks,
                                           TickModule::Phase::ShutDown,
                                           12,
                                           15,
                                           0,
                                           17,
                                           10,
                                           UINT32_MAX};

    /// Register takes an interval, Initialize a tick priority.
    static constexpr bool kHandlersHaveIntervals = true;

    template <typename Channel>
    static void codeOwn(Channel& channel, Op& op) {
        if (op.kind == OpKind::ArmThrow) {
            codeClient(channel, op.client);
            channel.inRange(op.variant, static_cast<uint8_t>(ThrowKind::Int));
            channel.text(op.text, uint8_t{23});
        } else if (op.kind != OpKind::Freeze && op.kind != OpKind::Unfreeze) {
            // A slot, and for all but CopyForeignHandle a value.
            codeSlot(channel, op.slot);
            if (op.kind != OpKind::CopyForeignHandle) {
                channel.interesting32(op.a);
            }
        }
    }

    static std::string describeOwn(const Op& op) {
        const std::string slot = describeSlot(op.slot);
        switch (op.kind) {
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
            default:
                return "arm client " + std::to_string(op.client) + " to throw kind " + std::to_string(op.variant) +
                       " \"" + printable(op.text) + "\"";
        }
    }
};

}  // namespace

Op decodeOp(InputDecoder& input) { return decodeWith<Layout, Op>(input); }
void encodeOp(InputEncoder& output, const Op& op) { encodeWith<Layout>(output, op); }
std::string describe(const Op& op) { return describeWith<Layout>(op); }

}  // namespace zyn_fuzz::sched
