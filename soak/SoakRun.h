// One soak run: brings both schedulers up on the reference platform (the
// fast scheduler's oscillator started here, since its module never starts
// it), churns handlers from several client threads for the chosen time, and
// checks at the end: no violation seen by the clients (wrong or missed calls,
// calls after unregistration, unexpected results), no error or warning
// traced, every pass on a grid point of its own counted from the origin its
// oscillator published, and the heap back at its starting level once every
// churned handler is gone.
#pragma once

#include <cstdint>

#include "SoakOptions.h"

namespace soak {

/// Runs the soak; returns the process exit status (0: every check held).
int runSoak(const SoakOptions& options);

}  // namespace soak
