#pragma once

#include <wx/colour.h>
#include <wx/dc.h>

#include <cstdint>
#include <span>
#include <vector>

#include "scope_spans.h"

/// The plot's traces and bands as pixels: spans are filled straight into a
/// buffer the size of the plot, which is then painted over the grid in one
/// step. A paint so costs a fixed amount per pixel column, however tall and
/// jagged a long span's bands and traces are; stroking them as paths costs
/// the drawing library time for every turn of the line.
class ScopeRaster {
public:
    /// A transparent buffer of `width` × `height` pixels whose top-left pixel
    /// stands at (x, y) of the display.
    void reset(int x, int y, int width, int height);

    /// Fills the spans (columns from the buffer's left in rising order, rows
    /// of the display), clipped to the buffer and to its first `columns`
    /// columns, opaque, over what earlier fills left.
    void fill(std::span<ColumnSpan const> spans, wxColour const& colour, size_t columns);

    /// Paints the buffer onto `dc` (a wxGTK drawing context, drawn by cairo).
    void paint(wxDC& dc);

private:
    struct Layer {
        uint32_t pixel;
        int columns;
        std::vector<ColumnSpan> spans;
    };

    void rasterize();

    int x_ = 0;
    int y_ = 0;
    int width_ = 0;
    int height_ = 0;
    // The fills, kept until the paint writes them all at once.
    std::vector<Layer> layers_;
    // Premultiplied ARGB in native byte order, cairo's image format.
    std::vector<uint32_t> pixels_;
};
