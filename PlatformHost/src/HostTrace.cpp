#include "HostTrace.h"

namespace platform_host::detail {

KivTrace& hostTrace() {
    // Level 3: warnings are written unless the platform lowers it.
    static KivTrace* const trace = new KivTrace("ZYN.HOST", KIV_TRACE_NOTICE, KIV_TRACE_HDR_FUNCTION);
    return *trace;
}

}  // namespace platform_host::detail
