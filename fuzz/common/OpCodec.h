// Decoding and description of the operations both fuzz targets know. Each
// target's Op and OpKind name these operations alike; the target decodes and
// describes its own operations and hands the rest to these templates, which
// read the input bytes in the same order for both.
#pragma once

#include <cstdint>
#include <string>

#include "ByteReader.h"
#include "FuzzNames.h"
#include "HarnessLimits.h"
#include "PlatformResults.h"

namespace zyn_fuzz {

inline uint8_t decodeSlot(ByteReader& input) { return static_cast<uint8_t>(input.byte() % (kSlots + 1)); }

inline uint8_t decodeClient(ByteReader& input) { return static_cast<uint8_t>(input.byte() % kClients); }

/// The null-argument variant and the client of a Register.
template <typename Op>
void decodeRegisterHead(ByteReader& input, Op& op) {
    const uint8_t variant = input.byte();
    op.variant = variant < 8 ? variant : 0;
    op.client = decodeClient(input);
}

/// The three results the platform gives Initialize.
template <typename Op>
void decodePlatformResults(ByteReader& input, Op& op) {
    op.b = decodePlatformResult(input);
    op.c = decodePlatformResult(input);
    op.d = decodePlatformResult(input);
}

/// Reads the arguments of an operation both targets know; false when
/// `op.kind` is one of the target's own.
template <typename Op>
bool decodeSharedOp(ByteReader& input, Op& op, int depth, Op (*decodeOp)(ByteReader&, int)) {
    using Kind = decltype(op.kind);
    switch (op.kind) {
        case Kind::Unregister:
        case Kind::Enable:
        case Kind::Disable:
            op.slot = decodeSlot(input);
            return true;
        case Kind::AddGroup:
        case Kind::RemoveGroup:
        case Kind::WriteEnabled:
            op.slot = decodeSlot(input);
            op.a = input.interesting32();
            return true;
        case Kind::EnableGroup:
        case Kind::DisableGroup:
            op.a = input.interesting32();
            return true;
        case Kind::ArmNested:
            op.client = decodeClient(input);
            op.nested.push_back(decodeOp(input, depth + 1));
            return true;
        case Kind::TraceLevel:
            op.a = input.byte() % 8u;
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
