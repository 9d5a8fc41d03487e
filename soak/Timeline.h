// What a client knows about a value that changes while tick passes run: the
// value at the start, then each change with the range of passes in which it
// may first have applied. A client only knows the pass counter before and
// after its call, so "which pass first saw it" is a range, not a number.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace soak {

/// Kleene's three-valued logic: a condition that holds, does not hold, or
/// cannot be decided from what the client saw.
enum class Tri : uint8_t { False, True, Unknown };

inline Tri triNot(Tri value) {
    return value == Tri::Unknown ? Tri::Unknown : (value == Tri::True ? Tri::False : Tri::True);
}

inline Tri triAnd(Tri left, Tri right) {
    if (left == Tri::False || right == Tri::False) {
        return Tri::False;
    }
    return left == Tri::True && right == Tri::True ? Tri::True : Tri::Unknown;
}

inline Tri triOf(std::optional<int> value) { return !value ? Tri::Unknown : (*value != 0 ? Tri::True : Tri::False); }

class Timeline {
public:
    explicit Timeline(int initial = 0) : initial(initial) {}

    void reset(int value) {
        initial = value;
        changes.clear();
    }

    /// The value became `value` at some pass in [possiblyFrom, surelyFrom].
    /// Changes are added in the order they were made.
    void change(int value, uint64_t possiblyFrom, uint64_t surelyFrom) {
        changes.push_back(Change{value, possiblyFrom, surelyFrom});
    }

    /// The value in pass `pass`, or nothing when it may have been more than one.
    std::optional<int> at(uint64_t pass) const {
        size_t surely = 0;
        size_t possibly = 0;
        for (const Change& change : changes) {
            surely += change.surelyFrom <= pass ? 1 : 0;
            possibly += change.possiblyFrom <= pass ? 1 : 0;
        }
        const int value = valueAfter(surely);
        for (size_t i = surely + 1; i <= possibly; ++i) {
            if (valueAfter(i) != value) {
                return std::nullopt;
            }
        }
        return value;
    }

    /// The latest value.
    int current() const { return changes.empty() ? initial : changes.back().value; }

private:
    struct Change {
        int value;
        uint64_t possiblyFrom;
        uint64_t surelyFrom;
    };

    int valueAfter(size_t changeCount) const { return changeCount == 0 ? initial : changes[changeCount - 1].value; }

    int initial;
    std::vector<Change> changes;
};

}  // namespace soak
