#include "local_devices_view.h"

#include "local_device_cells.h"

LocalDevicesView::LocalDevicesView(wxWindow* parent, LocalDeviceList const& rows)
    : wxListCtrl(parent, wxID_ANY, wxDefaultPosition, wxDefaultSize, wxLC_REPORT | wxLC_SINGLE_SEL | wxLC_VIRTUAL),
      rows_(rows) {
    for (ListColumn const& column : localDeviceColumns())
        AppendColumn(column.title, column.rightAligned ? wxLIST_FORMAT_RIGHT : wxLIST_FORMAT_LEFT, column.width);
}

void LocalDevicesView::showChanges(LocalDeviceList::Changes const& changes) {
    if (changes.added > 0) SetItemCount(static_cast<long>(rows_.entries().size()));
    // Rows out of view cost nothing here: only what is on screen is redrawn.
    for (size_t row : changes.rewritten) RefreshItem(static_cast<long>(row));
}

void LocalDevicesView::removeRows(std::vector<size_t> const& rows) {
    for (size_t row : rows) DeleteItem(static_cast<long>(row));
}

wxString LocalDevicesView::OnGetItemText(long item, long column) const {
    auto const& entries = rows_.entries();
    if (item < 0 || static_cast<size_t>(item) >= entries.size()) return {};
    auto const& cells = entries[static_cast<size_t>(item)].cells;
    return column >= 0 && static_cast<size_t>(column) < cells.size()
               ? wxString::FromUTF8(cells[static_cast<size_t>(column)])
               : wxString();
}
