#pragma once

#include "local_store.h"

/// The application's one store, under ".zlmr" in the user's configuration
/// directory (the home directory), made on first use. GUI thread only.
LocalStore& localStore();
