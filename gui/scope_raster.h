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

    /// Fills the spans (columns from the buffer's left, rows of the display),
    /// clipped to the buffer and to its first `columns` columns, opaque.
    void fill(std::span<ColumnSpan const> spans, wxColour const& colour, size_t columns);

    /// Paints the buffer onto `dc` (a wxGTK drawing context, drawn by cairo).
    void paint(wxDC& dc);

private:
    int x_ = 0;
    int y_ = 0;
    int width_ = 0;
    int height_ = 0;
    void transpose();

    // Premultiplied ARGB in native byte order, cairo's image format. Spans
    // are filled column by column, each column contiguous (a tall span of a
    // long time span is one run of memory), then turned into rows to paint.
    std::vector<uint32_t> columns_;
    std::vector<uint32_t> pixels_;
};
