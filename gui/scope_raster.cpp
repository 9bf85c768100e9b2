#include "scope_raster.h"

#include <wx/graphics.h>

#include <algorithm>

#include <cairo.h>

void ScopeRaster::reset(int x, int y, int width, int height) {
    x_ = x;
    y_ = y;
    width_ = std::max(0, width);
    height_ = std::max(0, height);
    pixels_.assign(static_cast<size_t>(width_) * static_cast<size_t>(height_), 0);
    layers_.clear();
}

void ScopeRaster::fill(std::span<ColumnSpan const> spans, wxColour const& colour, size_t columns) {
    uint32_t const pixel = 0xFF000000u | uint32_t{colour.Red()} << 16 | uint32_t{colour.Green()} << 8 | colour.Blue();
    int const last = static_cast<int>(std::min<size_t>(columns, static_cast<size_t>(width_)));
    layers_.push_back({pixel, last, {spans.begin(), spans.end()}});
}

void ScopeRaster::rasterize() {
    // A tall span runs down a column, a row's width apart in memory. Tiles of
    // columns a cache line wide take every layer in turn, so the lines a
    // tile's spans touch are fetched once rather than once per layer.
    constexpr int kTileColumns = 16;
    std::vector<size_t> next(layers_.size(), 0);
    size_t const width = static_cast<size_t>(width_);
    for (int tileEnd = kTileColumns;; tileEnd += kTileColumns) {
        for (size_t l = 0; l < layers_.size(); ++l) {
            Layer const& layer = layers_[l];
            for (; next[l] < layer.spans.size() && layer.spans[next[l]].column < tileEnd; ++next[l]) {
                ColumnSpan const& span = layer.spans[next[l]];
                if (span.column < 0 || span.column >= layer.columns) continue;
                int const top = std::max(span.top - y_, 0);
                int const bottom = std::min(span.bottom - y_, height_ - 1);
                uint32_t* at = pixels_.data() + static_cast<size_t>(top) * width + static_cast<size_t>(span.column);
                for (int row = top; row <= bottom; ++row, at += width) *at = layer.pixel;
            }
        }
        if (tileEnd >= width_) break;
    }
}

void ScopeRaster::paint(wxDC& dc) {
    if (width_ == 0 || height_ == 0) return;
    rasterize();
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
