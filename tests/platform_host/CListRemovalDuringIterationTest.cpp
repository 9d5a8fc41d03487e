// The reference list service lets any element be removed while iterations are
// in progress: the element a cursor stands on (the one not yet delivered), the
// ones after it, several in a row, from nested iterations. The sanitizer
// builds prove that no cursor is left on freed memory.

#include <gtest/gtest.h>

#include <cstddef>
#include <initializer_list>
#include <vector>

#include "CListFixture.h"

namespace {

namespace result = platform_host::host_result;

class CListRemovalDuringIteration : public clist_test::CListFixture {
protected:
    void SetUp() override {
        CListFixture::SetUp();
        for (int& element : values) {
            ASSERT_NO_FATAL_FAILURE(push(element));
        }
    }

    /// A new iteration that has delivered the first `count` elements, which
    /// must come in order.
    CListCursor afterDelivering(size_t count) {
        CListCursor cursor = start();
        for (size_t i = 0; i < count; ++i) {
            EXPECT_EQ(next(cursor), &values[i]) << "delivery " << i;
        }
        return cursor;
    }

    /// Removes `removed`, in this order, while `cursor` stands where it
    /// stands; then the cursor delivers `cursorRest` and a new iteration the
    /// whole list `listAfter`.
    void removeThenExpect(CListCursor cursor, std::initializer_list<int*> removed, const std::vector<void*>& cursorRest,
                          const std::vector<void*>& listAfter) {
        for (int* element : removed) {
            remove(*element);
        }
        EXPECT_EQ(rest(cursor), cursorRest);
        EXPECT_EQ(rest(start()), listAfter);
    }

    int values[4] = {0, 1, 2, 3};
    int& a = values[0];
    int& b = values[1];
    int& c = values[2];
    int& d = values[3];
};

TEST_F(CListRemovalDuringIteration, RemovingTheElementUnderTheCursorDeliversTheOneAfterIt) {
    removeThenExpect(afterDelivering(1), {&b}, {&c, &d}, {&a, &c, &d});
    EXPECT_EQ(list.count, 3u);
}

TEST_F(CListRemovalDuringIteration, RemovingTheLastElementUnderTheCursorEndsTheIterationWithNull) {
    CListCursor cursor = afterDelivering(3);
    remove(d);
    uint32_t status = 0;
    EXPECT_EQ(next(cursor, &status), nullptr);
    EXPECT_EQ(status, CLIST_END_OF_LIST);
    EXPECT_EQ(cursor, nullptr);
    EXPECT_EQ(rest(start()), (std::vector<void*>{&a, &b, &c}));
}

TEST_F(CListRemovalDuringIteration, RemovingTheElementsUnderAndAfterTheCursor) {
    removeThenExpect(afterDelivering(1), {&c, &b}, {&d}, {&a, &d});
}

TEST_F(CListRemovalDuringIteration, RemovingTheDeliveredElementAndTheOneUnderTheCursor) {
    removeThenExpect(afterDelivering(2), {&b, &c}, {&d}, {&a, &d});
}

TEST_F(CListRemovalDuringIteration, RemovingEveryElementUnderACursorEmptiesTheList) {
    CListCursor cursor = afterDelivering(1);
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
    CListCursor cursor = afterDelivering(1);
    remove(b);
    EXPECT_EQ(CList_Remove(&list, &b), result::ElementNotInList);
    EXPECT_EQ(rest(cursor), (std::vector<void*>{&c, &d}));
}

TEST_F(CListRemovalDuringIteration, ElementPushedAfterARemovalIsDeliveredByTheRunningIteration) {
    CListCursor cursor = afterDelivering(3);
    remove(d);
    int e = 4;
    ASSERT_EQ(CList_PushTail(&list, &e), result::Success);
    EXPECT_EQ(rest(cursor), std::vector<void*>{&e});
    EXPECT_EQ(rest(start()), (std::vector<void*>{&a, &b, &c, &e}));
    remove(e);
}

TEST_F(CListRemovalDuringIteration, SamePointerPushedAgainIsANewElement) {
    CListCursor cursor = afterDelivering(1);
    remove(b);
    ASSERT_EQ(CList_PushTail(&list, &b), result::Success);
    EXPECT_EQ(rest(cursor), (std::vector<void*>{&c, &d, &b}));
}

TEST_F(CListRemovalDuringIteration, TwoIterationsOnTheSameElementBothStepOverItsRemoval) {
    CListCursor outer = afterDelivering(1);
    CListCursor inner = afterDelivering(1);
    remove(b);
    EXPECT_EQ(rest(inner), (std::vector<void*>{&c, &d}));
    remove(c);
    EXPECT_EQ(rest(outer), std::vector<void*>{&d});
}

TEST_F(CListRemovalDuringIteration, IterationsOnDifferentElementsKeepTheirPlaces) {
    CListCursor early = start();
    CListCursor late = afterDelivering(2);
    remove(a);
    remove(c);
    EXPECT_EQ(rest(early), (std::vector<void*>{&b, &d}));
    EXPECT_EQ(rest(late), std::vector<void*>{&d});
}

TEST_F(CListRemovalDuringIteration, RemovingAlternateElementsAheadOfTheCursor) {
    removeThenExpect(afterDelivering(1), {&b, &d}, {&c}, {&a, &c});
}

}  // namespace
