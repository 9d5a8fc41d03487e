#!/usr/bin/env python3
"""Writes the hand-made seed inputs of both fuzz targets.

Each seed is a short scenario spelled in the targets' operation encoding
(see fuzz/scheduler/SchedulerOps.cpp and fuzz/fast/FastOps.cpp). The files
go to fuzz/corpus/<target>/seed-<name>; inputs that libFuzzer minimised from
longer runs sit beside them under other names.

    fuzz/seeds/make_seeds.py
"""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
CORPUS = os.path.join(HERE, "..", "corpus")


def small(value):
    """interesting32: selector 8 takes the next byte modulo 16."""
    assert 0 <= value < 16
    return bytes([8, value])


def any32(value):
    """interesting32: selector 9 takes the next four bytes."""
    return bytes([9]) + struct.pack("<I", value & 0xFFFFFFFF)


MAX32 = bytes([4])


def short_name(text):
    data = text.encode("latin-1") if isinstance(text, str) else text
    assert len(data) < 48
    return bytes([1, len(data)]) + data


def long_name(length, seed=0x41, terminator_slot=0):
    return bytes([3]) + struct.pack("<H", length) + bytes([seed, terminator_slot])


def limit_name(extra):
    """30 + extra characters, the last one non-ASCII."""
    return bytes([2, extra])


class Scheduler:
    (REGISTER, UNREGISTER, ENABLE, DISABLE, PRIORITY, OFFSET, ADD_GROUP, REMOVE_GROUP, ENABLE_GROUP,
     DISABLE_GROUP, FREEZE, UNFREEZE, WRITE_ENABLED, LOAD_FOREIGN, COPY_FOREIGN, ARM, ARM_THROW, LEVEL,
     TICK, INITIALIZE, UNINITIALIZE, PHASE) = range(22)
    NULL = 12

    def __init__(self):
        self.data = b""

    def add(self, raw):
        self.data += raw
        return self

    @staticmethod
    def register(client, interval, name, variant=8):
        return bytes([Scheduler.REGISTER, variant, client]) + interval + name

    @staticmethod
    def unregister(slot):
        return bytes([Scheduler.UNREGISTER, slot])

    @staticmethod
    def with_slot(kind, slot, value=b""):
        return bytes([kind, slot]) + value

    @staticmethod
    def group(kind, group_id):
        return bytes([kind]) + group_id

    @staticmethod
    def arm(client, nested):
        return bytes([Scheduler.ARM, client]) + nested

    @staticmethod
    def arm_throw(client, kind, text=b""):
        return bytes([Scheduler.ARM_THROW, client, kind, len(text)]) + text

    @staticmethod
    def tick(count=1):
        return bytes([Scheduler.TICK]) * count

    @staticmethod
    def initialize(priority, module=0, callback=0, interface=0):
        return bytes([Scheduler.INITIALIZE]) + priority + bytes([module, callback, interface])

    @staticmethod
    def phase(selector):
        return bytes([Scheduler.PHASE, selector])

    @staticmethod
    def raw_phase(value):
        """Selectors from 200 up take the phase code from the next four bytes."""
        return bytes([Scheduler.PHASE, 200]) + struct.pack("<I", value)


class Fast:
    (UNREGISTER_FROM_TICK, ENABLE, DISABLE, ADD_GROUP, REMOVE_GROUP, ENABLE_GROUP, DISABLE_GROUP, WRITE_ENABLED,
     LOAD_FOREIGN, ARM, LEVEL, REMOVE_RESULT, GET_NEXT_NULL, REGISTER, UNREGISTER, TICK, INITIALIZE, UNINITIALIZE,
     PHASE) = range(19)
    NULL = 12

    def __init__(self):
        self.data = b""

    def add(self, raw):
        self.data += raw
        return self

    @staticmethod
    def register(client, name, variant=8):
        return bytes([Fast.REGISTER, variant, client]) + name

    @staticmethod
    def with_slot(kind, slot, value=b""):
        return bytes([kind, slot]) + value

    @staticmethod
    def group(kind, group_id):
        return bytes([kind]) + group_id

    @staticmethod
    def arm(client, nested):
        return bytes([Fast.ARM, client]) + nested

    @staticmethod
    def tick(count=1):
        return bytes([Fast.TICK]) * count

    @staticmethod
    def initialize(module=0, callback=0, interface=0):
        return bytes([Fast.INITIALIZE, module, callback, interface])

    @staticmethod
    def phase(selector):
        return bytes([Fast.PHASE, selector])


