# The sources of each fuzz target apart from its entry into libFuzzer, and
# of the seed writer, for the fuzz build and for the replay in every build.
set(ZYN_FUZZ_SCHEDULER_SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/scheduler/ParkedOscillator.cpp
    ${CMAKE_CURRENT_LIST_DIR}/scheduler/SchedulerFuzzer.cpp
    ${CMAKE_CURRENT_LIST_DIR}/scheduler/SchedulerModel.cpp
    ${CMAKE_CURRENT_LIST_DIR}/scheduler/SchedulerOps.cpp)
set(ZYN_FUZZ_FAST_SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/fast/FastFuzzer.cpp
    ${CMAKE_CURRENT_LIST_DIR}/fast/FastModel.cpp
    ${CMAKE_CURRENT_LIST_DIR}/fast/FastOps.cpp)
# The seed writer needs only the operations' encoding, not the library.
set(ZYN_FUZZ_SEED_SOURCES
    ${CMAKE_CURRENT_LIST_DIR}/seeds/WriteSeeds.cpp
    ${CMAKE_CURRENT_LIST_DIR}/seeds/SchedulerSeeds.cpp
    ${CMAKE_CURRENT_LIST_DIR}/seeds/FastSeeds.cpp
    ${CMAKE_CURRENT_LIST_DIR}/scheduler/SchedulerOps.cpp
    ${CMAKE_CURRENT_LIST_DIR}/fast/FastOps.cpp)
