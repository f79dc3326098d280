#pragma once

#include "skinner/control.h"

#include <array>
#include <functional>

// The equaliser's picture: a grid of octaves by gain steps, the response of
// the bands that have a handle, and one handle per such band that is
// dragged to set the band's centre (across) and gain (up and down). The
// short bar through a handle spans the band's width; dragging one of its
// ends sets the half width. Skin properties: "Normal" (background), colours
// "Line" and "Grid", "CellWidth" (pixels per octave), "FirstCellWidth" (from
// the left edge to the first octave line), "FrequencyBase" (Hz at that
// line), "GainRange" (dB from the middle to the top, default 12), and per
// band "Band1Icon", "Band1Handle" (while dragged), "Band1Color", ...
// A change by the pointer tells the listener on_value_changed.
// Threads: the user-interface thread only. Frequencies in Hz, gains in dB,
// widths in octaves; points are form pixels.
namespace skinner {

class ControlEqualizer : public Control {
public:
    static constexpr int kBands = 3;
    struct Band {
        double frequency = 1000.0;
        double gain = 0.0;
        double half_width = 0.5;
    };
    // The gain in dB that one band gives at a frequency in Hz.
    using Response = std::function<double(const Band& band, double hz)>;

    ControlEqualizer(Container* container, const std::wstring& name, Source source = kByName);

    // The line shows the sum of `response` over the bands with a handle;
    // with none set it stays flat.
    void set_response(Response response);
    // Band `index` 0..2 gets a handle (values limited to what the grid
    // shows), or loses it.
    void add_band(int index, const Band& band);
    void remove_band(int index);
    bool has_band(int index) const;
    // Null when the band has no handle; the control's own, valid until the
    // band next changes.
    const Band* band(int index) const;

    // The mapping between the grid and its values.
    double frequency_at(int x) const;
    int x_of(double hz) const;
    double gain_at(int y) const;
    int y_of(double db) const;
    // Form pixels of a band's handle, and of the right end of its width bar.
    Point handle_point(int index) const;
    Point width_point(int index) const;
    // The sum of the bands' responses at `hz`, in dB.
    double response_at(double hz) const;

    static constexpr double kMinHalfWidth = 0.05;
    static constexpr double kMaxHalfWidth = 2.0;

    void paint(Canvas& canvas, Point clip_position, Point clip_size) override;
    void on_left_down(Point point, int flags) override;
    void on_mouse_move(Point point, int flags) override;
    void on_left_up(Point point, int flags) override;
    void refresh() override;

private:
    enum class Drag { kNone, kHandle, kWidth };
    struct Slot {
        bool present = false;
        Band band;
        Picture icon;
        Picture handle;
        Color color;
    };
    void read_equalizer_properties();
    Band limited(const Band& band) const;
    void paint_grid(Canvas& canvas) const;
    void paint_line(Canvas& canvas) const;
    void paint_band(Canvas& canvas, int index) const;
    // The band and the part of it under `point`; -1 for none.
    int hit_band(Point point, Drag& part) const;
    void drag_to(Point point);

    Picture background_;
    // The background's frame, which the grid, bands and line stay inside.
    Point border_min_, border_max_;
    Color line_color_;
    Color grid_color_;
    int cell_width_ = 26;
    int first_cell_width_ = 19;
    double frequency_base_ = 31.0;
    double gain_range_ = 12.0;
    std::array<Slot, kBands> slots_;
    Response response_;
    Drag drag_ = Drag::kNone;
    int dragged_ = -1;
};

} // namespace skinner