# Platform result table indices (fuzz/common/PlatformResults.h).
OK, REMARK_4097, ERR_32768, ERR_32773, TOP_BIT, ALL_ONES = 0, 5, 7, 8, 11, 15

# Phase selectors: scheduler {13, 14, 16, 12, 15, 0, 17, 10, max}; fast {11, 13, 16, 14, 12, 15, 0, max}.
S_PHASE_13, S_PHASE_14, S_PHASE_16, S_PHASE_12 = 0, 1, 2, 3
F_PHASE_11, F_PHASE_13, F_PHASE_16, F_PHASE_14, F_PHASE_12 = 0, 1, 2, 3, 4

S = Scheduler
F = Fast


def scheduler_seeds():
    seeds = {}

    seeds["intervals"] = (S().add(S.register(0, small(1), short_name("one")))
                          .add(S.register(1, small(2), short_name("two")))
                          .add(S.register(2, small(3), short_name("three")))
                          .add(S.tick(7)).data)

    seeds["priorities-and-listing"] = (
        S().add(S.register(0, small(5), short_name("A")))
        .add(S.register(1, small(5), short_name("B")))
        .add(S.register(2, small(5), short_name("C")))
        .add(S.with_slot(S.PRIORITY, 0, small(7)))
        .add(S.with_slot(S.PRIORITY, 2, small(5)))
        .add(S.with_slot(S.PRIORITY, 2, small(6)))
        .add(S.with_slot(S.PRIORITY, 1, any32(0xFFFFFFFE)))
        .add(S.initialize(small(1)))
        .add(S.phase(S_PHASE_13)).add(S.phase(S_PHASE_14))
        .add(S.tick(3)).data)

    seeds["changes-from-a-tick"] = (
        S().add(S.register(0, small(1), short_name("first")))
        .add(S.register(1, small(1), short_name("second")))
        .add(S.register(2, small(2), short_name("third")))
        .add(S.arm(0, S.unregister(1)))
        .add(S.arm(0, S.register(3, small(1), short_name("late"))))
        .add(S.arm(2, S.with_slot(S.PRIORITY, 0, small(9))))
        .add(S.arm(2, S.unregister(2)))
        .add(S.tick(3)).data)

    seeds["exceptions"] = (
        S().add(S.register(0, small(1), short_name("runtime")))
        .add(S.register(1, small(1), short_name("logic")))
        .add(S.register(2, small(1), short_name("int")))
        .add(S.arm_throw(0, 1, b"bad state"))
        .add(S.arm_throw(1, 3, b"wrong"))
        .add(S.arm_throw(2, 4))
        .add(S.tick(2)).data)

    seeds["groups"] = (
        S().add(S.register(0, small(1), short_name("g0")))
        .add(S.register(1, small(2), short_name("g1")))
        .add(S.register(2, small(1), short_name("both")))
        .add(S.with_slot(S.ADD_GROUP, 0, small(0)))
        .add(S.with_slot(S.ADD_GROUP, 1, small(1)))
        .add(S.with_slot(S.ADD_GROUP, 2, small(0))).add(S.with_slot(S.ADD_GROUP, 2, small(1)))
        .add(S.with_slot(S.ADD_GROUP, 2, MAX32))
        .add(S.group(S.DISABLE_GROUP, small(1))).add(S.tick(3))
        .add(S.arm(0, S.group(S.DISABLE_GROUP, small(0)))).add(S.tick(2))
        .add(S.group(S.ENABLE_GROUP, small(0))).add(S.group(S.ENABLE_GROUP, small(1)))
        .add(S.group(S.DISABLE_GROUP, any32(0x80000000))).add(S.tick(2)).data)

    seeds["freeze-and-offsets"] = (
        S().add(S.register(0, small(5), short_name("offset")))
        .add(S.register(1, MAX32, short_name("rare")))
        .add(S.with_slot(S.OFFSET, 0, small(3)))
        .add(S.with_slot(S.OFFSET, 0, small(5)))
        .add(S.with_slot(S.OFFSET, 1, any32(0xFFFFFFFE)))
        .add(S.tick(2))
        .add(S.arm(1, bytes([S.FREEZE])))
        .add(S.tick(3)).add(bytes([S.UNFREEZE])).add(S.tick(4)).data)

    seeds["lifecycle"] = (
        S().add(S.phase(S_PHASE_14))
        .add(S.initialize(small(2), module=ERR_32773))
        .add(S.initialize(small(2), callback=ERR_32768))
        .add(S.initialize(small(2), interface=ERR_32768))
        .add(S.initialize(small(3), module=TOP_BIT, callback=ALL_ONES, interface=REMARK_4097))
        .add(S.initialize(small(0)))
        .add(S.register(0, small(2), short_name("kept")))
        .add(S.phase(S_PHASE_12)).add(S.phase(S_PHASE_16))
        .add(bytes([S.COPY_FOREIGN, 0]))
        .add(S.with_slot(S.ENABLE, 1)).add(S.with_slot(S.PRIORITY, 1, small(1)))
        .add(S.unregister(0)).add(S.unregister(1)).add(S.unregister(1))
        .add(bytes([S.LOAD_FOREIGN])).add(S.with_slot(S.OFFSET, 0, small(6)))
        .add(S.phase(S_PHASE_13)).add(S.initialize(MAX32)).add(S.tick()).data)

    seeds["names"] = (
        S().add(S.register(0, small(1), long_name(4096, seed=0x80)))
        .add(S.register(1, small(1), long_name(40, seed=0x01, terminator_slot=0)))
        .add(S.register(2, small(1), long_name(300, seed=0xF0, terminator_slot=3)))
        .add(S.register(3, small(1), limit_name(1))).add(S.register(4, small(1), limit_name(2)))
        .add(S.register(5, small(1), short_name(b"")))
        .add(S.register(6, small(1), short_name(b"nul\x00inside")))
        .add(S.register(7, small(0), short_name("x"), variant=7))
        .add(S.register(7, small(0), short_name("x"), variant=2))
        .add(S.register(7, small(0), short_name("x"), variant=4))
        .add(S.initialize(small(0))).add(S.phase(S_PHASE_14))
        .add(S.arm_throw(0, 2, b"\xff\xfe"))
        .add(S.tick()).data)

    seeds["trace-levels"] = (
        S().add(bytes([S.LEVEL, 0])).add(S.register(0, small(1), short_name("quiet")))
        .add(S.unregister(S.NULL)).add(bytes([S.LEVEL, 2])).add(S.unregister(1))
        .add(bytes([S.LEVEL, 5])).add(S.with_slot(S.WRITE_ENABLED, 0, small(2))).add(S.tick())
        .add(S.with_slot(S.WRITE_ENABLED, 0, small(0))).add(S.tick())
        .add(bytes([S.LEVEL, 7])).add(S.unregister(0)).data)

    # Phase 11 configures the oscillator; phase 14 then starts its thread,
    # which the target parks. A second start is refused while it runs; phase
    # 16 stops it, and a new start needs no new phase 11.
    seeds["oscillator-start"] = (
        S().add(S.initialize(small(1)))
        .add(S.register(0, small(1), short_name("ticking")))
        .add(S.phase(S_PHASE_14)).add(bytes([S.FREEZE]))
        .add(S.raw_phase(11)).add(S.phase(S_PHASE_14)).add(S.tick(2))
        .add(S.phase(S_PHASE_14)).add(S.phase(S_PHASE_16))
        .add(S.initialize(small(4))).add(S.phase(S_PHASE_14)).add(S.tick())
        .add(bytes([S.UNINITIALIZE])).data)

    # An input that ends with the thread running: the next input starts from
    # a stopped, unconfigured oscillator all the same.
    seeds["oscillator-left-running"] = (
        S().add(S.initialize(small(0))).add(S.raw_phase(11)).add(S.phase(S_PHASE_14))
        .add(S.register(0, small(1), short_name("late"))).add(S.tick(2)).data)
    return seeds


