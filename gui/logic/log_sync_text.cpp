#include "log_sync_text.h"

#include <fmt/core.h>

std::string syncStatusText(bool syncing, uint64_t done, uint64_t total) {
    if (!syncing) return "Connected";
    return fmt::format("Connected - Downloading data log ... {}%", total == 0 ? 0 : done * 100 / total);
}
