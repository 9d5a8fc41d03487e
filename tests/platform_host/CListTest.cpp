// The reference list service against the list contract the fast scheduler
// relies on.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "CListFixture.h"

namespace {

namespace result = platform_host::host_result;

class CListTest : public clist_test::CListFixture {
protected:
    /// One whole iteration that removes each element `removeIt` picks as
    /// soon as it is delivered; the elements it delivered.
    std::vector<void*> iterateRemoving(const std::function<bool(void*)>& removeIt) {
        std::vector<void*> delivered;
        CListCursor cursor = start();
        if (cursor == nullptr) {
            ADD_FAILURE() << "the iteration did not start";
            return delivered;
        }
        uint32_t status = 0;
        do {
            void* element = next(cursor, &status);
            if (element == nullptr) {
                ADD_FAILURE() << "no element delivered before the end of the list";
                break;
            }
            delivered.push_back(element);
            if (removeIt(element)) {
                EXPECT_EQ(CList_Remove(&list, element), result::Success);
            }
        } while (status != CLIST_END_OF_LIST);
        return delivered;
    }

    /// The status and the element of one CList_GetNext.
    using Delivery = std::pair<uint32_t, void*>;

    /// Starts an iteration from the head, which must succeed, and calls
    /// CList_GetNext `calls` times. The element is preset to a stale pointer
    /// before each call, so each call must write it.
    std::vector<Delivery> deliveriesFromHead(size_t calls) {
        std::vector<Delivery> deliveries;
        CListCursor cursor = nullptr;
        EXPECT_EQ(CList_StartIterationFromHead(&list, &cursor), result::Success);
        for (size_t i = 0; i < calls; ++i) {
            void* element = &stale;
            const uint32_t status = CList_GetNext(&list, &element, &cursor);
            deliveries.emplace_back(status, element);
        }
        return deliveries;
    }

    /// Empty by every account: the query, both ends and the count.
    void expectEmpty() {
        EXPECT_NE(CList_IsEmpty(&list), 0u);
        EXPECT_EQ(list.head, nullptr);
        EXPECT_EQ(list.tail, nullptr);
        EXPECT_EQ(list.count, 0u);
    }

