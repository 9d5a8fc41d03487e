// The hand-made seed inputs of the fuzz targets: short scenarios written as
// operations, which the seed writer encodes with the same layout the targets
// decode (OpCodec.h).
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "FuzzNames.h"
#include "HarnessLimits.h"
#include "TickModuleIdentity.h"

namespace zyn_fuzz {

/// One seed: the file name after "seed-", and the encoded input.
struct SeedInput {
    std::string name;
    std::string bytes;
};

/// Operations as a seed scenario spells them.
template <typename Op>
struct OpBuilder {
    using Kind = decltype(Op::kind);

    static Op plain(Kind kind) {
        Op op;
        op.kind = kind;
        return op;
    }
    /// An operation on the handle in `slot` (kNullSlot: a null handle), with
    /// a value where the kind takes one.
    static Op onSlot(Kind kind, uint8_t slot, uint32_t value = 0) {
        Op op = plain(kind);
        op.slot = slot;
        op.a = value;
        return op;
    }
    /// An operation that takes a value: a group id, a level, a phase.
    static Op withValue(Kind kind, uint32_t value) {
        Op op = plain(kind);
        op.a = value;
        return op;
    }
    /// Register for `client` with name buffer `name`; `variant` makes
    /// arguments null (kNullHandleVariable, kNullReceiver, kNullName).
    static Op registration(uint8_t client, NameRecipe name, uint8_t variant = 0) {
        Op op = plain(Kind::Register);
        op.client = client;
        op.variant = variant;
        op.text = nameBuffer(name);
        op.name = std::move(name);
        return op;
    }
    /// `nested` runs from inside the next tick function of `client`.
    static Op arm(uint8_t client, Op nested) {
        Op op = plain(Kind::ArmNested);
        op.client = client;
        op.nested.push_back(std::move(nested));
        return op;
    }
    /// Initialize with the three results the platform gives it.
    static Op initialize(uint32_t module = 0, uint32_t callback = 0, uint32_t interface = 0) {
        Op op = plain(Kind::Initialize);
        op.b = module;
        op.c = callback;
        op.d = interface;
        return op;
    }
};

/// One step of a scenario: an operation, done `times` times in a row. An
/// operation or a bare kind stands for itself done once.
template <typename Op>
struct Step {
    Step(Op op, int times = 1) : op(std::move(op)), times(times) {}
    Step(decltype(Op::kind) kind, int times = 1) : Step(OpBuilder<Op>::plain(kind), times) {}
    Op op;
    int times;
};

/// A seed scenario: its file name after "seed-", and its steps.
template <typename Op>
struct Scenario {
    const char* name;
    std::vector<Step<Op>> steps;
};

/// Encodes each scenario, and checks that decoding gives back the same
/// operations (by their descriptions) and uses up the input exactly; a
/// scenario that does not gets an empty input.
template <typename Op, typename Decoder, typename Encoder>
std::vector<SeedInput> encodeScenarios(const std::vector<Scenario<Op>>& scenarios,
                                       void (*encodeOp)(Encoder&, const Op&), Op (*decodeOp)(Decoder&),
                                       std::string (*describe)(const Op&)) {
    std::vector<SeedInput> seeds;
    for (const Scenario<Op>& scenario : scenarios) {
        std::vector<Op> ops;
        for (const Step<Op>& step : scenario.steps) {
            ops.insert(ops.end(), static_cast<size_t>(step.times), step.op);
        }
        Encoder encoder;
        for (const Op& op : ops) {
            encodeOp(encoder, op);
        }
        const std::string bytes = encoder.bytes();
        Decoder decoder(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        bool same = true;
        for (const Op& op : ops) {
            same = same && !decoder.exhausted() && describe(decodeOp(decoder)) == describe(op);
        }
        seeds.push_back(SeedInput{scenario.name, same && decoder.exhausted() ? bytes : std::string()});
    }
    return seeds;
}

/// Phase codes by name, and one that no module subscribes to.
using TickModule::Phase::Configure;
using TickModule::Phase::Idle;
using TickModule::Phase::ShutDown;
using TickModule::Phase::StartTicks;
constexpr uint32_t kNotAPhase = 12;

/// Every seed of each target; an empty input marks a seed that did not
/// encode back to its operations.
std::vector<SeedInput> schedulerSeeds();
std::vector<SeedInput> fastSeeds();

}  // namespace zyn_fuzz
