// What a handler record holds right after registration, the same for both
// scheduler modules: shared by their registration tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "STickHandler.h"

namespace handler_record {

/// A tick function that does nothing, for records whose calls do not matter.
inline void noTick(void*) {}

/// The record behind `handle` holds a copy of the receiver (`context`,
/// `onTick`), `interval` and `name`; it is enabled, has the default priority
/// 5, has counted no pass and is in no group.
inline void expectFresh(const STickHandler* handle, const void* context, void (*onTick)(void*), uint32_t interval,
                        const char* name) {
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(handle->tickReceiver.context, context);
    EXPECT_EQ(handle->tickReceiver.onTick, onTick);
    EXPECT_EQ(handle->enabled.load(), 1u);
    EXPECT_EQ(handle->tickInterval, interval);
    EXPECT_EQ(handle->prio.load(), 5);
    EXPECT_EQ(handle->currentInterval.load(), 0u);
    EXPECT_STREQ(handle->name, name);
    EXPECT_EQ(handle->groupMask.load(), 0u);
}

}  // namespace handler_record
