// The reference list service against the list contract the fast scheduler
// relies on.

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "CList.h"
#include "PlatformHost/HostResultCodes.h"

namespace {

namespace result = platform_host::host_result;

class CListTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::memset(&list, 0, sizeof list);
        ASSERT_EQ(CList_Construct(&list), result::Success);
    }
    void TearDown() override {
        // Free the nodes of whatever the test left in the list.
        std::vector<void*> left = elements();
        for (void* element : left) {
            CList_Remove(&list, element);
        }
        // Every node is gone once no iteration is left unfinished.
        EXPECT_EQ(list.head, nullptr);
    }

    void push(int& element) { ASSERT_EQ(CList_PushTail(&list, &element), result::Success); }

    // The elements in iteration order, the way the fast scheduler walks them.
    std::vector<void*> elements() {
        std::vector<void*> delivered;
        CListCursor cursor = nullptr;
        if (CList_StartIterationFromHead(&list, &cursor) == CLIST_END_OF_LIST) {
            return delivered;
        }
        uint32_t status = 0;
        do {
            void* element = nullptr;
            status = CList_GetNext(&list, &element, &cursor);
            if (element == nullptr) {
                break;
            }
            delivered.push_back(element);
        } while (status != CLIST_END_OF_LIST);
        return delivered;
    }

    CList list;
    int a = 1;
    int b = 2;
    int c = 3;
};

TEST_F(CListTest, ZeroFilledListConstructsEmpty) {
    EXPECT_NE(CList_IsEmpty(&list), 0u);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
    EXPECT_EQ(list.count, 0u);
}

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
    CListCursor cursor = nullptr;
    EXPECT_EQ(CList_StartIterationFromHead(&list, &cursor), result::Success);
    void* element = nullptr;
    EXPECT_EQ(CList_GetNext(&list, &element, &cursor), result::Success);
    EXPECT_EQ(element, &a);
    EXPECT_EQ(CList_GetNext(&list, &element, &cursor), CLIST_END_OF_LIST);
}

TEST_F(CListTest, EndOfListComesTogetherWithTheLastElement) {
    push(a);
    push(b);
    CListCursor cursor = nullptr;
    ASSERT_EQ(CList_StartIterationFromHead(&list, &cursor), result::Success);
    void* element = nullptr;
    EXPECT_EQ(CList_GetNext(&list, &element, &cursor), result::Success);
    EXPECT_EQ(element, &a);
    EXPECT_EQ(CList_GetNext(&list, &element, &cursor), CLIST_END_OF_LIST);
    EXPECT_EQ(element, &b);
}

TEST_F(CListTest, SingleElementIsDeliveredWithEndOfList) {
    push(a);
    CListCursor cursor = nullptr;
    ASSERT_EQ(CList_StartIterationFromHead(&list, &cursor), result::Success);
    void* element = nullptr;
    EXPECT_EQ(CList_GetNext(&list, &element, &cursor), CLIST_END_OF_LIST);
    EXPECT_EQ(element, &a);
}

TEST_F(CListTest, GetNextPastTheEndDeliversNull) {
    push(a);
    CListCursor cursor = nullptr;
    ASSERT_EQ(CList_StartIterationFromHead(&list, &cursor), result::Success);
    void* element = nullptr;
    ASSERT_EQ(CList_GetNext(&list, &element, &cursor), CLIST_END_OF_LIST);
    element = &b;
    EXPECT_EQ(CList_GetNext(&list, &element, &cursor), CLIST_END_OF_LIST);
    EXPECT_EQ(element, nullptr);
}

TEST_F(CListTest, RemovingTheElementJustDeliveredKeepsTheIteration) {
    push(a);
    push(b);
    push(c);
    std::vector<void*> delivered;
    CListCursor cursor = nullptr;
    ASSERT_EQ(CList_StartIterationFromHead(&list, &cursor), result::Success);
    uint32_t status = 0;
    do {
        void* element = nullptr;
        status = CList_GetNext(&list, &element, &cursor);
        ASSERT_NE(element, nullptr);
        delivered.push_back(element);
        if (element == &b) {
            ASSERT_EQ(CList_Remove(&list, element), result::Success);
        }
    } while (status != CLIST_END_OF_LIST);

    EXPECT_EQ(delivered, (std::vector<void*>{&a, &b, &c}));
    EXPECT_EQ(elements(), (std::vector<void*>{&a, &c}));
    EXPECT_EQ(list.count, 2u);
}

TEST_F(CListTest, RemovingEveryElementDuringOneIteration) {
    push(a);
    push(b);
    push(c);
    std::vector<void*> delivered;
    CListCursor cursor = nullptr;
    ASSERT_EQ(CList_StartIterationFromHead(&list, &cursor), result::Success);
    uint32_t status = 0;
    do {
        void* element = nullptr;
        status = CList_GetNext(&list, &element, &cursor);
        ASSERT_NE(element, nullptr);
        delivered.push_back(element);
        ASSERT_EQ(CList_Remove(&list, element), result::Success);
    } while (status != CLIST_END_OF_LIST);

    EXPECT_EQ(delivered, (std::vector<void*>{&a, &b, &c}));
    EXPECT_NE(CList_IsEmpty(&list), 0u);
    EXPECT_EQ(list.head, nullptr);
    EXPECT_EQ(list.tail, nullptr);
    EXPECT_EQ(list.count, 0u);
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
