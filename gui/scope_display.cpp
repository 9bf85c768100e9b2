#include "scope_display.h"

#include <wx/button.h>
#include <wx/dcbuffer.h>
#include <wx/dcmemory.h>
#include <wx/filedlg.h>
#include <wx/sizer.h>
#include <wx/tglbtn.h>

#include <algorithm>
#include <cassert>
#include <cmath>
#include <utility>

#include "scope_scale.h"
#include "scope_text.h"
#include "scope_time.h"

namespace {

constexpr int kButtonBorder = 10;
constexpr int kMarkerSize = 8;

wxString utf8(std::string const& text) { return wxString::FromUTF8(text); }

/// The trace's colour, faded toward white: the band behind the trace.
wxColour bandColour(wxColour const& trace) { return trace.ChangeLightness(170); }

}  // namespace

ScopeDisplay::VerticalScale::VerticalScale(wxString name, wxString unit, int16_t labelExponent,
                                           uint16_t labelMaxDecimals, int32_t offset, bool centred, float resolution,
                                           float minimum, float maximum)
    : name(std::move(name)),
      unit(std::move(unit)),
      labelExponent(labelExponent),
      labelMaxDecimals(labelMaxDecimals),
      minimumResolution(minimum),
      maximumResolution(maximum),
      centred(centred),
      offset(offset) {
    ScaleResolution const initial = initialResolution(resolution, minimum, maximum);
    resolutionMantissa = initial.mantissa;
    resolutionExponent = initial.exponent;
    this->resolution = initial.resolution;
}

void ScopeDisplay::VerticalScale::changeResolution(bool finer) {
    if (!isSeriesMantissa(resolutionMantissa)) assert(0);
    auto const next = steppedResolution({resolutionMantissa, resolutionExponent, resolution}, finer, minimumResolution,
                                        maximumResolution);
    if (!next) return;
    resolutionMantissa = next->mantissa;
    resolutionExponent = next->exponent;
    resolution = next->resolution;
}

void ScopeDisplay::Listener::requestExtremes(uint64_t, uint64_t, size_t, std::vector<std::vector<float>>& lows,
                                             std::vector<std::vector<float>>& highs) {
    lows.clear();
    highs.clear();
}

ScopeDisplay::ScopeDisplay(wxWindow* parent, wxWindowID id, wxPoint const& pos, wxSize const& size, long style)
    : gridColour_(190, 190, 190),
      axisColour_(60, 60, 60),
      cursorColour_(90, 90, 90),
      disabledColour_(211, 211, 211),
      palette_{{wxColour(0, 90, 200), false},  {wxColour(210, 30, 30), false},  {wxColour(0, 150, 60), false},
               {wxColour(230, 130, 0), false}, {wxColour(140, 60, 180), false}, {wxColour(0, 160, 170), false},
               {wxColour(150, 90, 40), false}, {wxColour(220, 0, 150), false}},
      timeFont_(wxFontInfo(wxSize(0, 11))),
      readoutFont_(wxFontInfo(9).Bold()),
      scaleNameFont_(wxFontInfo(10).Bold()),
      tickFont_(wxFontInfo(8)),
      captionFont_(wxFontInfo(9)) {
    // The automatically buffered paint context needs this before the window exists.
    SetBackgroundStyle(wxBG_STYLE_PAINT);
    Create(parent, id, pos, size, parent->GetWindowStyle() | style | wxFULL_REPAINT_ON_RESIZE);

    panel_ = new wxPanel(parent);
    panelSizer_ = new wxBoxSizer(wxHORIZONTAL);
    panel_->SetSizer(panelSizer_);
    panelSizer_->AddStretchSpacer();
    cursorsButton_ = new wxToggleButton(panel_, wxID_ANY, "Cursors");
    bandButton_ = new wxToggleButton(panel_, wxID_ANY, "Min/Max");
    bandButton_->SetValue(true);
    auto* const saveButton = new wxButton(panel_, wxID_ANY, "Save Image");
    auto* const exportButton = new wxButton(panel_, wxID_ANY, "Export Data");
    for (wxWindow* button : std::initializer_list<wxWindow*>{cursorsButton_, bandButton_, saveButton, exportButton})
        placeButton(button, panelSizer_->GetItemCount());
    cursorsButton_->Bind(wxEVT_TOGGLEBUTTON, &ScopeDisplay::OnCursors, this);
    bandButton_->Bind(wxEVT_TOGGLEBUTTON, &ScopeDisplay::OnBand, this);
    saveButton->Bind(wxEVT_BUTTON, &ScopeDisplay::OnSaveImage, this);
    exportButton->Bind(wxEVT_BUTTON, &ScopeDisplay::OnExportData, this);
    panelSizer_->Fit(panel_);

    Bind(wxEVT_PAINT, &ScopeDisplay::OnPaint, this);
    Bind(wxEVT_SIZE, &ScopeDisplay::OnSize, this);
    Bind(wxEVT_MOUSEWHEEL, &ScopeDisplay::OnMouseWheel, this);
    Bind(wxEVT_LEFT_DOWN, &ScopeDisplay::OnLeftDown, this);
    Bind(wxEVT_RIGHT_DOWN, &ScopeDisplay::OnRightDown, this);
    Bind(wxEVT_LEFT_UP, &ScopeDisplay::OnButtonUp, this);
    Bind(wxEVT_RIGHT_UP, &ScopeDisplay::OnButtonUp, this);
    Bind(wxEVT_MOTION, &ScopeDisplay::OnMotion, this);
    Bind(wxEVT_MOUSE_CAPTURE_LOST, &ScopeDisplay::OnCaptureLost, this);
    dataDirty_ = true;
}

