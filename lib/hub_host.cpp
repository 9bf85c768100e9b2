#include "hub_host.h"

#include <cstdlib>

std::string hubHostSetting() {
    char const* host = std::getenv(kHubHostVariable);
    return host && *host ? std::string(host) : std::string(kDefaultHubHost);
}
