#include "scope_raster.h"

#include <wx/graphics.h>

#include <algorithm>

#include <cairo.h>

void ScopeRaster::reset(int x, int y, int width, int height) {
    x_ = x;
    y_ = y;
    width_ = std::max(0, width);
    height_ = std::max(0, height);
    size_t const size = static_cast<size_t>(width_) * static_cast<size_t>(height_);
    columns_.assign(size, 0);
    pixels_.resize(size);
}

void ScopeRaster::fill(std::span<ColumnSpan const> spans, wxColour const& colour, size_t columns) {
    uint32_t const pixel = 0xFF000000u | uint32_t{colour.Red()} << 16 | uint32_t{colour.Green()} << 8 | colour.Blue();
    int const last = static_cast<int>(std::min<size_t>(columns, static_cast<size_t>(width_)));
    for (ColumnSpan const& span : spans) {
        if (span.column < 0 || span.column >= last) continue;
        int const top = std::max(span.top - y_, 0);
        int const bottom = std::min(span.bottom - y_, height_ - 1);
        if (top > bottom) continue;
        std::fill_n(columns_.data() + static_cast<size_t>(span.column) * static_cast<size_t>(height_) + top,
                    bottom - top + 1, pixel);
    }
}

void ScopeRaster::transpose() {
    // In square tiles, so that both the reads and the writes stay within a
    // few cache lines.
    constexpr int kTile = 16;
    size_t const width = static_cast<size_t>(width_);
    size_t const height = static_cast<size_t>(height_);
    for (size_t column0 = 0; column0 < width; column0 += kTile) {
        size_t const columnEnd = std::min(column0 + kTile, width);
        for (size_t row0 = 0; row0 < height; row0 += kTile) {
            size_t const rowEnd = std::min(row0 + kTile, height);
            for (size_t column = column0; column < columnEnd; ++column)
                for (size_t row = row0; row < rowEnd; ++row)
                    pixels_[row * width + column] = columns_[column * height + row];
        }
    }
}

void ScopeRaster::paint(wxDC& dc) {
    if (width_ == 0 || height_ == 0) return;
    transpose();
    // Every wxGTK 3 drawing context draws through cairo.
    wxGraphicsContext* const graphics = dc.GetGraphicsContext();
    wxCHECK_RET(graphics, "the plot is painted through a graphics context");
    auto* const cairo = static_cast<cairo_t*>(graphics->GetNativeContext());
    cairo_surface_t* const surface = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(pixels_.data()), CAIRO_FORMAT_ARGB32, width_, height_, width_ * 4);
    cairo_save(cairo);
    cairo_set_source_surface(cairo, surface, x_, y_);
    cairo_pattern_set_filter(cairo_get_source(cairo), CAIRO_FILTER_NEAREST);
    cairo_rectangle(cairo, x_, y_, width_, height_);
    cairo_fill(cairo);
    cairo_restore(cairo);
    cairo_surface_destroy(surface);
}