ScopeDisplay::~ScopeDisplay() {
    // Its buttons call into this display.
    if (panel_) panel_->Destroy();
}

void ScopeDisplay::placeButton(wxWindow* button, size_t position) {
    panelSizer_->Insert(position, button, 0, wxALIGN_CENTRE_VERTICAL | wxALL, kButtonBorder);
}

void ScopeDisplay::refitPanel() {
    // The owner's sizer gives the panel the size its buttons need now.
    panel_->InvalidateBestSize();
    panel_->Layout();
    GetParent()->Layout();
}

void ScopeDisplay::addVerticalScale(VerticalScale const& scale) {
    auto const same = [&scale](VerticalScale const& present) { return present.name == scale.name; };
    if (std::none_of(scales_.begin(), scales_.end(), same)) scales_.push_back(scale);
}

void ScopeDisplay::addTrace(wxString const& name, wxString const& scaleName, int readoutExponent,
                            int readoutMaxDecimals, bool siPrefix) {
    auto const scale = std::find_if(scales_.begin(), scales_.end(),
                                    [&scaleName](VerticalScale const& present) { return present.name == scaleName; });
    wxCHECK_RET(scale != scales_.end(), "a trace needs a vertical scale added before it");
    auto* const button = new wxButton(panel_, wxID_ANY, name);
    placeButton(button, traces_.size());
    button->Bind(wxEVT_BUTTON, &ScopeDisplay::OnTraceButton, this);
    wxColour colour = *wxBLACK;
    auto const free = std::find_if(palette_.begin(), palette_.end(), [](PaletteEntry const& e) { return !e.inUse; });
    if (free != palette_.end()) {
        free->inUse = true;
        colour = free->colour;
    }
    traces_.push_back({name, static_cast<size_t>(scale - scales_.begin()), colour, true, button->GetId(),
                       readoutExponent, readoutMaxDecimals, siPrefix});
    samples_.emplace_back();
    refitPanel();
}

void ScopeDisplay::clearTraces() {
    for (Trace const& trace : traces_) {
        wxWindow* const button = panel_->FindWindow(trace.buttonId);
        button->Unbind(wxEVT_BUTTON, &ScopeDisplay::OnTraceButton, this);
        button->Destroy();
    }
    traces_.clear();
    samples_.clear();
    lows_.clear();
    highs_.clear();
    for (PaletteEntry& entry : palette_) entry.inUse = false;
    refitPanel();
    Refresh();
}

