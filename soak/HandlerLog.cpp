#include "HandlerLog.h"

#include <algorithm>
#include <utility>

#include "Violations.h"

namespace soak {

void HandlerLog::begin(const char* handlerName, uint32_t interval, Applies changeRule, uint64_t before) {
    name = handlerName;
    period = interval == 0 ? 1 : interval;
    applies = changeRule;
    // A registration lands between passes: the first pass that can call the
    // handler is the one after the counter reading at the moment it landed.
    firstPossible = before + 1;
    firstSure = UINT64_MAX;
    lastSure = UINT64_MAX;
    lastPossible = UINT64_MAX;
    enabled.reset(1);
    for (uint32_t group = 0; group < 2; ++group) {
        member[group].reset(0);
        disabled[group].reset(0);
    }
    phase.reset(0);
    calls.clear();
}

void HandlerLog::registered(uint64_t after) { firstSure = after + 1; }

void HandlerLog::end(uint64_t before, uint64_t after) {
    lastSure = before;
    lastPossible = after;
}

void HandlerLog::enabledChange(bool value, uint64_t before, uint64_t after) {
    enabled.change(value ? 1 : 0, applies.possiblyFrom(before), Applies::surelyFrom(after));
}

void HandlerLog::membershipChange(uint32_t group, bool value, uint64_t before, uint64_t after) {
    member[group].change(value ? 1 : 0, applies.possiblyFrom(before), Applies::surelyFrom(after));
}

void HandlerLog::groupStateChange(uint32_t group, bool value, uint64_t before, uint64_t after) {
    disabled[group].change(value ? 1 : 0, applies.possiblyFrom(before), Applies::surelyFrom(after));
}

void HandlerLog::groupHistory(uint32_t group, bool earlier, bool now, uint64_t changedBefore, uint64_t changedAfter) {
    disabled[group].reset(earlier ? 1 : 0);
    if (earlier != now) {
        groupStateChange(group, now, changedBefore, changedAfter);
    }
}

void HandlerLog::phaseChange(uint64_t before, uint64_t after) {
    // A start offset is written without the tick lock, so it may reach a
    // pass in progress (or be overwritten by that pass's own counter update).
    // A new phase starts somewhere in that range; its position is learnt from
    // the calls that follow.
    phase.change(phase.current() + 1, before, Applies::surelyFrom(after));
}

Tri HandlerLog::due(uint64_t pass) const {
    Tri result = triOf(enabled.at(pass));
    for (uint32_t group = 0; group < 2; ++group) {
        result = triAnd(result, triNot(triAnd(triOf(member[group].at(pass)), triOf(disabled[group].at(pass)))));
    }
    return result;
}

bool HandlerLog::hasCallAt(uint64_t pass) const { return std::binary_search(calls.begin(), calls.end(), pass); }

size_t HandlerLog::verify() const {
    Violations& violations = Violations::instance();
    const char* const who = name.c_str();
    for (size_t i = 0; i < calls.size(); ++i) {
        const uint64_t pass = calls[i];
        if (i > 0 && pass <= calls[i - 1]) {
            violations.report("%s: called in pass %llu after pass %llu", who, static_cast<unsigned long long>(pass),
                              static_cast<unsigned long long>(calls[i - 1]));
        }
        if (pass < firstPossible || pass > lastPossible) {
            violations.report("%s: called in pass %llu, outside its registration (passes %llu..%llu)", who,
                              static_cast<unsigned long long>(pass), static_cast<unsigned long long>(firstPossible),
                              static_cast<unsigned long long>(lastPossible));
        }
        if (due(pass) == Tri::False) {
            violations.report("%s: called in pass %llu while it was surely disabled", who,
                              static_cast<unsigned long long>(pass));
        }
        if (i > 0) {
            const auto earlier = phase.at(calls[i - 1]);
            const auto later = phase.at(pass);
            if (earlier && later && *earlier == *later && (pass - calls[i - 1]) % period != 0) {
                violations.report("%s: calls in passes %llu and %llu are not a multiple of its interval %u apart", who,
                                  static_cast<unsigned long long>(calls[i - 1]), static_cast<unsigned long long>(pass),
                                  period);
            }
        }
    }

    // Every pass in which the handler was surely registered, surely enabled
    // and on a known phase: due exactly when it is a whole number of
    // intervals away from a call on the same phase; with no such call to go
    // by, at least once in every `period` passes.
    std::vector<std::pair<int, uint64_t>> anchors;
    for (uint64_t pass : calls) {
        const auto epoch = phase.at(pass);
        if (epoch && std::none_of(anchors.begin(), anchors.end(), [&](const auto& a) { return a.first == *epoch; })) {
            anchors.emplace_back(*epoch, pass);
        }
    }
    uint64_t run = 0;
    int runEpoch = -1;
    for (uint64_t pass = firstSure; pass <= lastSure && lastSure != UINT64_MAX; ++pass) {
        const auto epoch = phase.at(pass);
        if (due(pass) != Tri::True || !epoch) {
            run = 0;
            continue;
        }
        const auto anchor =
            std::find_if(anchors.begin(), anchors.end(), [&](const auto& a) { return a.first == *epoch; });
        if (anchor != anchors.end()) {
            const uint64_t distance = pass > anchor->second ? pass - anchor->second : anchor->second - pass;
            if (distance % period == 0 && !hasCallAt(pass)) {
                violations.report("%s: not called in pass %llu, where its interval %u made it due", who,
                                  static_cast<unsigned long long>(pass), period);
            }
            continue;
        }
        run = runEpoch == *epoch ? run + 1 : 1;
        runEpoch = *epoch;
        if (run >= period) {
            violations.report("%s: not called in %u passes up to pass %llu while surely enabled", who, period,
                              static_cast<unsigned long long>(pass));
            run = 0;
        }
    }
    return calls.size();
}

}  // namespace soak
