#pragma once

#include "fake_bluez.h"

/// The fake BlueZ of this test binary, on the binary's private system bus.
/// Both are started once, before the first test, since libdbus takes the
/// system bus address only once per process. Throws when they did not start.
FakeBlueZ& fakeBlueZ();