void ScopeDisplay::setTimeSteps(std::vector<uint64_t> steps, size_t index) {
    timeSteps_ = std::move(steps);
    timeStepIndex_ = clampedStepIndex(index, timeSteps_.size());
    if (!timeSteps_.empty()) timePerDivision_ = timeSteps_[timeStepIndex_];
}

void ScopeDisplay::stepTimeBase(bool coarser) {
    if (timeSteps_.empty()) return;
    timeStepIndex_ = steppedIndex(timeStepIndex_, timeSteps_.size(), coarser);
    timePerDivision_ = timeSteps_[timeStepIndex_];
    start_ = roundDownToStep(start_, timePerDivision_);
    timeWindowChanged();
}

void ScopeDisplay::goToStart() {
    start_ = minimumTime_;
    timeWindowChanged();
}

void ScopeDisplay::pan(bool forward, unsigned pixels) {
    start_ = pannedStart(start_, panAmount(timePerDivision_, pixels), forward);
    timeWindowChanged();
}

void ScopeDisplay::setDataRange(uint64_t minimum, uint64_t maximum) {
    minimumTime_ = minimum;
    maximumTime_ = maximum;
    showNewest();
}

wxBitmap ScopeDisplay::saveImage() {
    double const scale = GetContentScaleFactor();
    wxSize const size = GetClientSize();
    if (size.x == 0 || size.y == 0) return wxBitmap();
    wxBitmap bitmap(wxSize(wxRound(size.x * scale), wxRound(size.y * scale)));
    wxMemoryDC dc(bitmap);
    dc.SetUserScale(scale, scale);
    render(dc);
    dc.SelectObject(wxNullBitmap);
    return bitmap;
}

void ScopeDisplay::relayout() {
    wxSize const size = GetClientSize();
    layout_ = scopeLayout(size.x, size.y, scales_.size());
    span_ = scopeSpan(layout_, timePerDivision_);
}

void ScopeDisplay::showNewest() {
    wxSize const size = GetClientSize();
    if (size.x == 0 || size.y == 0) return;
    relayout();
    start_ = newestStart(maximumTime_, span_);
    timeWindowChanged();
}

void ScopeDisplay::timeWindowChanged() {
    dataDirty_ = true;
    Refresh();
}

void ScopeDisplay::render(wxDC& dc) {
    relayout();
    cursor1_ = clampToPlot(cursor1_, layout_);
    cursor2_ = clampToPlot(cursor2_, layout_);
    wxSize const size = GetClientSize();
    dc.SetPen(*wxWHITE_PEN);
    dc.SetBrush(*wxWHITE_BRUSH);
    dc.DrawRectangle(0, 0, size.x, size.y);
    dc.SetTextForeground(axisColour_);
    dc.SetFont(timeFont_);
    drawGrid(dc);
    requestData();
    raster_.reset(layout_.left, layout_.top - 1, static_cast<int>(scopeColumns(layout_)),
                  layout_.bottom - layout_.top + 1);
    if (bandsShown_) drawBands();
    drawTraces();
    raster_.paint(dc);
    drawScales(dc);
    drawTimeAxis(dc);
    if (cursorsShown_) drawCursors(dc);
}

void ScopeDisplay::drawGrid(wxDC& dc) {
    wxPen const grid(gridColour_, 1, wxPENSTYLE_DOT);
    wxPen const tick(axisColour_, 1);
    dc.SetPen(grid);
    for (int i = 1; i <= layout_.verticalDivisions; ++i) {
        int const y = layout_.bottom - kScopeDivisionPixels * i;
        dc.DrawLine(layout_.left, y, layout_.right, y);
    }
    for (int j = 0; j <= layout_.horizontalDivisions; ++j) {
        int const x = layout_.left + kScopeDivisionPixels * j;
        dc.SetPen(grid);
        dc.DrawLine(x, layout_.bottom, x, layout_.top);
        dc.SetPen(tick);
        dc.DrawLine(x, layout_.bottom - 3, x, layout_.bottom + 4);
        wxRect const labelBox(x - kScopeDivisionPixels, layout_.bottom + 4, 2 * kScopeDivisionPixels, 40);
        dc.DrawLabel(utf8(timeLabel(start_ + j * timePerDivision_)), labelBox, wxALIGN_CENTRE_HORIZONTAL | wxALIGN_TOP);
    }
}

