// The operations the CTickSchedulerFast fuzz target performs, decoded from
// the fuzz input.
//
// A client holds up to kSlots handle variables; slot kNullSlot stands for a
// null pointer. Operations armed on a client run from inside that client's
// next tick function, where the module's mutex is held: only the unlocked
// unregister, the enable and group operations and the target's own
// bookkeeping may run there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzOp.h"
#include "HarnessLimits.h"
#include "InputCodec.h"

namespace zyn_fuzz::fast {

/// The operations that may also run inside a tick function come first, up
/// to LastNestable; Phase comes last.
enum class OpKind : uint8_t {
    UnregisterFromOnTick,
    Enable,
    Disable,
    AddGroup,
    RemoveGroup,
    EnableGroup,
    DisableGroup,
    WriteEnabled,
    LoadForeignRecord,
    ArmNested,
    TraceLevel,
    ScriptRemoveResult,
    ScriptGetNextNull,
    LastNestable = ScriptGetNextNull,
    // Only from outside a tick:
    Register,
    Unregister,
    Tick,
    Initialize,
    Uninitialize,
    Phase,
};

using Op = BasicOp<OpKind>;

/// Reads one top-level operation, writes the bytes that decode to one, and
/// describes one in a line for failure reports (OpCodec.h).
Op decodeOp(InputDecoder& input);
void encodeOp(InputEncoder& output, const Op& op);
std::string describe(const Op& op);

}  // namespace zyn_fuzz::fast
