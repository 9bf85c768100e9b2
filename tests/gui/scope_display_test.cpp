// The scope display as the user sees it: pixels of traces, gaps and bands in
// the image it saves, the time window its owner is asked for after wheel
// turns, and the files "Save Image" and "Export Data" write.
#include <gtest/gtest.h>

#include <wx/button.h>
#include <wx/filedlg.h>
#include <wx/frame.h>
#include <wx/sizer.h>
#include <wx/tglbtn.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>

#include "scope_controls.h"

namespace {

constexpr uint64_t kStep = 2'000'000;
constexpr uint64_t kNewest = 2'000'000'000;
constexpr float kVoltage = 3;
constexpr float kCurrent = 1;
constexpr size_t kSampleGap = 200;
constexpr size_t kBandGap = 300;

/// Voltage and current at one level each, the voltage with a missing column
/// and a band from 2 to 4 but for one column.
class LevelListener final : public ScopeDisplay::Listener {
public:
    void requestSamples(uint64_t from, uint64_t to, size_t columns, std::vector<std::vector<float>>& samples) override {
        start = from;
        end = to;
        ++requests;
        samples = {std::vector<float>(columns, kVoltage), std::vector<float>(columns, kCurrent)};
        samples[0][kSampleGap] = NAN;
    }
    void requestExtremes(uint64_t, uint64_t, size_t columns, std::vector<std::vector<float>>& lows,
                         std::vector<std::vector<float>>& highs) override {
        lows = {std::vector<float>(columns, 2)};
        highs = {std::vector<float>(columns, 4)};
        lows[0][kBandGap] = NAN;
        ++extremeRequests;
    }
    uint64_t start = 0;
    uint64_t end = 0;
    int requests = 0;
    int extremeRequests = 0;
};

/// A frame with the display over its button panel, one voltage scale and two traces.
struct ScopeUser {
    wxFrame& frame = *new wxFrame(nullptr, wxID_ANY, "Scope");
    ScopeDisplay& display = *new ScopeDisplay(&frame, wxID_ANY, wxDefaultPosition, wxSize(800, 400));
    LevelListener listener;