void ScopeDisplay::requestData() {
    if (!dataDirty_ || !listener_) return;
    dataDirty_ = false;
    size_t const columns = scopeColumns(layout_);
    listener_->requestSamples(start_, start_ + span_, columns, samples_);
    lows_.clear();
    highs_.clear();
    if (bandsShown_) listener_->requestExtremes(start_, start_ + span_, columns, lows_, highs_);
}

int ScopeDisplay::rowOf(float value, VerticalScale const& scale) const {
    float const base = scaleBase(scale.offset, scale.centred, layout_.verticalDivisions, scale.resolution);
    return valueRow(value, base, scale.resolution, layout_);
}

void ScopeDisplay::drawBands() {
    std::vector<ColumnSpan> spans;
    for (size_t t = 0; t < traces_.size() && t < lows_.size() && t < highs_.size(); ++t) {
        Trace const& trace = traces_[t];
        size_t const columns = drawnColumns(layout_, std::min(lows_[t].size(), highs_[t].size()));
        if (!trace.enabled || columns == 0) continue;
        spans.clear();
        for (size_t c = 0; c < columns; ++c) {
            if (std::isnan(lows_[t][c]) || std::isnan(highs_[t][c])) continue;
            int const low = rowOf(lows_[t][c], scales_[trace.scale]);
            int const high = rowOf(highs_[t][c], scales_[trace.scale]);
            spans.push_back({static_cast<int>(c), std::min(low, high), std::max(low, high)});
        }
        raster_.fill(spans, bandColour(trace.colour), columns);
    }
}

void ScopeDisplay::drawTraces() {
    std::vector<int> rows;
    for (size_t t = 0; t < traces_.size(); ++t) {
        Trace const& trace = traces_[t];
        panel_->FindWindow(trace.buttonId)->SetBackgroundColour(trace.enabled ? trace.colour : disabledColour_);
        size_t const columns = t < samples_.size() ? drawnColumns(layout_, samples_[t].size()) : 0;
        if (!trace.enabled || columns == 0) continue;
        std::vector<float> const& samples = samples_[t];
        VerticalScale const& scale = scales_[trace.scale];
        rows.resize(columns);
        for (size_t c = 0; c < columns; ++c) rows[c] = std::isnan(samples[c]) ? kNoRow : rowOf(samples[c], scale);
        raster_.fill(traceSpans(rows), trace.colour, columns);
    }
}

void ScopeDisplay::drawScales(wxDC& dc) {
    dc.SetTextForeground(*wxBLACK);
    dc.SetBrush(*wxBLACK_BRUSH);
    for (size_t i = 0; i < scales_.size(); ++i) {
        VerticalScale const& scale = scales_[i];
        int const axis = scaleAxisX(i);
        float const base = scaleBase(scale.offset, scale.centred, layout_.verticalDivisions, scale.resolution);
        dc.SetFont(tickFont_);
        dc.SetPen(*wxBLACK_PEN);
        for (int k = 0; k <= layout_.verticalDivisions; ++k) {
            float const value = base + static_cast<float>(k) * scale.resolution;
            int const y = layout_.bottom - kScopeDivisionPixels * k;
            int const half = value == 0 ? 5 : 3;
            dc.DrawLine(axis - half, y, axis + half + 1, y);
            wxString const label = utf8(tickLabel(value, scale.labelExponent, scale.labelMaxDecimals));
            wxSize const extent = dc.GetTextExtent(label);
            dc.DrawText(label, axis - 6 - extent.x, y - extent.y / 2);
        }
        dc.SetPen(wxPen(*wxBLACK, 2));
        dc.DrawLine(axis, layout_.bottom, axis, layout_.top - 4);
        dc.SetPen(*wxBLACK_PEN);
        wxPoint const head[] = {{axis, layout_.top - 20}, {axis - 5, layout_.top - 4}, {axis + 5, layout_.top - 4}};
        dc.DrawPolygon(3, head);
        dc.SetFont(scaleNameFont_);
        dc.DrawText(scale.name, axis - 7 - dc.GetTextExtent(scale.name).x, 0);
    }
}