    int a = 1;
    int b = 2;
    int c = 3;
    int stale = 0;
};

TEST_F(CListTest, ZeroFilledListConstructsEmpty) { expectEmpty(); }

TEST_F(CListTest, PushTailKeepsInsertionOrder) {
    push(a);
    push(b);
    push(c);
    EXPECT_EQ(CList_IsEmpty(&list), 0u);
    EXPECT_EQ(list.count, 3u);
    EXPECT_EQ(elements(), (std::vector<void*>{&a, &b, &c}));
}

TEST_F(CListTest, SamePointerTwiceIsTwoElements) {
    push(a);
    push(a);
    EXPECT_EQ(elements(), (std::vector<void*>{&a, &a}));
    EXPECT_EQ(CList_Remove(&list, &a), result::Success);
    EXPECT_EQ(elements(), (std::vector<void*>{&a}));
}

TEST_F(CListTest, NullElementIsRefused) {
    EXPECT_EQ(CList_PushTail(&list, nullptr), result::ListBadArgument);
    EXPECT_NE(CList_IsEmpty(&list), 0u);
}

TEST_F(CListTest, IterationOfEmptyListReportsEndAtOnce) {
    CListCursor cursor = nullptr;
    EXPECT_EQ(CList_StartIterationFromHead(&list, &cursor), CLIST_END_OF_LIST);
}

TEST_F(CListTest, IterationStartsWithCursorOnHead) {
    push(a);
    push(b);
    EXPECT_EQ(deliveriesFromHead(2).front(), Delivery(result::Success, &a));
}

TEST_F(CListTest, EndOfListComesTogetherWithTheLastElement) {
    push(a);
    push(b);
    EXPECT_EQ(deliveriesFromHead(2), (std::vector<Delivery>{{result::Success, &a}, {CLIST_END_OF_LIST, &b}}));
}

TEST_F(CListTest, SingleElementIsDeliveredWithEndOfList) {
    push(a);
    EXPECT_EQ(deliveriesFromHead(1), std::vector<Delivery>{Delivery(CLIST_END_OF_LIST, &a)});
}

TEST_F(CListTest, GetNextPastTheEndDeliversNull) {
    push(a);
    EXPECT_EQ(deliveriesFromHead(2), (std::vector<Delivery>{{CLIST_END_OF_LIST, &a}, {CLIST_END_OF_LIST, nullptr}}));
}

TEST_F(CListTest, RemovingTheElementJustDeliveredKeepsTheIteration) {
    push(a);
    push(b);
    push(c);
    const std::vector<void*> delivered = iterateRemoving([&](void* element) { return element == &b; });

    EXPECT_EQ(delivered, (std::vector<void*>{&a, &b, &c}));
    EXPECT_EQ(elements(), (std::vector<void*>{&a, &c}));
    EXPECT_EQ(list.count, 2u);
}

TEST_F(CListTest, RemovingEveryElementDuringOneIteration) {
    push(a);
    push(b);
    push(c);
    const std::vector<void*> delivered = iterateRemoving([](void*) { return true; });

    EXPECT_EQ(delivered, (std::vector<void*>{&a, &b, &c}));
    expectEmpty();
}

TEST_F(CListTest, RemovingTheLastElementWhenDeliveredEndsCleanly) {
    push(a);
    push(b);
    CListCursor cursor = nullptr;
    ASSERT_EQ(CList_StartIterationFromHead(&list, &cursor), result::Success);
    void* element = nullptr;
    ASSERT_EQ(CList_GetNext(&list, &element, &cursor), result::Success);
    ASSERT_EQ(CList_GetNext(&list, &element, &cursor), CLIST_END_OF_LIST);
    ASSERT_EQ(element, &b);
    ASSERT_EQ(CList_Remove(&list, element), result::Success);
    EXPECT_EQ(list.tail, list.head);
    push(c);
    EXPECT_EQ(elements(), (std::vector<void*>{&a, &c}));
}

TEST_F(CListTest, RemovingHeadMiddleAndTailRelinks) {
    int d = 4;
    push(a);
    push(b);
    push(c);
    push(d);
    ASSERT_EQ(CList_Remove(&list, &b), result::Success);
    EXPECT_EQ(elements(), (std::vector<void*>{&a, &c, &d}));
    ASSERT_EQ(CList_Remove(&list, &a), result::Success);
    EXPECT_EQ(elements(), (std::vector<void*>{&c, &d}));
    ASSERT_EQ(CList_Remove(&list, &d), result::Success);
    EXPECT_EQ(elements(), (std::vector<void*>{&c}));
    push(a);
    EXPECT_EQ(elements(), (std::vector<void*>{&c, &a}));
    EXPECT_EQ(list.count, 2u);
}

TEST_F(CListTest, RemovingAPointerNotInTheListFails) {
    push(a);
    const uint32_t refusal = CList_Remove(&list, &b);
    EXPECT_EQ(refusal, result::ElementNotInList);
    EXPECT_GE(refusal, 32768u);
    EXPECT_EQ(elements(), (std::vector<void*>{&a}));
}

TEST_F(CListTest, RemovingNullFails) {
    push(a);
    EXPECT_EQ(CList_Remove(&list, nullptr), result::ElementNotInList);
    EXPECT_EQ(list.count, 1u);
}

TEST_F(CListTest, RemovingTwiceFailsTheSecondTime) {
    push(a);
    EXPECT_EQ(CList_Remove(&list, &a), result::Success);
    EXPECT_EQ(CList_Remove(&list, &a), result::ElementNotInList);
}

TEST_F(CListTest, NullArgumentsAreRefused) {
    CListCursor cursor = nullptr;
    void* element = &a;
    EXPECT_EQ(CList_Construct(nullptr), result::ListBadArgument);
    EXPECT_EQ(CList_PushTail(nullptr, &a), result::ListBadArgument);
    EXPECT_EQ(CList_Remove(nullptr, &a), result::ListBadArgument);
    EXPECT_EQ(CList_StartIterationFromHead(&list, nullptr), result::ListBadArgument);
    EXPECT_EQ(CList_GetNext(&list, &element, nullptr), result::ListBadArgument);
    EXPECT_EQ(element, nullptr);
    EXPECT_EQ(CList_GetNext(&list, nullptr, &cursor), result::ListBadArgument);
    EXPECT_NE(CList_IsEmpty(nullptr), 0u);
}

}  // namespace
