// A minimal list service: a singly linked list of nodes behind the CList
// calls, nothing else (no lock, no logging, no checks beyond the contract).
//
// Linked into zyn-bench-dispatch-minimal, whose own definitions take the
// place of the reference platform's for every caller in the process, so
// that the fast scheduler's dispatch and the list-walk floor are measured on
// a list that costs as little as a list can: what remains above the floor is
// the dispatch's own.
#include <new>

#include "CList.h"
#include "ZynSupport/ListLinks.h"

namespace {

struct Node {
    void* element;
    Node* next;
};

Node* headOf(const CList* list) { return static_cast<Node*>(list->head); }

}  // namespace

extern "C" uint32_t CList_Construct(CList* list) {
    list->head = nullptr;
    list->tail = nullptr;
    list->count = 0;
    return 0;
}

extern "C" uint32_t CList_PushTail(CList* list, void* element) {
    auto* node = new (std::nothrow) Node{element, nullptr};
    if (node == nullptr) {
        return 32768u;
    }
    zyn_support::linkAtTail(list, node);
    return 0;
}

extern "C" uint32_t CList_Remove(CList* list, void* element) {
    Node* previous = nullptr;
    for (Node* node = headOf(list); node != nullptr; previous = node, node = node->next) {
        if (node->element != element) {
            continue;
        }
        zyn_support::unlinkAfter(list, previous, node);
        --list->count;
        // A cursor never stands on a delivered node: it moved past it.
        delete node;
        return 0;
    }
    return 32768u;
}

extern "C" uint32_t CList_IsEmpty(CList* list) { return list->head == nullptr ? 1u : 0u; }

extern "C" uint32_t CList_StartIterationFromHead(CList* list, CListCursor* cursor) {
    *cursor = list->head;
    return list->head == nullptr ? CLIST_END_OF_LIST : 0u;
}

extern "C" uint32_t CList_GetNext(CList* /*list*/, void** element, CListCursor* cursor) {
    auto* node = static_cast<Node*>(*cursor);
    if (node == nullptr) {
        *element = nullptr;
        return CLIST_END_OF_LIST;
    }
    *element = node->element;
    *cursor = node->next;
    return node->next == nullptr ? CLIST_END_OF_LIST : 0u;
}
