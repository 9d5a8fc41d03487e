// The reference list service: a doubly linked list of element pointers, one
// node per element. A cursor points to the node that CList_GetNext delivers
// next (null past the end), and that node counts the cursors standing on it.
// So any element can be removed while iterations are in progress: a node no
// cursor stands on is unlinked and freed at once; the node a cursor stands on
// stays in the chain as a tombstone (element gone), which that cursor's next
// CList_GetNext steps over and frees once no cursor stands on it any more.
// Tombstones are invisible to every operation. An iteration given up before
// its end leaves its node counted; should that element be removed later, its
// tombstone stays until the list is constructed again: a few bytes kept, never
// a cursor left pointing at freed memory.
//
// Not thread-safe by itself: the owner of a list serialises every call on it,
// an iteration included, with its own lock.

#include "CList.h"

#include <new>

#include "PlatformHost/HostResultCodes.h"

namespace {

namespace result = platform_host::host_result;

struct Node {
    Node* previous;
    Node* next;
    void* element;     // null once removed while a cursor stands on it
    uint32_t cursors;  // cursors of unfinished iterations standing here
};

// The first node from `node` on (itself included) that holds an element.
Node* firstLiveFrom(Node* node) {
    while (node != nullptr && node->element == nullptr) {
        node = node->next;
    }
    return node;
}

Node* headOf(const CList* list) { return static_cast<Node*>(list->head); }

void unlinkAndFree(CList* list, Node* node) {
    if (node->previous != nullptr) {
        node->previous->next = node->next;
    } else {
        list->head = node->next;
    }
    if (node->next != nullptr) {
        node->next->previous = node->previous;
    } else {
        list->tail = node->previous;
    }
    delete node;
}

// A cursor comes to stand on `node` (null: past the end).
CListCursor standOn(Node* node) {
    if (node != nullptr) {
        ++node->cursors;
    }
    return node;
}

}  // namespace

extern "C" {

// Nodes of a list that the record held before are not freed: a zero-filled or
// uninitialised record cannot be told apart from a live one.
uint32_t CList_Construct(CList* list) {
    if (list == nullptr) {
        return result::ListBadArgument;
    }
    *list = CList{nullptr, nullptr, 0};
    return result::Success;
}

// A null element is refused: CList_GetNext reports "nothing delivered" as one.
uint32_t CList_PushTail(CList* list, void* element) {
    if (list == nullptr || element == nullptr) {
        return result::ListBadArgument;
    }
    Node* node = new (std::nothrow) Node{static_cast<Node*>(list->tail), nullptr, element, 0};
    if (node == nullptr) {
        return result::ListOutOfMemory;
    }
    if (node->previous != nullptr) {
        node->previous->next = node;
    } else {
        list->head = node;
    }
    list->tail = node;
    ++list->count;
    return result::Success;
}

// Removes the first occurrence of the pointer (a null pointer is never an
// element). A node that a cursor stands on becomes a tombstone, so that
// cursor's iteration goes on with the next element.
uint32_t CList_Remove(CList* list, void* element) {
    if (list == nullptr) {
        return result::ListBadArgument;
    }
    Node* node = element != nullptr ? headOf(list) : nullptr;
    while (node != nullptr && node->element != element) {
        node = node->next;
    }
    if (node == nullptr) {
        return result::ElementNotInList;
    }
    --list->count;
    if (node->cursors > 0) {
        node->element = nullptr;
    } else {
        unlinkAndFree(list, node);
    }
    return result::Success;
}

// A null list counts as empty.
uint32_t CList_IsEmpty(CList* list) { return (list == nullptr || list->count == 0) ? 1u : 0u; }

uint32_t CList_StartIterationFromHead(CList* list, CListCursor* cursor) {
    if (list == nullptr || cursor == nullptr) {
        return result::ListBadArgument;
    }
    *cursor = standOn(firstLiveFrom(headOf(list)));
    return *cursor == nullptr ? result::EndOfList : result::Success;
}

// EndOfList with a null element when nothing is left to deliver: the cursor is
// already past the end, or every element after the last one delivered was
// removed meanwhile.
uint32_t CList_GetNext(CList* list, void** element, CListCursor* cursor) {
    if (element != nullptr) {
        *element = nullptr;
    }
    if (list == nullptr || element == nullptr || cursor == nullptr) {
        return result::ListBadArgument;
    }
    Node* const standing = static_cast<Node*>(*cursor);
    if (standing == nullptr) {
        return result::EndOfList;
    }
    Node* const delivered = firstLiveFrom(standing);
    // The cursor leaves its node; a tombstone no cursor stands on any more goes.
    if (--standing->cursors == 0 && standing->element == nullptr) {
        unlinkAndFree(list, standing);
    }
    if (delivered == nullptr) {
        *cursor = nullptr;
        return result::EndOfList;
    }
    *element = delivered->element;
    *cursor = standOn(firstLiveFrom(delivered->next));
    return *cursor == nullptr ? result::EndOfList : result::Success;
}

}  // extern "C"
