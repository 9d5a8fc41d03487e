// Result codes of the reference platform for Linux hosts.
//
// Every platform call returns an unsigned 32-bit result: 0 success, 1 to 32767
// success with a remark, 32768 and above a refusal. Each refusal of the
// reference platform has its own code, so that a traced "0x0000900a" names the
// exact reason. The codes are well below 0x80000000, so callers that read a
// result as a signed number see them as failures too.
#pragma once

#include <cstdint>

namespace platform_host::host_result {

constexpr uint32_t Success = 0;

/// The list has no (further) element: CList_StartIterationFromHead on an
/// empty list, CList_GetNext together with the last element, or CList_GetNext
/// with a cursor already past the end (then with a null element).
constexpr uint32_t EndOfList = 4098;

// ---- Module manager ----------------------------------------------------------

/// CModuleManager_RegisterModule: the module id is already registered and the
/// module has not been shut down since.
constexpr uint32_t ModuleAlreadyRegistered = 0x9001;
/// CModuleManager_RegisterCallback: no module with that id is registered.
constexpr uint32_t UnknownModule = 0x9002;
/// A null module name, callback name, callback record or callback function,
/// or a null phase list with a non-zero length.
constexpr uint32_t ModuleManagerBadArgument = 0x9003;
/// runPhase: the callback record's function was null when the phase ran; the
/// callback was not called.
constexpr uint32_t CallbackMissing = 0x9004;

// ---- Interface broker --------------------------------------------------------

/// registerInterface: another object is already registered under that name.
constexpr uint32_t InterfaceNameTaken = 0x9101;
/// unregisterInterface: nothing is registered under that name.
constexpr uint32_t InterfaceNotRegistered = 0x9102;
/// registerInterface with a null object.
constexpr uint32_t BrokerBadArgument = 0x9103;

// ---- List service ------------------------------------------------------------

/// CList_Remove: the pointer (null included) is not an element of the list.
constexpr uint32_t ElementNotInList = 0x9201;
/// A null list, element or cursor argument.
constexpr uint32_t ListBadArgument = 0x9202;
/// CList_PushTail: no memory for the element's node.
constexpr uint32_t ListOutOfMemory = 0x9203;

}  // namespace platform_host::host_result
