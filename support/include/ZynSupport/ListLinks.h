// The links of a singly linked list of nodes behind a CList record (head,
// tail and count), for the list services around the library that keep nodes
// of their own: the platform test double's and the benchmarks' minimal one.
// A node type has a `next` pointer to its own type; what else a node holds,
// and when it is freed, is the list service's.
#pragma once

#include "CList.h"

namespace zyn_support {

/// Links `node` (whose `next` is null) at the tail of `list` and counts it.
template <typename Node>
void linkAtTail(CList* list, Node* node) {
    if (list->tail != nullptr) {
        static_cast<Node*>(list->tail)->next = node;
    } else {
        list->head = node;
    }
    list->tail = node;
    ++list->count;
}

/// Takes `node` out of the links of `list`; `previous` is the node before it,
/// null when it is the head. The count is left to the caller.
template <typename Node>
void unlinkAfter(CList* list, Node* previous, Node* node) {
    if (previous != nullptr) {
        previous->next = node->next;
    } else {
        list->head = node->next;
    }
    if (list->tail == node) {
        list->tail = previous;
    }
}

}  // namespace zyn_support
