#include "SchedulerOps.h"

#include "FuzzNames.h"
#include "PlatformResults.h"

namespace sched_fuzz {

using zyn_fuzz::ByteReader;

namespace {

constexpr int kMaxArmDepth = 2;

uint32_t decodePhase(ByteReader& input) {
    // 11 would initialise the oscillator; phase 14 could then start a real
    // thread. Ticks here are driven by the target itself, so 11 is left out.
    static const uint32_t phases[] = {13, 14, 16, 12, 15, 0, 17, 10, UINT32_MAX};
    const uint8_t selector = input.byte();
    if (selector < 200) {
        return phases[selector % (sizeof(phases) / sizeof(phases[0]))];
    }
    const uint32_t any = input.u32();
    return any == 11 ? 12 : any;
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
    switch (op.kind) {
        case OpKind::Register: {
            const uint8_t variant = input.byte();
            op.variant = variant < 8 ? variant : 0;
            op.client = input.byte() % kClients;
            op.a = input.interesting32();
            op.text = zyn_fuzz::decodeName(input);
            break;
        }
        case OpKind::Unregister:
        case OpKind::Enable:
        case OpKind::Disable:
        case OpKind::CopyForeignHandle:
            op.slot = input.byte() % (kSlots + 1);
            break;
        case OpKind::SetPriority:
        case OpKind::SetStartOffset:
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
        case OpKind::ArmThrow:
            op.client = input.byte() % kClients;
            op.variant = static_cast<uint8_t>(input.byte() % 5);
            op.text = input.bytes(input.byte() % 24u);
            break;
        case OpKind::TraceLevel:
            op.a = input.byte() % 8u;
            break;
        case OpKind::Initialize:
            op.a = input.interesting32();
            op.b = zyn_fuzz::decodePlatformResult(input);
            op.c = zyn_fuzz::decodePlatformResult(input);
            op.d = zyn_fuzz::decodePlatformResult(input);
            break;
        case OpKind::Phase:
            op.a = decodePhase(input);
            break;
        case OpKind::Freeze:
        case OpKind::Unfreeze:
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
                   ", interval " + std::to_string(op.a) + ", name \"" + zyn_fuzz::printable(op.text) + "\")";
        case OpKind::Unregister:
            return "Unregister(" + slot + ")";
        case OpKind::Enable:
            return "Enable(" + slot + ")";
        case OpKind::Disable:
            return "Disable(" + slot + ")";
        case OpKind::SetPriority:
            return "SetTickPriority(" + slot + ", " + std::to_string(static_cast<int32_t>(op.a)) + ")";
        case OpKind::SetStartOffset:
            return "SetStartOffset(" + slot + ", " + std::to_string(op.a) + ")";
        case OpKind::AddGroup:
            return "AddGroup(" + slot + ", " + std::to_string(op.a) + ")";
        case OpKind::RemoveGroup:
            return "RemoveGroup(" + slot + ", " + std::to_string(op.a) + ")";
        case OpKind::EnableGroup:
            return "EnableTickGroup(" + std::to_string(op.a) + ")";
        case OpKind::DisableGroup:
            return "DisableTickGroup(" + std::to_string(op.a) + ")";
        case OpKind::Freeze:
            return "Freeze()";
        case OpKind::Unfreeze:
            return "Unfreeze()";
        case OpKind::WriteEnabled:
            return "write enabled = " + std::to_string(op.a) + " into " + slot;
        case OpKind::LoadForeignRecord:
            return "load the unregistered record into a free slot";
        case OpKind::CopyForeignHandle:
            return "copy the unregistered handle in " + slot + " into a free slot";
        case OpKind::ArmNested:
            return "arm client " + std::to_string(op.client) + " with { " + describe(op.nested.front()) + " }";
        case OpKind::ArmThrow:
            return "arm client " + std::to_string(op.client) + " to throw kind " + std::to_string(op.variant) + " \"" +
                   zyn_fuzz::printable(op.text) + "\"";
        case OpKind::TraceLevel:
            return "trace level " + std::to_string(op.a);
        case OpKind::Tick:
            return "Tick";
        case OpKind::Initialize:
            return "Initialize(priority " + std::to_string(static_cast<int32_t>(op.a)) + ", platform results " +
                   zyn_fuzz::hex8(op.b) + " " + zyn_fuzz::hex8(op.c) + " " + zyn_fuzz::hex8(op.d) + ")";
        case OpKind::Uninitialize:
            return "Uninitialize()";
        case OpKind::Phase:
            return "Phase " + std::to_string(op.a);
    }
    return "?";
}

}  // namespace sched_fuzz
