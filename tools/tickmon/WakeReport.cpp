#include "WakeReport.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

namespace tickmon {
namespace {

double toUs(int64_t ns) { return static_cast<double>(ns) / 1e3; }

void appendf(std::string& out, const char* format, ...) __attribute__((format(printf, 2, 3)));

void appendf(std::string& out, const char* format, ...) {
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    out += line;
}

void appendDistribution(std::string& out, const char* name, const STickLatenessFigures& f) {
    if (f.count == 0) {
        appendf(out, "  %-30s no samples\n", name);
        return;
    }
    appendf(out, "  %-30s p50 %9.3f us  p99 %9.3f us  max %9.3f us  (%" PRIu64 ")\n", name, toUs(f.p50Ns),
            toUs(f.p99Ns), toUs(f.maxNs), f.count);
}

Json distributionJson(const STickLatenessFigures& f) {
    return {{"count", f.count}, {"p50", f.p50Ns}, {"p99", f.p99Ns}, {"max", f.maxNs}};
}

const char* modeName(uint32_t mode) {
    switch (mode) {
        case TICK_WAKE_FIXED:
            return "fixed";
        case TICK_WAKE_ADAPTIVE:
            return "auto";
        default:
            return "off";
    }
}

}  // namespace

std::string formatWake(const WakeReport& wake, int64_t handlerP99Ns) {
    std::string out;
    const STickPrecisionWake& f = wake.figures;
    appendf(out, "\nWake-up and delivery (precision wake %s)\n", wake.setting.c_str());
    if (!wake.read) {
        out += "  not available (the library's query failed)\n";
        return out;
    }
    if (f.mode == TICK_WAKE_OFF) {
        out +=
            "  the plain loop reads the clock once per tick, after the tick's pass: the kernel's wake-up and the\n"
            "  pass are measured together (--wake-lead auto separates them)\n";
        appendDistribution(out, "wake-up + pass", f.wakeUpAndPass);
        return out;
    }
    appendf(out, "  lead      %12.3f us  (%s; adaptive floor %.0f us, ceiling %.0f us)\n", toUs(f.leadNs),
            modeName(f.mode), toUs(f.leadFloorNs), toUs(f.leadCeilingNs));
    appendDistribution(out, "kernel wake-up (behind lead)", f.wakeUp);
    appendDistribution(out, "delivery (behind grid point)", f.delivery);
    if (f.delivery.count > 0) {
        appendf(out, "  %-30s p99 %9.3f us  (handler-visible p99 minus the delivery's)\n", "dispatch to the probe",
                static_cast<double>(handlerP99Ns - f.delivery.p99Ns) / 1e3);
    }
    appendf(out, "  late despite the lead %" PRIu64 " of %" PRIu64 " ticks\n", f.lateDespiteLead, f.ticks);
    appendf(out, "  spin      %12.3f ms per second (%.3f %% of one CPU)\n", static_cast<double>(f.spinPpm) / 1e3,
            static_cast<double>(f.spinPpm) / 1e4);
    return out;
}

Json wakeJson(const WakeReport& wake) {
    const STickPrecisionWake& f = wake.figures;
    return {{"setting", wake.setting},
            {"read", wake.read},
            {"mode", modeName(f.mode)},
            {"lead_ns", f.leadNs},
            {"lead_floor_ns", f.leadFloorNs},
            {"lead_ceiling_ns", f.leadCeilingNs},
            {"ticks", f.ticks},
            {"late_despite_lead", f.lateDespiteLead},
            {"spin_ns", f.spinNs},
            {"spin_ppm_of_one_cpu", f.spinPpm},
            {"kernel_wake_up_ns", distributionJson(f.wakeUp)},
            {"delivery_ns", distributionJson(f.delivery)},
            {"wake_up_and_pass_ns", distributionJson(f.wakeUpAndPass)}};
}

std::string wakeTitle(const WakeReport& wake) {
    if (wake.setting == "off") {
        return "relative sleep";
    }
    char lead[64];
    std::snprintf(lead, sizeof lead, "precision wake %s (lead %.0f us)", wake.setting.c_str(),
                  toUs(wake.figures.leadNs));
    return lead;
}

}  // namespace tickmon