def fast_seeds():
    seeds = {}
    seeds["dispatch"] = (
        F().add(F.initialize()).add(F.phase(F_PHASE_11))
        .add(F.register(0, short_name("A"))).add(F.register(1, short_name("B"))).add(F.register(2, short_name("C")))
        .add(F.tick(2)).add(F.with_slot(F.DISABLE, 1)).add(F.tick())
        .add(F.with_slot(F.WRITE_ENABLED, 1, small(2))).add(F.tick())
        .add(F.with_slot(F.ENABLE, 1)).add(F.tick()).data)

    seeds["remove-from-a-tick"] = (
        F().add(F.register(0, short_name("self"))).add(F.register(1, short_name("next")))
        .add(F.register(2, short_name("last")))
        .add(F.arm(0, F.with_slot(F.UNREGISTER_FROM_TICK, 0)))
        .add(F.arm(2, F.with_slot(F.UNREGISTER_FROM_TICK, 1)))
        .add(F.tick(3))
        .add(F.arm(2, F.with_slot(F.UNREGISTER_FROM_TICK, 2)))
        .add(F.arm(2, F.with_slot(F.UNREGISTER_FROM_TICK, 2)))
        .add(F.tick(2)).data)

    # Removing the handler the walk comes to next: the next one, the next
    # that is also the last, itself and then the next, the next and then
    # itself.
    seeds["remove-ahead-from-a-tick"] = (
        F().add(F.register(0, short_name("first"))).add(F.register(1, short_name("second")))
        .add(F.register(2, short_name("third"))).add(F.register(3, short_name("fourth")))
        .add(F.arm(0, F.with_slot(F.UNREGISTER_FROM_TICK, 1)))
        .add(F.arm(2, F.with_slot(F.UNREGISTER_FROM_TICK, 3)))
        .add(F.tick(2))
        .add(F.register(1, short_name("again"))).add(F.register(3, short_name("last")))
        .add(F.arm(2, F.with_slot(F.UNREGISTER_FROM_TICK, 2)))
        .add(F.arm(2, F.with_slot(F.UNREGISTER_FROM_TICK, 1)))
        .add(F.tick(2))
        .add(F.arm(0, F.with_slot(F.UNREGISTER_FROM_TICK, 3)))
        .add(F.arm(0, F.with_slot(F.UNREGISTER_FROM_TICK, 0)))
        .add(F.tick(2)).data)

    seeds["groups"] = (
        F().add(F.register(0, short_name("g0"))).add(F.register(1, short_name("g1")))
        .add(F.register(2, short_name("both"))).add(F.register(3, short_name("none")))
        .add(F.with_slot(F.ADD_GROUP, 0, small(0))).add(F.with_slot(F.ADD_GROUP, 1, small(1)))
        .add(F.with_slot(F.ADD_GROUP, 2, small(0))).add(F.with_slot(F.ADD_GROUP, 2, small(1)))
        .add(F.with_slot(F.ADD_GROUP, F.NULL, small(5))).add(F.with_slot(F.REMOVE_GROUP, F.NULL, small(0)))
        .add(F.group(F.DISABLE_GROUP, small(1))).add(F.tick())
        .add(F.arm(3, F.group(F.DISABLE_GROUP, small(0)))).add(F.tick(2))
        .add(F.group(F.ENABLE_GROUP, small(0))).add(F.group(F.ENABLE_GROUP, MAX32))
        .add(F.group(F.ENABLE_GROUP, small(1))).add(F.tick()).data)

    seeds["list-faults"] = (
        F().add(F.register(0, short_name("one"))).add(F.register(1, short_name("two")))
        .add(bytes([F.GET_NEXT_NULL, 1])).add(F.tick(2))
        .add(bytes([F.REMOVE_RESULT, 6])).add(bytes([F.UNREGISTER, 5]))
        .add(bytes([F.LOAD_FOREIGN])).add(bytes([F.UNREGISTER, 2]))
        .add(bytes([F.UNREGISTER, 0])).add(bytes([F.UNREGISTER, 0])).add(bytes([F.UNREGISTER, F.NULL])).data)

    seeds["lifecycle"] = (
        F().add(F.phase(F_PHASE_11))
        .add(F.initialize(module=ERR_32773)).add(F.initialize(callback=ALL_ONES))
        .add(F.initialize(interface=ERR_32768)).add(F.initialize(module=TOP_BIT, callback=REMARK_4097))
        .add(F.initialize()).add(F.phase(F_PHASE_13)).add(F.phase(F_PHASE_14)).add(F.phase(F_PHASE_12))
        .add(F.phase(F_PHASE_11)).add(F.phase(F_PHASE_16)).add(F.phase(F_PHASE_11))
        .add(F.register(0, long_name(4096, seed=0x90))).add(F.register(1, limit_name(2)))
        .add(F.register(2, short_name("x"), variant=1)).add(F.register(2, short_name("x"), variant=4))
        .add(F.tick()).add(bytes([F.UNINITIALIZE])).add(F.tick()).data)
    return seeds


def write(target, seeds):
    directory = os.path.join(CORPUS, target)
    os.makedirs(directory, exist_ok=True)
    for name, data in seeds.items():
        with open(os.path.join(directory, "seed-" + name), "wb") as out:
            out.write(data)


if __name__ == "__main__":
    write("scheduler", scheduler_seeds())
    write("fast", fast_seeds())
