// The reference list service: a doubly linked list of element pointers with
// one node per element, allocated by CList_PushTail and freed by CList_Remove.
//
// `head` and `tail` of the CList record point to nodes, `count` is the number
// of elements. A cursor points to the node that CList_GetNext delivers next
// (null past the end), and that node counts the cursors standing on it
// (`cursors`). Any element can be removed while iterations are in progress:
// - the element just delivered, or any before it: no cursor stands on its
//   node, which is unlinked and freed at once;
// - the element a cursor stands on: its node stays in the chain as a
//   tombstone (element gone, `next` kept up to date by the chain), and the
//   cursor's next CList_GetNext steps over it to the first element still in
//   the list and frees it once no cursor stands on it any more.
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

bool isTombstone(const Node* node) { return node->element == nullptr; }

// The first node from `node` on (itself included) that holds an element.
Node* firstLiveFrom(Node* node) {
    while (node != nullptr && isTombstone(node)) {
        node = node->next;
    }
    return node;
}

Node* headOf(const CList* list) { return static_cast<Node*>(list->head); }

Node* tailOf(const CList* list) { return static_cast<Node*>(list->tail); }

Node* findNode(const CList* list, const void* element) {
    for (Node* node = headOf(list); node != nullptr; node = node->next) {
        if (!isTombstone(node) && node->element == element) {
            return node;
        }
    }
    return nullptr;
}

void unlink(CList* list, Node* node) {
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
}

// A cursor leaves `node`; a tombstone that no cursor stands on any more goes.
void leave(CList* list, Node* node) {
    --node->cursors;
    if (node->cursors == 0 && isTombstone(node)) {
        unlink(list, node);
        delete node;
    }
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

// Makes the record an empty list. Nodes of a list that the record held before
// are not freed: a zero-filled or uninitialised record cannot be told apart
// from a live one.
uint32_t CList_Construct(CList* list) {
    if (list == nullptr) {
        return result::ListBadArgument;
    }
    list->head = nullptr;
    list->tail = nullptr;
    list->count = 0;
    return result::Success;
}

// Appends the pointer; a null element is refused, because CList_GetNext reports
// "nothing delivered" as a null element.
uint32_t CList_PushTail(CList* list, void* element) {
    if (list == nullptr || element == nullptr) {
        return result::ListBadArgument;
    }
    Node* node = new (std::nothrow) Node{tailOf(list), nullptr, element, 0};
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

// Removes the first occurrence of the pointer; ElementNotInList when it is not
// an element (a null pointer never is). A node that a cursor stands on becomes
// a tombstone, so that cursor's iteration goes on with the next element.
uint32_t CList_Remove(CList* list, void* element) {
    if (list == nullptr) {
        return result::ListBadArgument;
    }
    Node* node = element != nullptr ? findNode(list, element) : nullptr;
    if (node == nullptr) {
        return result::ElementNotInList;
    }
    --list->count;
    if (node->cursors > 0) {
        node->element = nullptr;
        return result::Success;
    }
    unlink(list, node);
    delete node;
    return result::Success;
}

// Non-zero when the list is empty (a null list counts as empty).
uint32_t CList_IsEmpty(CList* list) { return (list == nullptr || list->count == 0) ? 1u : 0u; }

// Puts the cursor on the first element; EndOfList (4098) when there is nothing
// to iterate.
uint32_t CList_StartIterationFromHead(CList* list, CListCursor* cursor) {
    if (list == nullptr || cursor == nullptr) {
        return result::ListBadArgument;
    }
    *cursor = standOn(firstLiveFrom(headOf(list)));
    return *cursor == nullptr ? result::EndOfList : result::Success;
}

// Delivers the element at the cursor and moves the cursor past it. Returns
// EndOfList (4098) together with the last element, and EndOfList with a null
// element when nothing is left to deliver: the cursor is already past the end,
// or every element after the last one delivered was removed meanwhile.
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
    leave(list, standing);
    if (delivered == nullptr) {
        *cursor = nullptr;
        return result::EndOfList;
    }
    *element = delivered->element;
    *cursor = standOn(firstLiveFrom(delivered->next));
    return *cursor == nullptr ? result::EndOfList : result::Success;
}

}  // extern "C"
