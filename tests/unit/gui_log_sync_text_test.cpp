// The device window's status line while the data log sync runs.
#include <gtest/gtest.h>

#include "log_sync_text.h"

TEST(GuiLogSyncText, ProgressRoundsDownAndIdleSaysConnected) {
    EXPECT_EQ(syncStatusText(false, 5, 10), "Connected");
    EXPECT_EQ(syncStatusText(true, 0, 0), "Connected - Downloading data log ... 0%");
    EXPECT_EQ(syncStatusText(true, 6000000000 - 1, 6000000000), "Connected - Downloading data log ... 99%");
}
