#include "network_list_box.h"

#include <wx/listctrl.h>
#include <wx/sizer.h>
#include <wx/statbox.h>

namespace {

// Room for a handful of networks before the list scrolls.
constexpr int kListHeight = 180;

}  // namespace

wxListCtrl* addNetworkList(wxWindow& parent, wxSizer* column, char const* title,
                           std::vector<NetworkListColumn> const& columns) {
    auto* box = new wxStaticBoxSizer(wxVERTICAL, &parent, title);
    int width = 0;
    for (auto const& [heading, pixels] : columns) width += parent.FromDIP(pixels);
    auto* list = new wxListCtrl(box->GetStaticBox(), wxID_ANY, wxDefaultPosition,
                                wxSize(width + parent.FromDIP(8), parent.FromDIP(kListHeight)),
                                wxLC_REPORT | wxLC_SINGLE_SEL, wxDefaultValidator, "networks");
    for (auto const& [heading, pixels] : columns)
        list->AppendColumn(heading, wxLIST_FORMAT_LEFT, parent.FromDIP(pixels));
    box->Add(list, wxSizerFlags(1).Expand().Border(wxALL, 4));
    column->Add(box, wxSizerFlags(1).Expand().Border());
    return list;
}

void setNetworkRow(wxListCtrl* list, long row, std::vector<std::string> const& cells) {
    if (row == list->GetItemCount()) list->InsertItem(row, wxString());
    for (size_t c = 0; c < cells.size(); ++c) list->SetItem(row, static_cast<int>(c), wxString::FromUTF8(cells[c]));
}
