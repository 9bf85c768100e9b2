#pragma once

#include <wx/bitmap.h>
#include <wx/font.h>
#include <wx/panel.h>
#include <wx/weakref.h>
#include <wx/window.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <vector>

#include "scope_layout.h"
#include "scope_raster.h"

class wxBoxSizer;
class wxToggleButton;

/// A plot in the manner of an oscilloscope screen: a grid of 60 px squares,
/// vertical scales on its left, a time axis with date/time labels along the
/// bottom, coloured traces that buttons switch on and off, and two measuring
/// cursors. It keeps one sample per pixel column of each trace and asks its
/// Listener to refill them whenever the visible time window has changed.
///
/// Its buttons ("Cursors", "Min/Max", "Save Image", "Export Data" and one per
/// trace) sit on a panel of the parent's, buttonPanel(), which the owner puts
/// in its sizer under the display: the plot then has the whole window.
class ScopeDisplay : public wxWindow {
public:
    /// A vertical scale, one column left of the plot; traces refer to it by
    /// name. Its resolution (units per division) is always mantissa ×
    /// 10^exponent with a mantissa of 1, 2 or 5, within [minimum, maximum].
    class VerticalScale {
    public:
        /// Clamps `resolution` into [minimum, maximum] and takes the nearest
        /// step of the 1-2-5 series. Tick labels have the decimals that
        /// resolve 10^labelExponent, at most labelMaxDecimals. The scale's
        /// zero sits `offset` divisions above the bottom grid line, or above
        /// the middle one when `centred`.
        VerticalScale(wxString name, wxString unit, int16_t labelExponent, uint16_t labelMaxDecimals, int32_t offset,
                      bool centred, float resolution, float minimum, float maximum);

        /// One step of the series finer or coarser, unless that leaves
        /// [minimum, maximum].
        void changeResolution(bool finer);

        wxString name;
        wxString unit;
        int16_t labelExponent;
        uint16_t labelMaxDecimals;
        uint16_t resolutionMantissa;
        int16_t resolutionExponent;
        float resolution;
        float minimumResolution;
        float maximumResolution;
        bool centred;
        int32_t offset;
    };

    /// Whoever has the data: the display asks it, from its paint handler on
    /// the GUI thread, for the visible window whenever that has changed.
    class Listener {
    public:
        // Position 0 of the vtable: the averaged samples, one list per trace, each sized to `columns`, NaN where there
        // is no data.
        virtual void requestSamples(uint64_t start, uint64_t end, size_t columns,
                                    std::vector<std::vector<float>>& samples) = 0;
        // The lowest and highest recorded value under each column, per trace (see "the band" in docs/gui.md); the
        // default leaves both empty, which draws no band.
        virtual void requestExtremes(uint64_t start, uint64_t end, size_t columns,
                                     std::vector<std::vector<float>>& lows, std::vector<std::vector<float>>& highs);

    protected:
        ~Listener() = default;
    };

    /// Writes the data of [firstSecond, lastSecond] to `file`, opened for text.
    using ExportCallback = std::function<void(FILE* file, unsigned long firstSecond, unsigned long lastSecond)>;

    /// Takes the parent's style plus `style`, and repaints wholly on resize.
    ScopeDisplay(wxWindow* parent, wxWindowID id = wxID_ANY, wxPoint const& pos = wxDefaultPosition,
                 wxSize const& size = wxDefaultSize, long style = 0);
    ~ScopeDisplay() override;

    /// The panel with the display's buttons, a child of the parent's.
    wxPanel* buttonPanel() const { return panel_.get(); }

    /// Appends a copy of `scale`; one with the name of a scale already there
    /// changes nothing.
    void addVerticalScale(VerticalScale const& scale);
    /// A trace drawn against the scale named `scaleName` (added before), in the next free
    /// colour, with a button that switches it; its cursor readout has the
    /// decimals that resolve 10^readoutExponent, at most readoutMaxDecimals.
    void addTrace(wxString const& name, wxString const& scaleName, int readoutExponent, int readoutMaxDecimals,
                  bool siPrefix);
    void clearTraces();

