// The device window's status line while the data log sync runs.
#include <gtest/gtest.h>

#include "log_sync_text.h"

TEST(GuiLogSyncText, ProgressRoundsDownAndIdleSaysConnected) {
    struct Row {
        bool syncing;
        uint64_t done, total;
        char const* text;
    };
    for (Row const& row : {Row{false, 5, 10, "Connected"}, Row{true, 0, 0, "Connected - Downloading data log ... 0%"},
                           Row{true, 199, 200, "Connected - Downloading data log ... 99%"},
                           Row{true, 6000000000, 6000000000, "Connected - Downloading data log ... 100%"}}) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(syncStatusText(row.syncing, row.done, row.total), row.text);
    }
}
