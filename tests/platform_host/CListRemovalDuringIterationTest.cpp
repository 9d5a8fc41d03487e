// The reference list service lets any element be removed while iterations are
// in progress: the element a cursor stands on (the one not yet delivered), the
// ones after it, several in a row, from nested iterations. The sanitizer
// builds prove that no cursor is left on freed memory.

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "CList.h"
#include "PlatformHost/HostResultCodes.h"

namespace {

namespace result = platform_host::host_result;

class CListRemovalDuringIteration : public ::testing::Test {
protected:
    void SetUp() override {
        std::memset(&list, 0, sizeof list);
        ASSERT_EQ(CList_Construct(&list), result::Success);
        for (int& element : values) {
            ASSERT_EQ(CList_PushTail(&list, &element), result::Success);
        }
    }

    void TearDown() override {
        for (void* element : rest(start())) {
            EXPECT_EQ(CList_Remove(&list, element), result::Success);
        }
        // Every node, tombstones included, is freed once all iterations ended.
        EXPECT_EQ(list.head, nullptr);
        EXPECT_EQ(list.tail, nullptr);
    }

    CListCursor start() {
        CListCursor cursor = nullptr;
        CList_StartIterationFromHead(&list, &cursor);
        return cursor;
    }

    // One CList_GetNext: the element delivered (null for none).
    void* next(CListCursor& cursor, uint32_t* status = nullptr) {
        void* element = nullptr;
        const uint32_t got = CList_GetNext(&list, &element, &cursor);
        if (status != nullptr) {
            *status = got;
        }
        return element;
    }

    // The elements the iteration still delivers, to its end.
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

    void remove(int& element) { ASSERT_EQ(CList_Remove(&list, &element), result::Success); }

    CList list;
    int values[4] = {0, 1, 2, 3};
    int& a = values[0];
    int& b = values[1];
    int& c = values[2];
    int& d = values[3];
};

TEST_F(CListRemovalDuringIteration, RemovingTheElementUnderTheCursorDeliversTheOneAfterIt) {
    CListCursor cursor = start();
    ASSERT_EQ(next(cursor), &a);
    remove(b);
    EXPECT_EQ(rest(cursor), (std::vector<void*>{&c, &d}));
    EXPECT_EQ(rest(start()), (std::vector<void*>{&a, &c, &d}));
    EXPECT_EQ(list.count, 3u);
}

TEST_F(CListRemovalDuringIteration, RemovingTheLastElementUnderTheCursorEndsTheIterationWithNull) {
    CListCursor cursor = start();
    ASSERT_EQ(next(cursor), &a);
    ASSERT_EQ(next(cursor), &b);
    ASSERT_EQ(next(cursor), &c);
    remove(d);
    uint32_t status = 0;
    EXPECT_EQ(next(cursor, &status), nullptr);
    EXPECT_EQ(status, CLIST_END_OF_LIST);
    EXPECT_EQ(cursor, nullptr);
    EXPECT_EQ(rest(start()), (std::vector<void*>{&a, &b, &c}));
}

TEST_F(CListRemovalDuringIteration, RemovingTheElementsUnderAndAfterTheCursor) {
    CListCursor cursor = start();
    ASSERT_EQ(next(cursor), &a);
    remove(c);
    remove(b);
    EXPECT_EQ(rest(cursor), std::vector<void*>{&d});
}

TEST_F(CListRemovalDuringIteration, RemovingTheDeliveredElementAndTheOneUnderTheCursor) {
    CListCursor cursor = start();
    ASSERT_EQ(next(cursor), &a);
    ASSERT_EQ(next(cursor), &b);
    remove(b);
    remove(c);
    EXPECT_EQ(rest(cursor), std::vector<void*>{&d});
    EXPECT_EQ(rest(start()), (std::vector<void*>{&a, &d}));
}

TEST_F(CListRemovalDuringIteration, RemovingEveryElementUnderACursorEmptiesTheList) {
    CListCursor cursor = start();
    ASSERT_EQ(next(cursor), &a);
    for (int& element : values) {
        remove(element);
    }
    EXPECT_NE(CList_IsEmpty(&list), 0u);
    EXPECT_EQ(list.count, 0u);
    CListCursor fresh = nullptr;
    EXPECT_EQ(CList_StartIterationFromHead(&list, &fresh), CLIST_END_OF_LIST);
    EXPECT_EQ(rest(cursor), std::vector<void*>{});
}

TEST_F(CListRemovalDuringIteration, ARemovedElementUnderTheCursorCannotBeRemovedTwice) {
    CListCursor cursor = start();
    ASSERT_EQ(next(cursor), &a);
    remove(b);
    EXPECT_EQ(CList_Remove(&list, &b), result::ElementNotInList);
    EXPECT_EQ(rest(cursor), (std::vector<void*>{&c, &d}));
}

TEST_F(CListRemovalDuringIteration, ElementPushedAfterARemovalIsDeliveredByTheRunningIteration) {
    CListCursor cursor = start();
    ASSERT_EQ(next(cursor), &a);
    ASSERT_EQ(next(cursor), &b);
    ASSERT_EQ(next(cursor), &c);
    remove(d);
    int e = 4;
    ASSERT_EQ(CList_PushTail(&list, &e), result::Success);
    EXPECT_EQ(rest(cursor), std::vector<void*>{&e});
    EXPECT_EQ(rest(start()), (std::vector<void*>{&a, &b, &c, &e}));
    remove(e);
}

TEST_F(CListRemovalDuringIteration, SamePointerPushedAgainIsANewElement) {
    CListCursor cursor = start();
    ASSERT_EQ(next(cursor), &a);
    remove(b);
    ASSERT_EQ(CList_PushTail(&list, &b), result::Success);
    EXPECT_EQ(rest(cursor), (std::vector<void*>{&c, &d, &b}));
}

TEST_F(CListRemovalDuringIteration, TwoIterationsOnTheSameElementBothStepOverItsRemoval) {
    CListCursor outer = start();
    ASSERT_EQ(next(outer), &a);
    CListCursor inner = start();
    ASSERT_EQ(next(inner), &a);
    remove(b);
    EXPECT_EQ(rest(inner), (std::vector<void*>{&c, &d}));
    remove(c);
    EXPECT_EQ(rest(outer), std::vector<void*>{&d});
}

TEST_F(CListRemovalDuringIteration, IterationsOnDifferentElementsKeepTheirPlaces) {
    CListCursor early = start();
    CListCursor late = start();
    ASSERT_EQ(next(late), &a);
    ASSERT_EQ(next(late), &b);
    remove(a);
    remove(c);
    EXPECT_EQ(rest(early), (std::vector<void*>{&b, &d}));
    EXPECT_EQ(rest(late), std::vector<void*>{&d});
}

TEST_F(CListRemovalDuringIteration, RemovingAlternateElementsAheadOfTheCursor) {
    CListCursor cursor = start();
    ASSERT_EQ(next(cursor), &a);
    remove(b);
    remove(d);
    EXPECT_EQ(rest(cursor), std::vector<void*>{&c});
    EXPECT_EQ(rest(start()), (std::vector<void*>{&a, &c}));
}

}  // namespace