void ScopeDisplay::drawTimeAxis(wxDC& dc) {
    int const bottom = layout_.bottom;
    int const right = layout_.right;
    dc.SetPen(wxPen(*wxBLACK, 2));
    dc.DrawLine(layout_.left, bottom, right + 4, bottom);
    dc.SetPen(*wxBLACK_PEN);
    dc.SetBrush(*wxBLACK_BRUSH);
    wxPoint const head[] = {{right + 8, bottom}, {right - 4, bottom - 5}, {right - 4, bottom + 5}};
    dc.DrawPolygon(3, head);
    dc.SetFont(captionFont_);
    dc.SetTextForeground(*wxBLACK);
    dc.DrawText("t", right - 2, bottom - 8 - dc.GetCharHeight());
    int const captionY = GetClientSize().y - 25;
    wxString const caption = "Time Scale:";
    dc.DrawText(caption, 10, captionY);
    dc.SetTextForeground(*wxRED);
    dc.DrawText(" " + utf8(timePerDivisionText(timePerDivision_)), 10 + dc.GetTextExtent(caption).x, captionY);
}

void ScopeDisplay::drawCursors(wxDC& dc) {
    dc.SetFont(readoutFont_);
    for (ScopePoint const& cursor : {cursor1_, cursor2_}) {
        dc.SetPen(wxPen(cursorColour_, 1, wxPENSTYLE_SHORT_DASH));
        dc.DrawLine(cursor.x, layout_.top, cursor.x, layout_.bottom);
        size_t const column = static_cast<size_t>(cursor.x - layout_.left);
        std::vector<std::pair<wxString, wxColour>> lines;
        for (size_t t = 0; t < traces_.size(); ++t) {
            Trace const& trace = traces_[t];
            if (!trace.enabled) continue;
            VerticalScale const& scale = scales_[trace.scale];
            float const value = t < samples_.size() && column < samples_[t].size() ? samples_[t][column] : NAN;
            lines.emplace_back(trace.name + ": " +
                                   utf8(readoutText(scale.unit.utf8_string(), trace.readoutExponent,
                                                    trace.readoutMaxDecimals, trace.siPrefix, value)),
                               trace.colour);
            if (std::isnan(value)) continue;
            dc.SetClippingRegion(layout_.left, layout_.top, layout_.right - layout_.left, layout_.bottom - layout_.top);
            dc.SetPen(wxPen(trace.colour, 2));
            dc.SetBrush(*wxWHITE_BRUSH);
            dc.DrawRectangle(cursor.x - kMarkerSize / 2, rowOf(value, scale) - kMarkerSize / 2, kMarkerSize,
                             kMarkerSize);
            dc.DestroyClippingRegion();
        }
        if (lines.empty()) continue;
        // The readout stands right of its cursor, or left of it where the plot ends.
        wxSize block(0, 0);
        for (auto const& line : lines) {
            wxSize const extent = dc.GetTextExtent(line.first);
            block.x = std::max(block.x, extent.x);
            block.y += extent.y;
        }
        block.IncBy(8, 4);
        int const x = cursor.x + 6 + block.x < layout_.right ? cursor.x + 6 : cursor.x - 6 - block.x;
        int const y = std::min(cursor.y, layout_.bottom - block.y);
        dc.SetPen(wxPen(cursorColour_, 1));
        dc.SetBrush(*wxWHITE_BRUSH);
        dc.DrawRectangle(x, y, block.x, block.y);
        int lineY = y + 2;
        for (auto const& line : lines) {
            dc.SetTextForeground(line.second);
            dc.DrawText(line.first, x + 4, lineY);
            lineY += dc.GetTextExtent(line.first).y;
        }
    }
}

void ScopeDisplay::OnPaint(wxPaintEvent&) {
    wxAutoBufferedPaintDC dc(this);
    render(dc);
}

void ScopeDisplay::OnSize(wxSizeEvent& event) {
    showNewest();
    event.Skip();
}

