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

namespace fast_fuzz {

using zyn_fuzz::kClients;
using zyn_fuzz::kNullSlot;
using zyn_fuzz::kSlots;

/// The operations that may also run inside a tick function come first.
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
    // Only from outside a tick:
    Register,
    Unregister,
    Tick,
    Initialize,
    Uninitialize,
    Phase,
};

constexpr uint8_t kNestableKinds = static_cast<uint8_t>(OpKind::ScriptGetNextNull) + 1;
constexpr uint8_t kAllKinds = static_cast<uint8_t>(OpKind::Phase) + 1;

using zyn_fuzz::kNullHandleVariable;
using zyn_fuzz::kNullName;
using zyn_fuzz::kNullReceiver;

using Op = zyn_fuzz::BasicOp<OpKind>;

/// Decodes one top-level operation.
Op decodeOp(zyn_fuzz::InputDecoder& input);

/// Writes the bytes that decode to `op`, a top-level operation.
void encodeOp(zyn_fuzz::InputEncoder& output, const Op& op);

/// One line describing the operation, for failure reports.
std::string describe(const Op& op);

}  // namespace fast_fuzz
