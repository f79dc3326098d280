#include "skinner/menu_drop_down.h"

#include "os/log.h"
#include "skinner/font.h"
#include "skinner/properties.h"

#include <algorithm>

namespace skinner {

namespace {

const wchar_t kLook[] = L"SubMenu";

int skin_row_height(Properties& p) { return p.get_form_integer(kLook, L"ItemHeight", 22) * p.scale(); }

// Points come back scaled; the skin's width, rows as many as the entries.
Point drop_size(Properties& p, const MenuRecord& menu)
{
    int rows = std::max(1, int(menu.sub_items.size()));
    return {p.get_form_point(kLook, L"Size", {140 * p.scale(), 0}).x, rows * skin_row_height(p)};
}

} // namespace

// The entries, drawn over the form's background; the pressed row is lit.
class MenuDropDown::Rows : public Control {
public:
    explicit Rows(MenuDropDown* owner) : Control(owner, L"", kNoSkin), owner_(owner)
    {
        set_want_focus(false);
        Properties& p = owner->properties();
        highlight_ = p.get_form_picture(kLook, L"Highlight", Picture());
        font_ = p.get_form_font(kLook, L"Normal", Font(p.scale()));
        normal_ = p.get_form_color(kLook, L"Normal", Color());
        lit_ = p.get_form_color(kLook, L"Highlighted", normal_);
        disabled_ = p.get_form_color(kLook, L"Disabled", normal_);
        separator_ = p.get_form_color(kLook, L"Separator", disabled_);
    }
    void paint(Canvas& canvas, Point clip_position, Point clip_size) override
    {
        const auto& items = owner_->menu_.sub_items;
        int h = owner_->row_height_;
        int w = size().x;
        int pad = h / 3;
        for (int i = 0; i < int(items.size()); ++i) {
            Point at{0, i * h};
            bool lit = i == pressed_ && items[size_t(i)].enabled;
            if (lit)
                draw_highlight(canvas, at.y, h);
            Color c = !items[size_t(i)].enabled ? disabled_ : lit ? lit_ : normal_;
            font_.draw_text(canvas, c, items[size_t(i)].text, {at.x + pad, at.y}, {w - 2 * pad, h}, kAlignLeft, kAlignVCenter);
            if (items[size_t(i)].separator && i + 1 < int(items.size()))
                canvas.line({pad, at.y + h - 1}, {w - pad, at.y + h - 1}, separator_);
        }
        Control::paint(canvas, clip_position, clip_size);
    }
    // The lit row within the frame, whose border (one skin pixel) stays
    // drawn round the first and last rows too.
    void draw_highlight(Canvas& canvas, int top, int height)
    {
        const int border = owner_->properties().scale();
        const int y0 = std::max(top, border);
        const int y1 = std::min(top + height, size().y - border);
        if (y1 > y0)
            highlight_.draw(canvas, {border, y0}, {size().x - 2 * border, y1 - y0});
    }
    void on_left_down(Point p, int) override { press(owner_->row_at(p)); }
    void on_mouse_move(Point p, int) override
    {
        if (pressed_ >= 0)
            press(owner_->row_at(p));
    }
    void on_left_up(Point p, int) override
    {
        press(-1);
        owner_->choose(owner_->row_at(p));
    }

    int pressed() const { return pressed_; }
    void press(int row)
    {
        if (row == pressed_)
            return;
        pressed_ = row;
        invalidate();
    }

    MenuDropDown* owner_;
    Picture highlight_;
    Font font_;
    Color normal_, lit_, disabled_, separator_;
    int pressed_ = -1;
};

MenuDropDown::MenuDropDown(Form* owner, Properties& properties, const MenuRecord& menu, Point bottom_left)
    : FormCombo(owner, properties, kLook, {bottom_left.x, bottom_left.y - drop_size(properties, menu).y},
                drop_size(properties, menu)),
      menu_(menu), row_height_(skin_row_height(properties))
{
    rows_ = std::make_unique<Rows>(this);
    rows_->set_rect({0, 0}, size());
    invalidate_all();
}

MenuDropDown::~MenuDropDown() { rows_.reset(); }

int MenuDropDown::highlighted() const
{
    int row = rows_->pressed();
    return row >= 0 && row < int(menu_.sub_items.size()) && menu_.sub_items[size_t(row)].enabled ? row : -1;
}

void MenuDropDown::set_highlighted(int row)
{
    bool lit = row >= 0 && row < int(menu_.sub_items.size()) && menu_.sub_items[size_t(row)].enabled;
    rows_->press(lit ? row : -1);
}

int MenuDropDown::next_enabled(int row, int step) const
{
    const int n = int(menu_.sub_items.size());
    // From none, Down finds the first entry and Up the last.
    int at = row < 0 ? (step > 0 ? -1 : n) : row;
    for (int i = 0; i < n; ++i) {
        at = ((at + step) % n + n) % n;
        if (menu_.sub_items[size_t(at)].enabled)
            return at;
    }
    return -1;
}

bool MenuDropDown::on_keydown(int key)
{
    switch (key) {
    case kKeyUp:
    case kKeyDown:
        set_highlighted(next_enabled(highlighted(), key == kKeyDown ? 1 : -1));
        return true;
    case kKeyEnter:
    case kKeySpace:
        choose(highlighted());
        return true;
    case kKeyEscape:
        close();
        return true;
    case kKeyLeft:
    case kKeyRight:
        if (neighbour_)
            neighbour_(key == kKeyRight ? 1 : -1);
        return true;
    default:
        return FormCombo::on_keydown(key);
    }
}

int MenuDropDown::row_at(Point point) const
{
    if (point.x < 0 || point.y < 0 || point.x >= size().x || row_height_ <= 0)
        return -1;
    int row = point.y / row_height_;
    return row < int(menu_.sub_items.size()) ? row : -1;
}

void MenuDropDown::choose(int row)
{
    if (row < 0 || !menu_.sub_items[size_t(row)].enabled)
        return;
    MenuRecord entry = menu_.sub_items[size_t(row)];
    Listener* receiver = entry.receiver ? entry.receiver : menu_.receiver;
    os::log() << "menu: " << entry.id << "\n";
    close();
    if (receiver)
        receiver->on_command(entry.id);
}

} // namespace skinner
