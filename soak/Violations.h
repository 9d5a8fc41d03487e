// The soak's findings: each is printed at once (without allocating, so the
// memory check is not disturbed) and counted.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>

namespace soak {

class Violations {
public:
    static Violations& instance();

    /// Reports one violation, printf-style.
    void report(const char* format, ...) __attribute__((format(printf, 2, 3)));

    uint64_t count() const { return total.load(); }

private:
    std::atomic<uint64_t> total{0};
};

}  // namespace soak
