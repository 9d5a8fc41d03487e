// The reference list service: a doubly linked list of element pointers with
// one node per element, allocated by CList_PushTail and freed by CList_Remove.
//
// `head` and `tail` of the CList record point to nodes; a cursor points to the
// node that CList_GetNext delivers next (null past the end). Because the cursor
// has already moved past the element just delivered, that element, or any
// element before it, can be removed while the iteration goes on. Removing the
// element the cursor points to (the one not yet delivered) ends that
// iteration's validity: restart it from the head.
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
    void* element;
};

Node* headOf(const CList* list) { return static_cast<Node*>(list->head); }

Node* tailOf(const CList* list) { return static_cast<Node*>(list->tail); }

Node* findNode(const CList* list, const void* element) {
    for (Node* node = headOf(list); node != nullptr; node = node->next) {
        if (node->element == element) {
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
    --list->count;
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
    Node* node = new (std::nothrow) Node{tailOf(list), nullptr, element};
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
// an element (a null pointer never is).
uint32_t CList_Remove(CList* list, void* element) {
    if (list == nullptr) {
        return result::ListBadArgument;
    }
    Node* node = element != nullptr ? findNode(list, element) : nullptr;
    if (node == nullptr) {
        return result::ElementNotInList;
    }
    unlink(list, node);
    delete node;
    return result::Success;
}

// Non-zero when the list is empty (a null list counts as empty).
uint32_t CList_IsEmpty(CList* list) { return (list == nullptr || list->head == nullptr) ? 1u : 0u; }

// Puts the cursor on the head; EndOfList (4098) when there is nothing to iterate.
uint32_t CList_StartIterationFromHead(CList* list, CListCursor* cursor) {
    if (list == nullptr || cursor == nullptr) {
        return result::ListBadArgument;
    }
    *cursor = list->head;
    return list->head == nullptr ? result::EndOfList : result::Success;
}

// Delivers the element at the cursor and moves the cursor past it. Returns
// EndOfList (4098) together with the last element, and EndOfList with a null
// element when the cursor is already past the end.
uint32_t CList_GetNext(CList* list, void** element, CListCursor* cursor) {
    if (element != nullptr) {
        *element = nullptr;
    }
    if (list == nullptr || element == nullptr || cursor == nullptr) {
        return result::ListBadArgument;
    }
    const Node* node = static_cast<const Node*>(*cursor);
    if (node == nullptr) {
        return result::EndOfList;
    }
    *element = node->element;
    *cursor = node->next;
    return node->next == nullptr ? result::EndOfList : result::Success;
}

}  // extern "C"
