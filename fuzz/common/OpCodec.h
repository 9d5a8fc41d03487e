// Layout and description of the operations of both fuzz targets. Each
// target's OpKind names the operations they share alike; these templates lay
// out and describe those, and hand the target's own to its Layout.
//
// A layout is written once, over the direction: with an InputDecoder it
// fills the operation from the input, with an InputEncoder it writes the
// bytes that decode to the operation (InputCodec.h).
#pragma once

#include <cstdint>
#include <string>

#include "FuzzNames.h"
#include "HarnessLimits.h"
#include "InputCodec.h"
#include "PlatformResults.h"

namespace zyn_fuzz {

/// The kind of an operation at `depth`: only nestable kinds inside a tick
/// function; `allowedAt` turns what may not run there into what may.
template <typename Layout, typename Channel, typename Op>
void codeKind(Channel& channel, Op& op, int depth) {
    auto kind = static_cast<uint8_t>(op.kind);
    using Kind = decltype(op.kind);
    channel.inRange(kind, static_cast<uint8_t>(depth == 0 ? Kind::Phase : Kind::LastNestable));
    op.kind = Layout::allowedAt(static_cast<Kind>(kind), depth);
}

template <typename Channel>
void codeSlot(Channel& channel, uint8_t& slot) {
    channel.inRange(slot, static_cast<uint8_t>(kSlots));
}

template <typename Channel>
void codeClient(Channel& channel, uint8_t& client) {
    channel.inRange(client, static_cast<uint8_t>(kClients - 1));
}

/// Reads or writes one operation at `depth` (0: top level). What both
/// targets know is laid out here; `Layout` names the target's own kinds and
/// lays out their arguments. A Layout has:
///   - `allowedAt(kind, depth)`, the kind that runs instead of one that may
///     not run at that depth;
///   - `kHandlersHaveIntervals`: Register takes an interval and Initialize
///     a tick priority;
///   - `kPhases`, the phase codes the input favours;
///   - `codeOwn(channel, op)`, for the target's own kinds.
template <typename Layout, typename Channel, typename Op>
void codeOp(Channel& channel, Op& op, int depth) {
    using Kind = decltype(op.kind);
    codeKind<Layout>(channel, op, depth);
    switch (op.kind) {
        case Kind::Register:
            channel.mostlyZero(op.variant, uint8_t{8});
            codeClient(channel, op.client);
            if (Layout::kHandlersHaveIntervals) {
                channel.interesting32(op.a);
            }
            codeName(channel, op.name);
            op.text = nameBuffer(op.name);
            break;
        case Kind::Unregister:
        case Kind::Enable:
        case Kind::Disable:
            codeSlot(channel, op.slot);
            break;
        case Kind::AddGroup:
        case Kind::RemoveGroup:
        case Kind::WriteEnabled:
            codeSlot(channel, op.slot);
            channel.interesting32(op.a);
            break;
        case Kind::EnableGroup:
        case Kind::DisableGroup:
            channel.interesting32(op.a);
            break;
        case Kind::ArmNested:
            codeClient(channel, op.client);
            op.nested.resize(1);
            codeOp<Layout>(channel, op.nested.front(), depth + 1);
            break;
        case Kind::TraceLevel:
            channel.inRange(op.a, uint32_t{7});
            break;
        case Kind::Initialize:
            if (Layout::kHandlersHaveIntervals) {
                channel.interesting32(op.a);
            }
            channel.oneOf(op.b, kPlatformResults, false);
            channel.oneOf(op.c, kPlatformResults, false);
            channel.oneOf(op.d, kPlatformResults, false);
            break;
        case Kind::Phase:
            channel.oneOf(op.a, Layout::kPhases, true);
            break;
        case Kind::LoadForeignRecord:
        case Kind::Tick:
        case Kind::Uninitialize:
            break;
        default:
            Layout::codeOwn(channel, op);
            break;
    }
}

/// One top-level operation read from `input`.
template <typename Layout, typename Op>
Op decodeWith(InputDecoder& input) {
    Op op;
    codeOp<Layout>(input, op, 0);
    return op;
}

/// Writes the bytes that decode to `op`, a top-level operation.
template <typename Layout, typename Op>
void encodeWith(InputEncoder& output, Op op) {
    codeOp<Layout>(output, op, 0);
}

inline std::string describeSlot(uint8_t slot) { return slot == kNullSlot ? "null" : "slot " + std::to_string(slot); }

/// One line describing the operation, for failure reports; `Layout`
/// describes the target's own kinds (`describeOwn(op)`).
template <typename Layout, typename Op>
std::string describeWith(const Op& op) {
    using Kind = decltype(op.kind);
    const std::string slot = describeSlot(op.slot);
    const auto value = [&op] { return std::to_string(op.a); };
    switch (op.kind) {
        case Kind::Register:
            return "Register(variant " + std::to_string(op.variant) + ", client " + std::to_string(op.client) +
                   (Layout::kHandlersHaveIntervals ? ", interval " + value() : std::string()) + ", name \"" +
                   printable(op.text) + "\")";
        case Kind::Unregister:
            return "Unregister(" + slot + ")";
        case Kind::Enable:
            return "Enable(" + slot + ")";
        case Kind::Disable:
            return "Disable(" + slot + ")";
        case Kind::AddGroup:
            return "AddGroup(" + slot + ", " + value() + ")";
        case Kind::RemoveGroup:
            return "RemoveGroup(" + slot + ", " + value() + ")";
        case Kind::EnableGroup:
            return "EnableTickGroup(" + value() + ")";
        case Kind::DisableGroup:
            return "DisableTickGroup(" + value() + ")";
        case Kind::WriteEnabled:
            return "write enabled = " + value() + " into " + slot;
        case Kind::LoadForeignRecord:
            return "load the unregistered record into a free slot";
        case Kind::ArmNested:
            return "arm client " + std::to_string(op.client) + " with { " + describeWith<Layout>(op.nested.front()) +
                   " }";
        case Kind::TraceLevel:
            return "trace level " + value();
        case Kind::Tick:
            return "Tick";
        case Kind::Initialize:
            return "Initialize(" +
                   (Layout::kHandlersHaveIntervals ? "priority " + std::to_string(static_cast<int32_t>(op.a)) + ", "
                                                   : std::string()) +
                   "platform results " + hex8(op.b) + " " + hex8(op.c) + " " + hex8(op.d) + ")";
        case Kind::Uninitialize:
            return "Uninitialize()";
        case Kind::Phase:
            return "Phase " + value();
        default:
            return Layout::describeOwn(op);
    }
}

}  // namespace zyn_fuzz
