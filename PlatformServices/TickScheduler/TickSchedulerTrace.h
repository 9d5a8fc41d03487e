/// @file
/// The library's trace object.
///
/// Constructed at load with the module name "ZYN.TS", default level 3 and
/// header option 256. The platform's trace service decides where lines go and
/// which levels are enabled.
#pragma once

#include "KivTrace.h"
#include "TickSchedulerExport.h"

/// The trace object of the library, module name "ZYN.TS".
extern ZYN_TS_EXPORT KivTrace tsTrace;
