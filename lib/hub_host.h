#pragma once

#include <string>

// Where the hub relay is. Devices paired for remote access are reached through
// it on TCP port 7209. The host is the user's setting: the environment variable
// ZELMOR_HUB_HOST, or a command-line option that overrides it. Without either,
// the relay is looked for on this machine (e.g. the simulator's).

inline constexpr char const* kHubHostVariable = "ZELMOR_HUB_HOST";
inline constexpr char const* kDefaultHubHost = "127.0.0.1";
inline constexpr unsigned short kHubPort = 7209;

/// ZELMOR_HUB_HOST when set and not empty, else kDefaultHubHost.
std::string hubHostSetting();
