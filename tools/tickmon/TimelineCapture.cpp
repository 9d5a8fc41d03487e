#include "TimelineCapture.h"

#include "TickResultCodes.h"

namespace tickmon {
namespace {

constexpr uint32_t kEventsPerRead = 4096;

}  // namespace

bool TimelineCapture::startCapture() { return !active() || library.startEventCapture() == TickResult::Success; }

void TimelineCapture::begin(int64_t originNs) {
    if (!active()) {
        return;
    }
    buffer.resize(kEventsPerRead);
    writer = std::make_unique<TimelineWriter>(*file, std::string("zyn-tickmon: ") + library.moduleName,
                                              library.oscillatorThreadName, originNs, maxBytes);
}

void TimelineCapture::drain(const std::vector<int64_t>& timestamps, const PublishedGrid& grid) {
    if (!writer) {
        return;
    }
    for (;;) {
        uint32_t count = 0;
        uint64_t lost = 0;
        if (library.readEvents(buffer.data(), kEventsPerRead, &count, &lost) != TickResult::Success) {
            break;
        }
        writer->addEvents(buffer.data(), count, lost);
        if (count < kEventsPerRead) {
            break;
        }
    }
    writer->addTicks(timestamps, grid);
}

std::optional<TimelineCounts> TimelineCapture::finish(const std::vector<int64_t>& timestamps,
                                                      const PublishedGrid& grid) {
    if (!writer) {
        return std::nullopt;
    }
    drain(timestamps, grid);
    (void)library.stopEventCapture();
    writer->finish();
    const TimelineCounts counts = writer->counts();
    writer.reset();
    return counts;
}

}  // namespace tickmon
