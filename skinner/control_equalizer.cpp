#include "skinner/control_equalizer.h"

#include "skinner/canvas.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace skinner {

namespace {

constexpr double kGainStep = 6.0; // dB between the grid's rows
const Color kDefaultLine{0xe4, 0x57, 0x2e, 0xff};
const Color kDefaultGrid{0xe3, 0xe8, 0xee, 0xff};

} // namespace

ControlEqualizer::ControlEqualizer(Container* container, const std::wstring& name, Source source)
    : Control(container, name, source)
{
    read_equalizer_properties();
}

void ControlEqualizer::read_equalizer_properties()
{
    line_color_ = kDefaultLine;
    grid_color_ = kDefaultGrid;
    if (source() == kNoSkin)
        return;
    background_ = get_picture(L"Normal", Picture());
    border_min_ = get_point(L"BorderMin", Point{});
    border_max_ = get_point(L"BorderMax", border_min_);
    line_color_ = get_color(L"Line", line_color_);
    grid_color_ = get_color(L"Grid", grid_color_);
    cell_width_ = std::max(1, get_scaled_integer(L"CellWidth", 26));
    first_cell_width_ = get_scaled_integer(L"FirstCellWidth", 19);
    frequency_base_ = std::max(1, get_integer(L"FrequencyBase", 31));
    gain_range_ = std::max(1, get_integer(L"GainRange", 12));
    for (int i = 0; i < kBands; ++i) {
        const std::wstring prefix = L"Band" + std::to_wstring(i + 1);
        Slot& s = slots_[i];
        s.icon = get_picture(prefix + L"Icon", Picture());
        s.handle = get_picture(prefix + L"Handle", s.icon);
        s.color = get_color(prefix + L"Color", line_color_);
    }
}

void ControlEqualizer::refresh()
{
    Control::refresh();
    read_equalizer_properties();
    for (Slot& s : slots_)
        s.band = limited(s.band);
    invalidate();
}

void ControlEqualizer::set_response(Response response)
{
    response_ = std::move(response);
    invalidate();
}

void ControlEqualizer::add_band(int index, const Band& band)
{
    if (index < 0 || index >= kBands)
        return;
    slots_[index].present = true;
    slots_[index].band = limited(band);
    invalidate();
}

void ControlEqualizer::remove_band(int index)
{
    if (index < 0 || index >= kBands)
        return;
    slots_[index].present = false;
    if (dragged_ == index)
        drag_ = Drag::kNone;
    invalidate();
}

bool ControlEqualizer::has_band(int index) const
{
    return index >= 0 && index < kBands && slots_[index].present;
}

const ControlEqualizer::Band* ControlEqualizer::band(int index) const
{
    return has_band(index) ? &slots_[index].band : nullptr;
}

ControlEqualizer::Band ControlEqualizer::limited(const Band& band) const
{
    Band b = band;
    const double low = frequency_at(position().x);
    const double high = frequency_at(position().x + size().x - 1);
    if (!(b.frequency >= low))
        b.frequency = low;
    b.frequency = std::min(b.frequency, high);
    b.gain = std::clamp(b.gain, -gain_range_, gain_range_);
    b.half_width = std::clamp(b.half_width, kMinHalfWidth, kMaxHalfWidth);
    return b;
}

double ControlEqualizer::frequency_at(int x) const
{
    const double octaves = double(x - position().x - first_cell_width_) / cell_width_;
    return frequency_base_ * std::exp2(octaves);
}

int ControlEqualizer::x_of(double hz) const
{
    return position().x + first_cell_width_ + int(std::lround(cell_width_ * std::log2(hz / frequency_base_)));
}

// The grid spans the height less a pixel at each edge, so the top and
// bottom gains stay inside the control.
double ControlEqualizer::gain_at(int y) const
{
    const double half = std::max(1, size().y / 2 - 1);
    const int middle = position().y + size().y / 2;
    return std::clamp((middle - y) * gain_range_ / half, -gain_range_, gain_range_);
}

int ControlEqualizer::y_of(double db) const
{
    const double half = std::max(1, size().y / 2 - 1);
    const int middle = position().y + size().y / 2;
    return middle - int(std::lround(std::clamp(db, -gain_range_, gain_range_) * half / gain_range_));
}

Point ControlEqualizer::handle_point(int index) const
{
    const Band& b = slots_[index].band;
    return {x_of(b.frequency), y_of(b.gain)};
}

Point ControlEqualizer::width_point(int index) const
{
    const Band& b = slots_[index].band;
    return {x_of(b.frequency * std::exp2(b.half_width)), y_of(b.gain)};
}

double ControlEqualizer::response_at(double hz) const
{
    double db = 0.0;
    if (!response_)
        return db;
    for (const Slot& s : slots_) {
        if (s.present)
            db += response_(s.band, hz);
    }
    return db;
}

