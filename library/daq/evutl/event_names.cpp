// Names of the event types.
#include <array>

#include "event.h"
#include "evutl.h"

namespace {

constexpr std::array<const char*, ZRK4_EV_EVMAX> NAMES = {"HB",       "NORMAL",
                                                          "BOR",      "EOR",
                                                          "ENV",      "UPD",
                                                          "IMAGE",    "WS",
                                                          "MCP",      "WSS",
                                                          "BL1",      "BL2",
                                                          "BL3",      "PG0",
                                                          "PG1",      "PG2",
                                                          "GMD",      "PHOTEN",
                                                          "PHOTWL",   "BEAM_ENERGY",
                                                          "LLRF_ML",  "BEAM_ENERGY_BYPASS",
                                                          "SPECTR_1", "SPECTR_2",
                                                          "SPECTR_3", "SPECTR_4",
                                                          "SPECTR_5", "TOROID_ML",
                                                          "28",       "29",
                                                          "30",       "31"};
static_assert(NAMES.back() != nullptr, "one name for each type");

} // namespace

const char* event_name_itoa(int type)
{
    return type < 0 || type >= ZRK4_EV_EVMAX ? "UNKNOWN" : NAMES[static_cast<size_t>(type)];
}
