// A constructed list of the reference list service and the ways the tests
// walk it: the cursor the fast scheduler keeps while it calls handlers, and
// the elements an iteration delivers.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "CList.h"
#include "PlatformHost/HostResultCodes.h"

namespace clist_test {

namespace result = platform_host::host_result;

class CListFixture : public ::testing::Test {
protected:
    void SetUp() override {
        std::memset(&list, 0, sizeof list);
        ASSERT_EQ(CList_Construct(&list), result::Success);
    }

    void TearDown() override {
        for (void* element : elements()) {
            EXPECT_EQ(CList_Remove(&list, element), result::Success);
        }
        // Every node, tombstones included, is freed once no iteration is
        // left unfinished.
        EXPECT_EQ(list.head, nullptr);
        EXPECT_EQ(list.tail, nullptr);
    }

    /// A cursor on the first element; null when there is none.
    CListCursor start() {
        CListCursor cursor = nullptr;
        CList_StartIterationFromHead(&list, &cursor);
        return cursor;
    }

    /// One CList_GetNext: the element delivered (null for none).
    void* next(CListCursor& cursor, uint32_t* status = nullptr) {
        void* element = nullptr;
        const uint32_t got = CList_GetNext(&list, &element, &cursor);
        if (status != nullptr) {
            *status = got;
        }
        return element;
    }

    /// The elements the iteration still delivers, to its end.
    std::vector<void*> rest(CListCursor cursor) {
        std::vector<void*> delivered;
        if (cursor == nullptr) {
            return delivered;
        }
        uint32_t status = 0;
        do {
            void* element = next(cursor, &status);
            if (element == nullptr) {
                break;
            }
            delivered.push_back(element);
        } while (status != CLIST_END_OF_LIST);
        return delivered;
    }

    /// The elements in iteration order, the way the fast scheduler walks them.
    std::vector<void*> elements() { return rest(start()); }

    void push(int& element) { ASSERT_EQ(CList_PushTail(&list, &element), result::Success); }
    void remove(int& element) { ASSERT_EQ(CList_Remove(&list, &element), result::Success); }

    CList list;
};

}  // namespace clist_test
