#include "power_status.h"

#include <iterator>

namespace {

// Indexed by the device's code: relay off, relay on, then the cut-offs (low
// voltage, over-current, high voltage, fuel gauge, no charge, low and high
// temperature).
constexpr char const* kTexts[] = {"OFF", "ON", "LVD", "OCD", "HVD", "FGD", "NCH", "LTD", "HTD"};

}  // namespace

char const* powerStatusText(uint8_t status) { return status < std::size(kTexts) ? kTexts[status] : ""; }
