// A complete paint of the data log chart (the display asks for its columns'
// averages and extremes, then draws grid, bands, traces, scales and labels)
// at the full span of a year of one-second records, against the same paint at
// a one-day span in the same run: a paint should cost what the display shows,
// not what the log holds. The chart is the real GuiChart with its
// ScopeDisplay, painted into an image of the display's size.
#include <wx/app.h>
#include <wx/bitmap.h>
#include <wx/image.h>
#include <wx/init.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "best_rates.h"
#include "gui_chart.h"
#include "local_store_instance.h"
#include "synthetic_log.h"

namespace {

using bench::bestRates;

constexpr uint32_t kFirstSecond = 1735689600;  // 2025-01-01 00:00:00
constexpr uint64_t kSecond = 1000000;
// Seventy-five divisions: a year at five days a division, a day at twenty
// minutes a division.
constexpr int kDivisions = 75;
constexpr int kWidth = 10 + 50 * 5 + kDivisions * 60 + 20;
constexpr int kHeight = 700;
constexpr size_t kColumns = kDivisions * 60;

/// A year of one-second records with a ten-minute pause of the log a day.
std::vector<LogRecord> yearOfRecords(uint32_t seconds) {
    std::vector<LogRecord> records;
    records.reserve(seconds);
    bench::SyntheticLog log;
    uint32_t time = kFirstSecond;
    for (uint32_t i = 0; i < seconds; ++i, ++time) {
        if (i % 86400 == 43200) time += 600;
        records.push_back(log.next(time));
    }
    return records;
}

}  // namespace

int main(int argc, char** argv) {
    bool quick = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--quick") == 0) {
            quick = true;
        } else {
            std::fprintf(stderr, "usage: %s [--quick]\n", argv[0]);
            return 2;
        }
    }
    // The chart takes its records from the store, which lives under $HOME.
    std::string pattern = (std::filesystem::temp_directory_path() / "zelmor-chart-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    setenv("HOME", pattern.c_str(), 1);

    int toolkitArgc = 1;
    char* toolkitArgv[] = {argv[0], nullptr};
    wxApp::SetInstance(new wxApp);
    if (!wxEntryStart(toolkitArgc, toolkitArgv) || !wxTheApp->CallOnInit()) {
        std::fprintf(stderr, "This needs an X display; run it under Xvfb, e.g. xvfb-run -a %s\n", argv[0]);
        return 1;
    }
    uint32_t const seconds = quick ? 10 * 86400 : 365 * 86400;
    localStore().logRecords() = yearOfRecords(seconds);
    auto* chart = new GuiChart(nullptr, "Zelmor Data Log", 0x10);
    ScopeDisplay& display = chart->display();
    chart->Show();
    display.SetSize(kWidth, kHeight);
    uint64_t const first = chart->records().front().time * kSecond;
    uint64_t const last = chart->records().back().time * kSecond;

    // The step index moves from the chart's 30 minutes: one finer is 20
    // minutes, seven coarser is 5 days.
    auto const paintAt = [&](int finer, int coarser) {
        return [&display, first, last, finer, coarser](size_t count) {
            for (int i = 0; i < finer; ++i) display.stepTimeBase(false);
            for (int i = 0; i < coarser; ++i) display.stepTimeBase(true);
            for (size_t i = 0; i < count; ++i) {
                display.setDataRange(first, last);  // the columns are asked for anew
                wxBitmap const image = display.saveImage();
                if (!image.IsOk()) std::abort();
            }
            for (int i = 0; i < finer; ++i) display.stepTimeBase(true);
            for (int i = 0; i < coarser; ++i) display.stepTimeBase(false);
        };
    };
    // The columns alone, as a paint asks the chart for them.
    ScopeDisplay::Listener& listener = *chart;
    auto const columnsOver = [&listener, last](uint64_t span) {
        return [&listener, last, span](size_t count) {
            std::vector<std::vector<float>> samples, lows, highs;
            for (size_t i = 0; i < count; ++i) {
                listener.requestSamples(last - span, last, kColumns, samples);
                listener.requestExtremes(last - span, last, kColumns, lows, highs);
            }
        };
    };
    constexpr uint64_t kMinute = 60 * kSecond;
    std::vector<double> const rates =
        bestRates({paintAt(0, 7), paintAt(1, 0), columnsOver(kDivisions * 5 * 1440 * kMinute),
                   columnsOver(kDivisions * 20 * kMinute)},
                  quick ? 0.2 : 2, quick ? 1 : 5);
    double const full = 1e3 / rates[0];
    double const day = 1e3 / rates[1];
    std::printf("chart paint of %u records (%s), display %d x %d, ms per complete paint\n", seconds,
                quick ? "ten days, --quick" : "a year", kWidth, kHeight);
    std::printf("%-36s %8s  %-36s %8s  %6s  %s\n", "measured", "", "baseline", "", "ratio", "aim");
    std::printf("%-36s %8.2f  %-36s %8.2f  %6.2f  %s\n", "full span, 5 days a division", full,
                "one-day span, 20 minutes a division", day, full / day, "<= 1.5");
    std::printf("%-36s %8.2f  %-36s %8.2f  %6.2f\n", "  of which the columns, full span", 1e3 / rates[2],
                "  of which the columns, one day", 1e3 / rates[3], rates[3] / rates[2]);
    chart->Destroy();
    wxTheApp->OnExit();
    wxEntryCleanup();
    std::filesystem::remove_all(pattern);
    return 0;
}
