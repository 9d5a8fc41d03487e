// Read before anything else in every library source (the build passes it
// with -include).
//
// IInterface, the base of ITickScheduler and ITickSchedulerFast, is declared
// by the platform's broker header without a visibility of its own, so the
// library's hidden default would hide its vtable and type information. They
// belong to the library's external interface: a client's dynamic_cast from
// the IInterface it got from the broker needs them. Declaring the class under
// default visibility the first time any library source sees it exports them;
// its inline destructor stays hidden like every inline function.
#pragma once

#pragma GCC visibility push(default)
#include "InterfaceBroker.h"
#pragma GCC visibility pop
