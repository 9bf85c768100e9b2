#include "hardware_revision.h"

char const* modelName(uint8_t revision) {
    switch (modelFamily(revision)) {
        case 0x10: return "Zelmor-K";
        case 0x20: return "Zelmor";
        case 0x30: return "Zelmor-7T";
        case 0x40: return "Zelmor-V";
        default: return "unknown";
    }
}
