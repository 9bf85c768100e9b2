// The chart of a device's data log as a user opens it from the device window
// against zelmor-sim: the log the window synced, zoomed and panned with the
// wheel, exported as CSV and saved as an image through the real file dialogs.
#include <gtest/gtest.h>

#include <wx/image.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <fmt/core.h>

#include "gui_chart.h"
#include "local_store_instance.h"
#include "log_mirror.h"
#include "log_record.h"
#include "scope_controls.h"

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kSecond = 1000000;
constexpr uint64_t kMinute = 60 * kSecond;
constexpr uint64_t kDay = 24 * 60 * kMinute;

std::string contentOf(std::string const& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// Opens the device's window and waits until the window's sync has copied
/// every byte that zelmorctl lists for the device.
GuiDevice& syncedWindow(SimFleet::Device const& device, fs::path& folder) {
    GuiDevice& window = *openLanDevice(device);
    folder = deviceLogDirectory(localStore().dataDir(), std::stoull(device.serial, nullptr, 16));
    uint64_t listed = 0;
    for (auto const& file : jsonLines(zelmorctl({"--json", "--lan", device.address, "log", "list"})))
        listed += file["size"].get<uint64_t>();
    EXPECT_TRUE(waitFor([&] { return folderBytes(folder) >= listed && !window.syncing() && ready(window); }, 60000))
        << folderBytes(folder) << " of " << listed << " bytes, " << statusOf(window);
    return window;
}

/// The chart that "Data Log" opened.
GuiChart* openedChart() {
    for (wxWindow* window : wxTopLevelWindows)
        if (auto* chart = dynamic_cast<GuiChart*>(window)) return chart;
    return nullptr;
}

}  // namespace

TEST(GuiLogChartTest, ChartsTheSyncedLogZoomsPansAndExports) {
    SimFleet fleet({"--device", "K,serial=5A4C0000000000A2,history=7"});
    fs::path folder;
    GuiDevice& window = syncedWindow(fleet.device(0), folder);
    window.ProcessCommand(GuiDevice::kMenuDataLog);
    GuiChart* const chart = openedChart();
    ASSERT_NE(chart, nullptr);
    EXPECT_EQ(chart->GetTitle(), "Zelmor Data Log");
    ScopeDisplay& display = chart->display();
    uint8_t const model = static_cast<uint8_t>(fleet.device(0).revision);
    // Every record of the copies, which the sync has since left alone.
    ASSERT_GE(chart->records().size(), 7u * 1440);
    EXPECT_EQ(chart->records().size(), folderBytes(folder) / logRecordSize(model));
    // Thirty minutes a division, the newest record at the right edge.
    EXPECT_EQ(display.timePerDivision(), 30 * kMinute);
    EXPECT_EQ(display.startTime() + display.span(), chart->records().back().time * kSecond);

    // A notch away over the plot: twenty minutes a division; with Ctrl, a
    // notch back moves the window one division into the past.
    int const plotLeft = 10 + 50 * 5;
    turnWheel(display, plotLeft + 120, 120, false);
    EXPECT_EQ(display.timePerDivision(), 20 * kMinute);
    uint64_t const start = display.startTime();
    turnWheel(display, plotLeft + 120, -120, true);
    EXPECT_EQ(display.startTime(), start - 20 * kMinute);

    // The export holds the window on show, as zelmorctl writes it from the same copies.
    TempDirectory out;
    wxTEST_DIALOG(clickScopeButton(display, "Export Data"), ExpectSavePath(out.file("chart.csv")));
    std::string const first = std::to_string(display.startTime() / kSecond);
    std::string const last = std::to_string((display.startTime() + display.span()) / kSecond);
    ProgramRun const reference =
        zelmorctl({"log", "export-csv", folder.string(), "--model", fmt::format("{:#x}", model), "--from", first,
                   "--to", last, "-o", out.file("reference.csv")});
    ASSERT_EQ(reference.status, 0) << reference.err;
    std::string const csv = contentOf(out.file("chart.csv"));
    EXPECT_GT(std::count(csv.begin(), csv.end(), '\n'), 40);
    EXPECT_EQ(csv, contentOf(out.file("reference.csv")));

    wxTEST_DIALOG(clickScopeButton(display, "Save Image"), ExpectSavePath(out.file("chart.png")));
    wxImage const image(out.file("chart.png"), wxBITMAP_TYPE_PNG);
    EXPECT_EQ(image.GetSize(), display.GetClientSize());

    // The week at twelve hours a division, with the band of each trace.
    chart->SetClientSize(1200, 720);
    for (int step = 0; step < 5; ++step) display.stepTimeBase(true);
    display.setDataRange(chart->records().front().time * kSecond, chart->records().back().time * kSecond);
    EXPECT_TRUE(waitFor([&] { return display.span() >= 7 * kDay; })) << display.span() / kDay << " days";
    display.Update();
    saveScreenshot(*chart, "log_chart_week");
    window.Close(true);
    EXPECT_TRUE(allWindowsGone());
}

TEST(GuiLogChartTest, AYearAtFiveDaysADivision) {
    SimFleet fleet({"--device", "V,serial=5A4C0000000000A3,history=365"});
    fs::path folder;
    GuiDevice& window = syncedWindow(fleet.device(0), folder);
    window.ProcessCommand(GuiDevice::kMenuDataLog);
    GuiChart* const chart = openedChart();
    ASSERT_NE(chart, nullptr);
    ScopeDisplay& display = chart->display();
    // Seventy-five divisions of five days, wider than any screen: the display
    // renders itself into an image of its size.
    chart->SetClientSize(10 + 50 * 5 + 75 * 60 + 20 + 12, 732);
    for (int step = 0; step < 8; ++step) display.stepTimeBase(true);
    display.setDataRange(chart->records().front().time * kSecond, chart->records().back().time * kSecond);
    ASSERT_TRUE(waitFor([&] { return display.span() >= 365 * kDay; })) << display.span() / kDay << " days";
    fs::path const shots =
        fs::path(wxStandardPaths::Get().GetExecutablePath().utf8_string()).parent_path() / "screenshots";
    fs::create_directories(shots);
    EXPECT_TRUE(display.saveImage().SaveFile((shots / "log_chart_year.png").string(), wxBITMAP_TYPE_PNG));
    window.Close(true);
    EXPECT_TRUE(allWindowsGone());
}