void ScopeDisplay::OnMouseWheel(wxMouseEvent& event) {
    int const delta = event.GetWheelDelta();
    int const ticks = delta == 0 ? 0 : event.GetWheelRotation() / delta;
    int const x = event.GetX();
    if (x >= layout_.left) {
        if (event.ControlDown()) {
            start_ = wheelPannedStart(start_, span_, timePerDivision_, minimumTime_, maximumTime_, ticks);
        } else if (!timeSteps_.empty()) {
            uint64_t const oldSpan = span_;
            timeStepIndex_ = wheelStepIndex(timeStepIndex_, timeSteps_.size(), ticks);
            timePerDivision_ = timeSteps_[timeStepIndex_];
            span_ = scopeSpan(layout_, timePerDivision_);
            start_ = zoomedStart(start_, oldSpan, timePerDivision_, x, layout_);
        }
        dataDirty_ = true;
    } else if (auto const index = scaleIndexAt(x, scales_.size()); index && ticks != 0) {
        VerticalScale& scale = scales_[*index];
        if (event.ControlDown())
            scale.offset += ticks >= 1 ? 1 : -1;
        else
            scale.changeResolution(ticks >= 1);
    }
    Refresh();
}

void ScopeDisplay::OnLeftDown(wxMouseEvent&) {
    if (!HasCapture()) CaptureMouse();
    draggingCursor1_ = true;
}

void ScopeDisplay::OnRightDown(wxMouseEvent&) {
    if (!HasCapture()) CaptureMouse();
    draggingCursor2_ = true;
}

void ScopeDisplay::OnButtonUp(wxMouseEvent& event) {
    (event.GetEventType() == wxEVT_LEFT_UP ? draggingCursor1_ : draggingCursor2_) = false;
    if (!draggingCursor1_ && !draggingCursor2_ && HasCapture()) ReleaseMouse();
}

void ScopeDisplay::OnMotion(wxMouseEvent& event) {
    if (!draggingCursor1_ && !draggingCursor2_) return;
    (draggingCursor1_ ? cursor1_ : cursor2_) = clampToPlot({event.GetX(), event.GetY()}, layout_);
    Refresh();
}

void ScopeDisplay::OnCaptureLost(wxMouseCaptureLostEvent&) { draggingCursor1_ = draggingCursor2_ = false; }

void ScopeDisplay::OnTraceButton(wxCommandEvent& event) {
    auto const trace =
        std::find_if(traces_.begin(), traces_.end(), [&event](Trace const& t) { return t.buttonId == event.GetId(); });
    if (trace == traces_.end()) return;
    trace->enabled = !trace->enabled;
    panel_->FindWindow(trace->buttonId)->SetBackgroundColour(trace->enabled ? trace->colour : disabledColour_);
    Refresh();
}

void ScopeDisplay::OnCursors(wxCommandEvent&) {
    cursorsShown_ = cursorsButton_->GetValue();
    if (cursorsShown_) {
        cursor1_.x = firstCursorX(layout_);
        cursor2_.x = secondCursorX(layout_);
    }
    Refresh();
    Update();
}

void ScopeDisplay::OnBand(wxCommandEvent&) {
    bandsShown_ = bandButton_->GetValue();
    if (bandsShown_) dataDirty_ = true;
    Refresh();
}

void ScopeDisplay::OnSaveImage(wxCommandEvent&) {
    wxFileDialog dialog(this, "Save Image", wxEmptyString, "screenshot.png", "PNG Image File (*.png)|*.png",
                        wxFD_SAVE | wxFD_OVERWRITE_PROMPT);
    if (dialog.ShowModal() != wxID_OK) return;
    saveImage().SaveFile(dialog.GetPath(), wxBITMAP_TYPE_PNG);
}

void ScopeDisplay::OnExportData(wxCommandEvent&) {
    wxFileDialog dialog(this, "Export CSV File", wxEmptyString, "data.csv", "CSV File (*.csv)|*.csv",
                        wxFD_SAVE | wxFD_OVERWRITE_PROMPT);
    if (dialog.ShowModal() != wxID_OK) return;
    FILE* const file = std::fopen(dialog.GetPath().fn_str(), "w");
    if (!file) return;
    if (exportCallback_) exportCallback_(file, start_ / 1'000'000, (start_ + span_) / 1'000'000);
    std::fclose(file);
}
