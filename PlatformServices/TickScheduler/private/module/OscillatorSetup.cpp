#include "OscillatorSetup.h"

namespace zyn_ts {

void configureOscillator(TickOscillator& oscillator, ETickDelay delay, ETickPriority priority, ITickReceiver& receiver,
                         void* context, void (*onTick)(void*)) {
    (void)oscillator.initialize(delay, priority);
    receiver.context = context;
    receiver.onTick = onTick;
    (void)oscillator.registerOnTick(&receiver);
}

}  // namespace zyn_ts
