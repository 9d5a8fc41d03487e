// List service binding: an intrusive-free list of element pointers.
//
// Contract the library relies on:
// - CList_Construct makes a zero-filled list an empty list.
// - CList_PushTail appends the pointer at the tail; the element is not copied.
// - CList_Remove removes the pointer; 32768 and above when it is not in the
//   list. Removing the element that CList_GetNext delivered last, while an
//   iteration is in progress, leaves the rest of that iteration intact.
// - CList_IsEmpty: non-zero when the list is empty.
// - CList_StartIterationFromHead: 4098 when there is nothing to iterate,
//   otherwise the cursor (set to 0 by the caller) is on the head.
// - CList_GetNext stores the element at the cursor (null when it cannot
//   deliver one) and advances the cursor past it; it returns 4098 together
//   with the last element.
#pragma once

#include <cstdint>

extern "C" {

struct CList {
    void* head;
    void* tail;
    uint32_t count;
};

typedef void* CListCursor;

/// Result of CList_StartIterationFromHead and CList_GetNext at the end of the list.
#define CLIST_END_OF_LIST 4098u

uint32_t CList_Construct(CList* list);
uint32_t CList_PushTail(CList* list, void* element);
uint32_t CList_Remove(CList* list, void* element);
uint32_t CList_IsEmpty(CList* list);
uint32_t CList_StartIterationFromHead(CList* list, CListCursor* cursor);
uint32_t CList_GetNext(CList* list, void** element, CListCursor* cursor);
}
