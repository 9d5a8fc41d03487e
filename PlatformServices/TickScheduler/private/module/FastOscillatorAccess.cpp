// Hands the integrator the fast module's oscillator: the module configures
// it but never starts it (see TickFastOscillator.h).
#include "CTickSchedulerFastModule.h"
#include "TickFastOscillator.h"

extern "C" TickOscillator* CTickSchedulerFast_GetTickOscillator(void) {
    return &tickSchedulerFastModule.tickOscillator;
}
