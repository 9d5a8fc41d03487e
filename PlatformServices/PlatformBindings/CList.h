/// @file
/// List service binding: an intrusive-free list of element pointers.
///
/// Contract the library relies on:
/// - CList_Construct makes a zero-filled list an empty list.
/// - CList_PushTail appends the pointer at the tail; the element is not copied.
/// - CList_Remove removes the pointer; 32768 (TickResult::FirstError) and
///   above when it is not in the list. Removing the element that
///   CList_GetNext delivered last, while an iteration is in progress, leaves
///   the rest of that iteration intact.
///   A list that also allows removing the element the cursor stands on (the
///   iteration goes on with the next element still in the list) lets a fast
///   tick function remove any handler, not only itself or earlier ones.
/// - CList_IsEmpty: non-zero when the list is empty.
/// - CList_StartIterationFromHead: CLIST_END_OF_LIST (4098) when there is
///   nothing to iterate, otherwise the cursor (set to 0 by the caller) is on
///   the head.
/// - CList_GetNext stores the element at the cursor (null when it cannot
///   deliver one) and advances the cursor past it; it returns
///   CLIST_END_OF_LIST together with the last element, and null with
///   CLIST_END_OF_LIST when nothing is left to deliver.
#pragma once

#include <cstdint>

extern "C" {

/// A list: its owner provides zero-filled storage, the list service the
/// meaning of the fields.
struct CList {
    void* head;      ///< The list service's own.
    void* tail;      ///< The list service's own.
    uint32_t count;  ///< The list service's own.
};

/// Position of an iteration; the caller sets it to 0 before starting one.
typedef void* CListCursor;

/// Result of CList_StartIterationFromHead and CList_GetNext at the end of the list.
#define CLIST_END_OF_LIST 4098u

/// Makes a zero-filled list an empty list.
uint32_t CList_Construct(CList* list);
/// Appends `element` at the tail; the element is not copied.
uint32_t CList_PushTail(CList* list, void* element);
/// Removes `element`; 32768 and above when it is not in the list.
uint32_t CList_Remove(CList* list, void* element);
/// Non-zero when the list is empty.
uint32_t CList_IsEmpty(CList* list);
/// Puts `cursor` on the head; CLIST_END_OF_LIST when the list is empty.
uint32_t CList_StartIterationFromHead(CList* list, CListCursor* cursor);
/// Stores the element at `cursor` in `element` and advances the cursor;
/// CLIST_END_OF_LIST together with the last element.
uint32_t CList_GetNext(CList* list, void** element, CListCursor* cursor);
}
