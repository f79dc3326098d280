// The Properties handle: typed questions, changes of skin and language.
#include "skinner/properties.h"

#include "liba/fatal.h"
#include "liba/text.h"
#include "os/log.h"
#include "os/path.h"
#include "skinner/canvas.h"

#include <SDL.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <unistd.h>

namespace skinner {

namespace {

std::vector<LiveForm*>& forms()
{
    static std::vector<LiveForm*> list;
    return list;
}

// Skin values times the scale, through double as the engine always did;
// for these small integers it equals the integer product.
int32_t scaled(int32_t value, int scale) { return static_cast<int32_t>(double(value) * scale); }

} // namespace

void add_live_form(LiveForm* form) { forms().push_back(form); }

void remove_live_form(LiveForm* form)
{
    auto& list = forms();
    list.erase(std::remove(list.begin(), list.end(), form), list.end());
}

const std::vector<LiveForm*>& live_forms() { return forms(); }

void report_skin_fatal(const std::wstring& word, const std::wstring& text)
{
    os::log() << word << ": " << text << "\n";
    liba::fatal(word, text, 0);
}

Properties::Properties()
    : impl_(std::make_unique<PropertiesImpl>()), translator_(std::make_unique<liba::StringTranslator>())
{
}

Properties::Properties(const std::wstring& path, Point screen_size)
    : impl_(std::make_unique<PropertiesImpl>(path, screen_size)),
      translator_(std::make_unique<liba::StringTranslator>())
{
}

Properties::~Properties() = default;

void Properties::change_skin(const std::wstring& path, Point screen_size)
{
    impl_ = std::make_unique<PropertiesImpl>(path, screen_size);
    refresh_skin();
}

void Properties::change_skin_and_language(const std::wstring& path, const std::wstring& language_file,
                                          Point screen_size)
{
    translator_ = std::make_unique<liba::StringTranslator>(os::expand_path(language_file));
    change_skin(path, screen_size);
}

bool Properties::load_language(const std::wstring& language_file)
{
    auto fresh = std::make_unique<liba::StringTranslator>();
    if (!fresh->load(os::expand_path(language_file)))
        return false;
    translator_ = std::move(fresh);
    refresh_skin();
    return true;
}

void Properties::refresh_skin()
{
    os::log() << "Properties::refresh_skin() " << impl_->path() << "\n";
    auto start = std::chrono::steady_clock::now();
    impl_->compare_counter = 0;
    impl_->property_counter = 0;
    impl_->found_property_counter = 0;
    // A refresh may open or close forms: walk a snapshot, skipping any that
    // went in the meantime.
    std::vector<LiveForm*> snapshot = live_forms();
    for (LiveForm* form : snapshot) {
        const auto& now = live_forms();
        if (std::find(now.begin(), now.end(), form) != now.end() && form->skin_properties() == this)
            form->on_skin_changed();
    }
    double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    os::log() << "elapsed=" << elapsed << " CompareCounter=" << impl_->compare_counter
              << " PropertyCounter=" << impl_->property_counter
              << " FoundPropertyCounter=" << impl_->found_property_counter << "\n";
}

bool Properties::check_version(const std::wstring& mark, Point size) const
{
    return impl_->check_version(mark, size).ok;
}

bool Properties::check_version(const std::wstring& path, const std::wstring& mark, Point size)
{
    std::string header;
    if (!read_skin_header(path, header))
        return false;
    auto bytes = reinterpret_cast<const uint8_t*>(header.data());
    if (!SkinHeaderView::is_well_formed(bytes, header.size()))
        return false;
    return check_header_version(SkinHeaderView(bytes), mark, size.x, size.y).ok;
}

uint32_t Properties::record(const std::wstring& form, const std::wstring& control, const std::wstring& key,
                            Table table)
{
    ++impl_->property_counter;
    uint32_t node = impl_->control_node(form, control);
    return node ? impl_->find_record(node, table, key) : 0;
}

uint32_t Properties::form_record(const std::wstring& form, const std::wstring& key, Table table)
{
    ++impl_->property_counter;
    return impl_->find_record(impl_->form_node(form), table, key);
}

Picture Properties::picture_at(uint32_t r) const
{
    const uint8_t* p = impl_->description().data() + r;
    // validate() has checked the index against the picture list, and a
    // valid skin has every picture loaded.
    Picture picture = impl_->pictures()[p[kPictureIndexAt]];
    int s = impl_->scale();
    auto corner = [&](int i) {
        return Point{scaled(read_u16(p + kPicturePointsAt + 4 * i), s),
                     scaled(read_u16(p + kPicturePointsAt + 4 * i + 2), s)};
    };
    picture.set_first_corner(corner(0));
    picture.set_band_start(corner(1));
    picture.set_band_end(corner(2));
    picture.set_last_corner(corner(3));
    picture.set_stretch(p[kPictureStretchAt] != 0);
    return picture;
}

Color Properties::get_color(const std::wstring& form, const std::wstring& control, const std::wstring& key, Color def)
{
    uint32_t r = record(form, control, key, Table::kColors);
    if (!r)
        return def;
    const uint8_t* p = impl_->description().data() + r + kColorBytesAt;
    return Color{p[0], p[1], p[2], p[3]};
}

std::wstring Properties::get_string(const std::wstring& form, const std::wstring& control, const std::wstring& key,
                                    const std::wstring& def)
{
    uint32_t r = record(form, control, key, Table::kStrings);
    if (!r)
        return def;
    const SkinDescription& d = impl_->description();
    std::wstring raw = d.text_at(read_u16(d.data() + r + kStringValueAt));
    return translator_->translate(raw, raw);
}

int Properties::get_integer(const std::wstring& form, const std::wstring& control, const std::wstring& key, int def)
{
    uint32_t r = record(form, control, key, Table::kIntegers);
    return r ? read_i32(impl_->description().data() + r + kIntegerValueAt) : def;
}

int Properties::get_scaled_integer(const std::wstring& form, const std::wstring& control, const std::wstring& key,
                                   int def)
{
    uint32_t r = record(form, control, key, Table::kIntegers);
    return r ? scaled(read_i32(impl_->description().data() + r + kIntegerValueAt), impl_->scale()) : def;
}

Point Properties::get_point(const std::wstring& form, const std::wstring& control, const std::wstring& key, Point def)
{
    uint32_t r = record(form, control, key, Table::kPoints);
    if (!r)
        return def;
    const uint8_t* p = impl_->description().data() + r + kPointXAt;
    return {scaled(read_i16(p), impl_->scale()), scaled(read_i16(p + 2), impl_->scale())};
}

int Properties::get_cursor(const std::wstring& form, const std::wstring& control, const std::wstring& key, int def)
{
    uint32_t r = record(form, control, key, Table::kStrings);
    if (!r)
        return def;
    const SkinDescription& d = impl_->description();
    int cursor = cursor_from_name(d.text_at(read_u16(d.data() + r + kStringValueAt)));
    return cursor < 0 ? def : cursor;
}

Picture Properties::get_picture(const std::wstring& form, const std::wstring& control, const std::wstring& key,
                                const Picture& def)
{
    uint32_t r = record(form, control, key, Table::kPictures);
    return r ? picture_at(r) : def;
}

Font Properties::get_font(const std::wstring& form, const std::wstring& control, const std::wstring& key,
                          const Font& def)
{
    uint32_t r = record(form, control, key, Table::kFonts);
    return r ? impl_->fonts()[read_u32(impl_->description().data() + r + kFontIndexAt)] : def;
}

int Properties::get_form_integer(const std::wstring& form, const std::wstring& key, int def)
{
    uint32_t r = form_record(form, key, Table::kIntegers);
    return r ? read_i32(impl_->description().data() + r + kIntegerValueAt) : def;
}

Point Properties::get_form_point(const std::wstring& form, const std::wstring& key, Point def)
{
    uint32_t r = form_record(form, key, Table::kPoints);
    if (!r)
        return def;
    const uint8_t* p = impl_->description().data() + r + kPointXAt;
    return {scaled(read_i16(p), impl_->scale()), scaled(read_i16(p + 2), impl_->scale())};
}

Picture Properties::get_form_picture(const std::wstring& form, const std::wstring& key, const Picture& def)
{
    uint32_t r = form_record(form, key, Table::kPictures);
    return r ? picture_at(r) : def;
}

std::wstring Properties::get_form_string(const std::wstring& form, const std::wstring& key, const std::wstring& def)
{
    uint32_t r = form_record(form, key, Table::kStrings);
    if (!r)
        return def;
    const SkinDescription& d = impl_->description();
    std::wstring raw = d.text_at(read_u16(d.data() + r + kStringValueAt));
    return translator_->translate(raw, raw);
}

Color Properties::get_form_color(const std::wstring& form, const std::wstring& key, Color def)
{
    uint32_t r = form_record(form, key, Table::kColors);
    if (!r)
        return def;
    const uint8_t* p = impl_->description().data() + r + kColorBytesAt;
    return Color{p[0], p[1], p[2], p[3]};
}

Font Properties::get_form_font(const std::wstring& form, const std::wstring& key, const Font& def)
{
    uint32_t r = form_record(form, key, Table::kFonts);
    return r ? impl_->fonts()[read_u32(impl_->description().data() + r + kFontIndexAt)] : def;
}

int Properties::item_count(const std::wstring& form)
{
    return static_cast<int>(impl_->description().item_count(impl_->form_node(form)));
}

std::pair<std::wstring, std::wstring> Properties::item(const std::wstring& form, int index)
{
    uint32_t node = impl_->form_node(form);
    const SkinDescription& d = impl_->description();
    if (index < 0 || static_cast<uint32_t>(index) >= d.item_count(node))
        return {};
    auto [id, kind] = d.item(node, static_cast<uint32_t>(index));
    return {d.text_at(id), d.text_at(kind)};
}

} // namespace skinner