void ControlEqualizer::paint(Canvas& canvas, Point clip_position, Point clip_size)
{
    background_.draw(canvas, position(), size());
    canvas.push_clip(position() + border_min_, size() - border_min_ - border_max_);
    paint_grid(canvas);
    for (int i = 0; i < kBands; ++i) {
        if (slots_[i].present)
            paint_band(canvas, i);
    }
    // Over the handles, so the line shows where it meets them.
    paint_line(canvas);
    canvas.pop_clip();
    Control::paint(canvas, clip_position, clip_size);
}

void ControlEqualizer::paint_grid(Canvas& canvas) const
{
    const Point p = position();
    const Point s = size();
    for (int x = p.x + first_cell_width_; x < p.x + s.x; x += cell_width_)
        canvas.fill_rect({x, p.y}, {1, s.y}, grid_color_);
    for (double db = -gain_range_ + std::fmod(gain_range_, kGainStep); db <= gain_range_; db += kGainStep)
        canvas.fill_rect({p.x, y_of(db)}, {s.x, 1}, grid_color_);
}

void ControlEqualizer::paint_line(Canvas& canvas) const
{
    const int thick = std::max(1, scale());
    const int right = position().x + size().x;
    Point last{position().x, y_of(response_at(frequency_at(position().x)))};
    for (int x = position().x + 1; x < right; ++x) {
        const Point at{x, y_of(response_at(frequency_at(x)))};
        for (int k = 0; k < thick; ++k)
            canvas.line({last.x, last.y + k}, {at.x, at.y + k}, line_color_);
        last = at;
    }
    canvas.fill_rect(last, {1, thick}, line_color_);
}

void ControlEqualizer::paint_band(Canvas& canvas, int index) const
{
    const Slot& s = slots_[index];
    const Point centre = handle_point(index);
    const int left = x_of(s.band.frequency * std::exp2(-s.band.half_width));
    const int right = width_point(index).x;
    const int thick = std::max(1, scale());
    canvas.fill_rect({left, centre.y}, {right - left + 1, thick}, s.color);
    for (int end : {left, right})
        canvas.fill_rect({end, centre.y - 3 * thick}, {thick, 7 * thick}, s.color);
    const Picture& picture = drag_ != Drag::kNone && dragged_ == index ? s.handle : s.icon;
    const Point n = picture.natural_size();
    picture.draw(canvas, {centre.x - n.x / 2, centre.y - n.y / 2}, n);
}

int ControlEqualizer::hit_band(Point point, Drag& part) const
{
    const int reach = 6 * std::max(1, scale());
    int best = -1;
    int best_distance = 0;
    for (int i = 0; i < kBands; ++i) {
        if (!slots_[i].present)
            continue;
        const Point centre = handle_point(i);
        const int left = x_of(slots_[i].band.frequency * std::exp2(-slots_[i].band.half_width));
        const std::pair<Point, Drag> targets[] = {
            {centre, Drag::kHandle}, {{left, centre.y}, Drag::kWidth}, {width_point(i), Drag::kWidth}};
        for (const auto& [target, kind] : targets) {
            const int d = std::max(std::abs(point.x - target.x), std::abs(point.y - target.y));
            // The handle wins a tie: it lies on top.
            if (d <= reach && (best < 0 || d < best_distance)) {
                best = i;
                best_distance = d;
                part = kind;
            }
        }
    }
    return best;
}

void ControlEqualizer::on_left_down(Point point, int flags)
{
    if (flags & kDoubleFlag)
        return;
    Drag part = Drag::kNone;
    const int index = hit_band(point, part);
    if (index < 0)
        return;
    dragged_ = index;
    drag_ = part;
    invalidate();
}

void ControlEqualizer::on_mouse_move(Point point, int)
{
    if (drag_ != Drag::kNone)
        drag_to(point);
}

void ControlEqualizer::on_left_up(Point point, int)
{
    if (drag_ == Drag::kNone)
        return;
    drag_to(point);
    drag_ = Drag::kNone;
    invalidate();
}

void ControlEqualizer::drag_to(Point point)
{
    Band b = slots_[dragged_].band;
    if (drag_ == Drag::kHandle) {
        b.frequency = frequency_at(point.x);
        b.gain = gain_at(point.y);
    } else {
        b.half_width = std::abs(std::log2(frequency_at(point.x) / b.frequency));
    }
    b = limited(b);
    const Band& old = slots_[dragged_].band;
    if (b.frequency == old.frequency && b.gain == old.gain && b.half_width == old.half_width)
        return;
    slots_[dragged_].band = b;
    invalidate();
    on_value_changed(this);
}

} // namespace skinner
