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

namespace zyn_fuzz {

/// One seed: the file name after "seed-", and the encoded input.
struct SeedInput {
    std::string name;
    std::string bytes;
};

/// A scenario under construction: operations appended in order.
template <typename Op>
class Scenario {
public:
    using Kind = decltype(Op::kind);

    Scenario& then(Op op) {
        ops.push_back(std::move(op));
        return *this;
    }
    Scenario& then(Kind kind) { return then(plain(kind)); }
    Scenario& ticks(int count) {
        for (int i = 0; i < count; ++i) {
            then(Kind::Tick);
        }
        return *this;
    }
    const std::vector<Op>& operations() const { return ops; }

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

private:
    std::vector<Op> ops;
};

/// Encodes a scenario, and checks that decoding gives back the same
/// operations (by their descriptions) and uses up the input exactly.
template <typename Op, typename Decoder, typename Encoder>
SeedInput encodeScenario(std::string name, const Scenario<Op>& scenario, void (*encodeOp)(Encoder&, const Op&),
                         Op (*decodeOp)(Decoder&), std::string (*describe)(const Op&)) {
    Encoder encoder;
    for (const Op& op : scenario.operations()) {
        encodeOp(encoder, op);
    }
    const std::string bytes = encoder.bytes();
    Decoder decoder(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    for (const Op& op : scenario.operations()) {
        if (decoder.exhausted() || describe(decodeOp(decoder)) != describe(op)) {
            return SeedInput{std::move(name), std::string()};
        }
    }
    return SeedInput{std::move(name), decoder.exhausted() ? bytes : std::string()};
}

/// Every seed of each target; an empty input marks a seed that did not
/// encode back to its operations.
std::vector<SeedInput> schedulerSeeds();
std::vector<SeedInput> fastSeeds();

}  // namespace zyn_fuzz
