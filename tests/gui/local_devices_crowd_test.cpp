// "Local Devices" on a busy network: two hundred devices announcing once a
// second, served by zelmor-sim's devices that only announce themselves.
#include <gtest/gtest.h>

#include <wx/dcclient.h>
#include <wx/dcmemory.h>
#include <wx/image.h>

#include <csignal>
#include <map>
#include <set>
#include <string>

#include "gui_user.h"
#include "zelmorctl_fleet.h"

namespace {

constexpr int kSerialColumn = 2;
constexpr int kAddressColumn = 14;

std::string serialAt(wxListCtrl* list, long row) { return cell(list, row, kSerialColumn); }

/// The cells that follow the battery from one announcement to the next: V1, I, P.
std::string readingsAt(wxListCtrl* list, long row) {
    return cell(list, row, 4) + " " + cell(list, row, 6) + " " + cell(list, row, 7);
}

/// The list draws its header and its rows in windows of their own; the rows
/// are drawn at the next idle time after they were counted in.
bool rowsDrawn(wxListCtrl* list) {
    for (wxWindow* part : list->GetChildren())
        if (wxBitmap shot; !showsSomething(*part, shot)) return false;
    return true;
}

/// Each row as "serial at address".
std::set<std::string> listedDevices(wxListCtrl* list) {
    std::set<std::string> listed;
    for (long row = 0; row < list->GetItemCount(); ++row)
        listed.insert(serialAt(list, row) + " at " + cell(list, row, kAddressColumn));
    return listed;
}

TEST(LocalDevicesCrowdTest, TwoHundredDevicesAreListedFollowTheirReadingsAndTheSwitchedOffAgeOut) {
    SimFleet fleet(
        {"--announce-only", "197", "--fall-silent", "50", "--history", "0", "--no-hub", "--firmware", "none"});
    ASSERT_EQ(fleet.size(), 200u);
    std::set<std::string> expected;
    for (size_t i = 0; i < fleet.size(); ++i)
        expected.insert(fleet.device(i).serial + " at " + fleet.device(i).address);
    MainWindowUser user;
    wxListCtrl* const list = user.window.localDevicesList();
    ASSERT_TRUE(waitFor([&] { return list->GetItemCount() == 200; })) << list->GetItemCount();
    EXPECT_EQ(listedDevices(list), expected);
    EXPECT_TRUE(waitFor([&] { return rowsDrawn(list); }));
    saveScreenshot(user.window, "main_window_200_devices");

    // Every row shows its device's newer readings, not the first ones it got.
    std::map<std::string, std::string> first;
    for (long row = 0; row < list->GetItemCount(); ++row) first[serialAt(list, row)] = readingsAt(list, row);
    auto const unchanged = [&] {
        size_t count = 0;
        for (long row = 0; row < list->GetItemCount(); ++row)
            if (first[serialAt(list, row)] == readingsAt(list, row)) ++count;
        return count;
    };
    EXPECT_TRUE(waitFor([&] { return unchanged() == 0; })) << unchanged() << " rows kept their first readings";

    // The selection stays on its device while the rows above it go.
    long selected = list->GetItemCount() - 1;
    auto const switchedOff = [&](std::string const& serial) {
        for (size_t i = 150; i < fleet.size(); ++i)
            if (fleet.device(i).serial == serial) return true;
        return false;
    };
    while (switchedOff(serialAt(list, selected))) --selected;
    std::string const selectedSerial = serialAt(list, selected);
    list->SetItemState(selected, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);

    ASSERT_TRUE(fleet.process().signal(SIGUSR1));
    for (size_t i = 150; i < fleet.size(); ++i)
        expected.erase(fleet.device(i).serial + " at " + fleet.device(i).address);
    ASSERT_TRUE(waitFor([&] { return list->GetItemCount() == 150; })) << list->GetItemCount();
    EXPECT_EQ(listedDevices(list), expected);
    long const stillSelected = list->GetNextItem(-1, wxLIST_NEXT_ALL, wxLIST_STATE_SELECTED);
    ASSERT_GE(stillSelected, 0);
    EXPECT_EQ(serialAt(list, stillSelected), selectedSerial);
}

}  // namespace
