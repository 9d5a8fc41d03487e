#include "TickFunctions.h"

namespace bench {

void countTick(void* context) { ++*static_cast<uint64_t*>(context); }

}  // namespace bench
