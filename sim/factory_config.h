#pragma once

#include <cstdint>

#include "zelmor_config.h"

namespace sim {

/// The configuration a device of this hardware revision leaves the factory
/// with: a 12 V lithium iron phosphate installation on the integrated shunt,
/// the protections set but switched off, logging every 5 seconds. It passes
/// configProblem. The reserved bytes hold a pattern of their own, so that a
/// write that does not keep them shows.
ZelmorConfig factoryConfig(uint8_t hardwareRevision);

}  // namespace sim