    /// The times per division (µs) the wheel walks through, and the one in
    /// use: the last for an index past the end.
    void setTimeSteps(std::vector<uint64_t> steps, size_t index);
    void stepTimeBase(bool coarser);
    void goToStart();
    /// Moves the window by the time `pixels` columns cover (a division for 0).
    void pan(bool forward, unsigned pixels);
    /// The data's first and last time (µs); shows the newest data.
    void setDataRange(uint64_t minimum, uint64_t maximum);

    /// The time window on show: its left edge, the time per division and the
    /// time across all divisions, in microseconds.
    uint64_t startTime() const { return start_; }
    uint64_t timePerDivision() const { return timePerDivision_; }
    uint64_t span() const { return span_; }

    void setExportCallback(ExportCallback callback) { exportCallback_ = std::move(callback); }
    void setListener(Listener* listener) { listener_ = listener; }

    /// The whole client area as painted.
    wxBitmap saveImage();

private:
    struct Trace {
        wxString name;
        size_t scale;
        wxColour colour;
        bool enabled;
        wxWindowID buttonId;
        int readoutExponent;
        int readoutMaxDecimals;
        bool siPrefix;
    };
    struct PaletteEntry {
        wxColour colour;
        bool inUse;
    };

    void relayout();
    void showNewest();
    void timeWindowChanged();
    void placeButton(wxWindow* button, size_t position);
    void refitPanel();
    void render(wxDC& dc);
    void drawGrid(wxDC& dc);
    void requestData();
    void drawBands();
    void drawTraces();
    void drawScales(wxDC& dc);
    void drawTimeAxis(wxDC& dc);
    void drawCursors(wxDC& dc);
    int rowOf(float value, VerticalScale const& scale) const;

    void OnPaint(wxPaintEvent& event);
    void OnSize(wxSizeEvent& event);
    void OnMouseWheel(wxMouseEvent& event);
    void OnLeftDown(wxMouseEvent& event);
    void OnRightDown(wxMouseEvent& event);
    void OnButtonUp(wxMouseEvent& event);
    void OnMotion(wxMouseEvent& event);
    void OnCaptureLost(wxMouseCaptureLostEvent& event);
    void OnTraceButton(wxCommandEvent& event);
    void OnCursors(wxCommandEvent& event);
    void OnBand(wxCommandEvent& event);
    void OnSaveImage(wxCommandEvent& event);
    void OnExportData(wxCommandEvent& event);

    std::vector<VerticalScale> scales_;
    std::vector<Trace> traces_;
    std::vector<std::vector<float>> samples_;
    std::vector<std::vector<float>> lows_;
    std::vector<std::vector<float>> highs_;

    wxColour gridColour_;
    wxColour axisColour_;
    wxColour cursorColour_;
    wxColour disabledColour_;
    std::vector<PaletteEntry> palette_;
    wxFont timeFont_;
    wxFont readoutFont_;
    wxFont scaleNameFont_;
    wxFont tickFont_;
    wxFont captionFont_;

    std::vector<uint64_t> timeSteps_;
    size_t timeStepIndex_ = 0;
    uint64_t timePerDivision_ = 1'000'000;
    uint64_t start_ = 0;
    uint64_t minimumTime_ = 0;
    uint64_t maximumTime_ = 0;
    uint64_t span_ = 0;
    ScopeLayout layout_;
    ScopeRaster raster_;
    bool dataDirty_ = true;

    ScopePoint cursor1_;
    ScopePoint cursor2_;
    bool cursorsShown_ = false;
    bool draggingCursor1_ = false;
    bool draggingCursor2_ = false;
    bool bandsShown_ = true;

    Listener* listener_ = nullptr;
    ExportCallback exportCallback_;

    // Weak: the parent may have destroyed it before the display.
    wxWeakRef<wxPanel> panel_;
    wxBoxSizer* panelSizer_ = nullptr;
    wxToggleButton* cursorsButton_ = nullptr;
    wxToggleButton* bandButton_ = nullptr;
};