    ScopeUser() {
        auto* const sizer = new wxBoxSizer(wxVERTICAL);
        sizer->Add(&display, 1, wxEXPAND);
        sizer->Add(display.buttonPanel(), 0, wxEXPAND);
        display.addVerticalScale({"V", "V", -1, 1, 0, false, 1, 0.5f, 10});
        display.addVerticalScale({"V", "A", -1, 1, 0, true, 5, 1, 10});  // the name is taken: changes nothing
        display.addTrace("Voltage", "V", -3, 3, true);
        display.addTrace("Current", "V", -3, 3, true);
        display.setTimeSteps({1'000'000, kStep, 5'000'000}, 1);
        display.setListener(&listener);
        frame.SetSizerAndFit(sizer);
        frame.Show();
        display.setDataRange(1'000'000'000, kNewest);
        EXPECT_TRUE(waitFor([this] { return display.GetClientSize().y > 300; }));
    }
    ~ScopeUser() {
        frame.Destroy();
        EXPECT_TRUE(allWindowsGone());
    }

    // The plot by the display's rules, from its size.
    int width() const { return display.GetClientSize().x; }
    int verticalDivisions() const { return (display.GetClientSize().y - 50) / 60; }
    int horizontalDivisions() const { return (width() - 70) / 60; }
    int left() const { return 60; }
    int bottom() const { return 26 + 60 * verticalDivisions(); }
    int row(float value, float base = 0, float resolution = 1) const {
        int const height = bottom() - 25;
        return bottom() - static_cast<int>(std::trunc((value - base) / (verticalDivisions() * resolution) * height));
    }

    wxWindow& button(wxString const& label) { return scopeButton(display, label); }
    void click(wxString const& label) { clickScopeButton(display, label); }
    void wheel(int x, int rotation, bool control) { turnWheel(display, x, rotation, control); }
    wxImage image() { return display.saveImage().ConvertToImage(); }
};

wxColour pixel(wxImage const& image, int x, int y) {
    return {image.GetRed(x, y), image.GetGreen(x, y), image.GetBlue(x, y)};
}

/// Whether a 2 px line of `colour` passes through column x at row y.
bool lineAt(wxImage const& image, int x, int y, wxColour const& colour) {
    return pixel(image, x, y) == colour || pixel(image, x, y - 1) == colour;
}

bool lineNear(wxImage const& image, int x, int y, wxColour const& colour) {
    for (int r = y - 3; r <= y + 3; ++r)
        if (pixel(image, x, r) == colour) return true;
    return false;
}

TEST(ScopeDisplayTest, DrawsTracesWithGapsAndBandsAtTheirValues) {
    ScopeUser user;
    wxImage image = user.image();
    // One scale: the plot's columns start at 60; the newest data stands at the right.
    EXPECT_EQ(user.listener.end, kNewest);
    EXPECT_EQ(user.listener.end - user.listener.start, user.horizontalDivisions() * kStep);
    wxColour const voltage = user.button("Voltage").GetBackgroundColour();
    wxColour const current = user.button("Current").GetBackgroundColour();
    ASSERT_NE(voltage, current);
    int const left = user.left();
    int const gap = left + static_cast<int>(kSampleGap);
    for (int x : {left + 100, gap - 3, gap + 3}) {
        SCOPED_TRACE(x);
        EXPECT_TRUE(lineAt(image, x, user.row(kVoltage), voltage));
        EXPECT_FALSE(lineNear(image, x, user.row(kVoltage) - 6, voltage));
        EXPECT_TRUE(lineAt(image, x, user.row(kCurrent), current));
    }
    EXPECT_FALSE(lineNear(image, gap, user.row(kVoltage), voltage));

    // The band lies between 2 and 4, in a lighter shade of the trace, but
    // where a column has no extremes.
    int const bandX = left + 30;
    std::tuple<int, int, bool> const bandPoints[] = {
        {bandX, (user.row(4) + user.row(kVoltage)) / 2, true},
        {bandX, (user.row(2) + user.row(kVoltage)) / 2, true},
        {bandX, user.row(4) - 3, false},
        {bandX, user.row(2) + 3, false},
        {left + static_cast<int>(kBandGap), user.row(2) - 3, false},
    };
    auto const checkBand = [&](bool shown) {
        for (auto const& [x, y, inside] : bandPoints) {
            SCOPED_TRACE(y);
            wxColour const shade = pixel(image, x, y);
            EXPECT_EQ(shade != *wxWHITE, inside && shown);
            if (!inside || !shown) continue;
            EXPECT_NE(shade, voltage);
            EXPECT_GE(shade.Red() + shade.Green() + shade.Blue(), voltage.Red() + voltage.Green() + voltage.Blue());
        }
    };
    checkBand(true);
    EXPECT_EQ(user.listener.extremeRequests, user.listener.requests);

    user.click("Min/Max");
    user.click("Current");
    image = user.image();
    checkBand(false);
    EXPECT_EQ(user.listener.extremeRequests, 1);
    EXPECT_TRUE(lineAt(image, left + 100, user.row(kVoltage), voltage));
    EXPECT_FALSE(lineNear(image, left + 100, user.row(kCurrent), current));
    EXPECT_EQ(user.button("Current").GetBackgroundColour(), wxColour(211, 211, 211));

    user.click("Min/Max");
    user.click("Current");
    user.click("Cursors");
    image = user.image();
    checkBand(true);
    saveScreenshot(user.frame, "scope_display");
}

TEST(ScopeDisplayTest, WheelZoomsAboutThePointerPansAndScales) {
    ScopeUser user;
    user.image();
    uint64_t const newest = user.listener.start;
    int const x = user.left() + 3 * 60;  // three divisions in
    uint64_t const divisions = user.horizontalDivisions();
    // Each turn in order, and the window asked for at the next paint.
    std::tuple<int, bool, uint64_t, uint64_t> const turns[] = {
        {120, true, newest + kStep, kStep},               // a division on
        {120, true, newest + kStep, kStep},               // the window reaches past the newest data by a division
        {-120, true, newest, kStep},                      //
        {120, false, newest + 3 * 1'000'000, 1'000'000},  // finer: the time under the pointer stays there
        {-120, false, newest, kStep},
    };
    for (auto const& [rotation, control, start, step] : turns) {
        SCOPED_TRACE(testing::Message() << rotation << (control ? " with Ctrl" : ""));
        user.wheel(x, rotation, control);
        user.image();
        EXPECT_EQ(user.listener.start, start);
        EXPECT_EQ(user.listener.end, start + divisions * step);
    }

    wxColour const current = user.button("Current").GetBackgroundColour();
    // Over the scale: its resolution (0.5 at the least) and, with Ctrl, its offset.
    std::tuple<int, bool, float, float> const scaleTurns[] = {
        {120, false, 0, 0.5f}, {120, false, 0, 0.5f}, {120, true, 0.5f, 0.5f},
        {-120, true, 0, 0.5f}, {-120, false, 0, 1},
    };
    for (auto const& [rotation, control, base, resolution] : scaleTurns) {
        SCOPED_TRACE(testing::Message() << rotation << (control ? " with Ctrl" : "") << " to " << resolution);
        user.wheel(30, rotation, control);
        EXPECT_TRUE(lineAt(user.image(), user.left() + 100, user.row(kCurrent, base, resolution), current));
    }
}

TEST(ScopeDisplayTest, SavesItsImageAndExportsTheVisibleSeconds) {
    ScopeUser user;
    user.image();
    std::string directory = std::string(std::getenv("HOME")) + "/scope-XXXXXX";
    ASSERT_TRUE(::mkdtemp(directory.data()));
    wxString const png = directory + "/plot.png";
    wxTEST_DIALOG(user.click("Save Image"), ExpectSavePath(png));
    wxImage const saved(png, wxBITMAP_TYPE_PNG);
    ASSERT_TRUE(saved.IsOk());
    EXPECT_EQ(saved.GetSize(), user.display.GetClientSize());

    unsigned long first = 0;
    unsigned long last = 0;
    user.display.setExportCallback([&first, &last](FILE* file, unsigned long from, unsigned long to) {
        first = from;
        last = to;
        std::fprintf(file, "seconds %lu to %lu\n", from, to);
    });
    std::string const csv = directory + "/data.csv";
    wxTEST_DIALOG(user.click("Export Data"), ExpectSavePath(csv));
    EXPECT_EQ(first, user.listener.start / 1'000'000);
    EXPECT_EQ(last, user.listener.end / 1'000'000);
    std::ifstream written(csv);
    std::stringstream text;
    text << written.rdbuf();
    EXPECT_EQ(text.str(), "seconds " + std::to_string(first) + " to " + std::to_string(last) + "\n");
}

}  // namespace
