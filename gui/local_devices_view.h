#pragma once

#include <wx/listctrl.h>

#include <cstddef>
#include <vector>

#include "local_device_list.h"

/// The "Local Devices" list: a virtual report list whose rows are those of a
/// LocalDeviceList, drawn from its cells when they come into view. The
/// control holds no copy of the rows, so a batch of sightings costs a redraw
/// of the changed rows that are on screen, and nothing for the others.
class LocalDevicesView : public wxListCtrl {
public:
    /// `rows` must outlive the control; it changes only through the calls below.
    LocalDevicesView(wxWindow* parent, LocalDeviceList const& rows);

    /// After LocalDeviceList::take: counts the appended rows in and redraws
    /// the rewritten ones.
    void showChanges(LocalDeviceList::Changes const& changes);
    /// After LocalDeviceList::age: deletes its rows, highest first, so that
    /// the selection stays on the device it was on.
    void removeRows(std::vector<size_t> const& rows);

protected:
    wxString OnGetItemText(long item, long column) const override;

private:
    LocalDeviceList const& rows_;
};
