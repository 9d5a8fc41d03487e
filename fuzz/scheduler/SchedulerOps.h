// The operations the CTickScheduler fuzz target performs, decoded from the
// fuzz input.
//
// A client holds up to kSlots handle variables. Operations that take a handle
// name a slot; slot kNullSlot stands for a null pointer. Operations armed on
// a client run from inside that client's next tick function.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzOp.h"
#include "HarnessLimits.h"
#include "InputCodec.h"

namespace zyn_fuzz::sched {

/// The operations that may also run inside a tick function come first, up
/// to LastNestable; Phase comes last.
enum class OpKind : uint8_t {
    Register,
    Unregister,
    Enable,
    Disable,
    SetPriority,
    SetStartOffset,
    AddGroup,
    RemoveGroup,
    EnableGroup,
    DisableGroup,
    Freeze,
    Unfreeze,
    WriteEnabled,
    LoadForeignRecord,
    CopyForeignHandle,
    ArmNested,
    ArmThrow,
    TraceLevel,
    LastNestable = TraceLevel,
    // Only from outside a tick pass:
    Tick,
    Initialize,
    Uninitialize,
    Phase,
};

/// What an armed tick function throws.
enum class ThrowKind : uint8_t { None, RuntimeError, RangeError, LogicError, Int };

using Op = BasicOp<OpKind>;

/// Reads one top-level operation, writes the bytes that decode to one, and
/// describes one in a line for failure reports (OpCodec.h).
Op decodeOp(InputDecoder& input);
void encodeOp(InputEncoder& output, const Op& op);
std::string describe(const Op& op);

}  // namespace zyn_fuzz::sched
