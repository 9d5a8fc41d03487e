// Layout and description of the operations both fuzz targets know. Each
// target's OpKind names these operations alike; the target lays out and
// describes its own operations and hands the rest to these templates, which
// read or write the arguments in the same order for both.
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
template <typename Channel, typename Op, typename Kind>
void codeKind(Channel& channel, Op& op, int depth, uint8_t nestableKinds, uint8_t allKinds,
              Kind (*allowedAt)(Kind, int)) {
    auto kind = static_cast<uint8_t>(op.kind);
    channel.inRange(kind, static_cast<uint8_t>((depth == 0 ? allKinds : nestableKinds) - 1));
    op.kind = allowedAt(static_cast<Kind>(kind), depth);
}

template <typename Channel>
void codeSlot(Channel& channel, uint8_t& slot) {
    channel.inRange(slot, static_cast<uint8_t>(kSlots));
}

template <typename Channel>
void codeClient(Channel& channel, uint8_t& client) {
    channel.inRange(client, static_cast<uint8_t>(kClients - 1));
}

/// The null-argument variant and the client of a Register.
template <typename Channel, typename Op>
void codeRegisterHead(Channel& channel, Op& op) {
    channel.mostlyZero(op.variant, uint8_t{8});
    codeClient(channel, op.client);
}

/// The name buffer of a Register.
template <typename Channel, typename Op>
void codeRegisterName(Channel& channel, Op& op) {
    codeName(channel, op.name);
    op.text = nameBuffer(op.name);
}

/// The three results the platform gives Initialize.
template <typename Channel, typename Op>
void codePlatformResults(Channel& channel, Op& op) {
    channel.oneOf(op.b, kPlatformResults, false);
    channel.oneOf(op.c, kPlatformResults, false);
    channel.oneOf(op.d, kPlatformResults, false);
}

/// Reads or writes the arguments of an operation both targets know; false
/// when `op.kind` is one of the target's own. `codeNested` lays out an
/// operation armed one level deeper.
template <typename Channel, typename Op, typename CodeNested>
bool codeSharedOp(Channel& channel, Op& op, int depth, CodeNested codeNested) {
    using Kind = decltype(op.kind);
    switch (op.kind) {
        case Kind::Unregister:
        case Kind::Enable:
        case Kind::Disable:
            codeSlot(channel, op.slot);
            return true;
        case Kind::AddGroup:
        case Kind::RemoveGroup:
        case Kind::WriteEnabled:
            codeSlot(channel, op.slot);
            channel.interesting32(op.a);
            return true;
        case Kind::EnableGroup:
        case Kind::DisableGroup:
            channel.interesting32(op.a);
            return true;
        case Kind::ArmNested:
            codeClient(channel, op.client);
            op.nested.resize(1);
            codeNested(channel, op.nested.front(), depth + 1);
            return true;
        case Kind::TraceLevel:
            channel.inRange(op.a, uint32_t{7});
            return true;
        case Kind::LoadForeignRecord:
        case Kind::Tick:
        case Kind::Uninitialize:
            return true;
        default:
            return false;
    }
}

inline std::string describeSlot(uint8_t slot) { return slot == kNullSlot ? "null" : "slot " + std::to_string(slot); }

/// "platform results " and the three results Initialize gets.
template <typename Op>
std::string describePlatformResults(const Op& op) {
    return "platform results " + hex8(op.b) + " " + hex8(op.c) + " " + hex8(op.d);
}

/// Describes an operation both targets know; empty for the target's own.
template <typename Op>
std::string describeSharedOp(const Op& op, std::string (*describe)(const Op&)) {
    using Kind = decltype(op.kind);
    const std::string slot = describeSlot(op.slot);
    switch (op.kind) {
        case Kind::Unregister:
            return "Unregister(" + slot + ")";
        case Kind::Enable:
            return "Enable(" + slot + ")";
        case Kind::Disable:
            return "Disable(" + slot + ")";
        case Kind::AddGroup:
            return "AddGroup(" + slot + ", " + std::to_string(op.a) + ")";
        case Kind::RemoveGroup:
            return "RemoveGroup(" + slot + ", " + std::to_string(op.a) + ")";
        case Kind::EnableGroup:
            return "EnableTickGroup(" + std::to_string(op.a) + ")";
        case Kind::DisableGroup:
            return "DisableTickGroup(" + std::to_string(op.a) + ")";
        case Kind::WriteEnabled:
            return "write enabled = " + std::to_string(op.a) + " into " + slot;
        case Kind::LoadForeignRecord:
            return "load the unregistered record into a free slot";
        case Kind::ArmNested:
            return "arm client " + std::to_string(op.client) + " with { " + describe(op.nested.front()) + " }";
        case Kind::TraceLevel:
            return "trace level " + std::to_string(op.a);
        case Kind::Tick:
            return "Tick";
        case Kind::Uninitialize:
            return "Uninitialize()";
        case Kind::Phase:
            return "Phase " + std::to_string(op.a);
        default:
            return std::string();
    }
}

}  // namespace zyn_fuzz
