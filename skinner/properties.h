#pragma once

#include "liba/nocopy.h"
#include "liba/string_translator.h"
#include "skinner/color.h"
#include "skinner/font.h"
#include "skinner/picture.h"
#include "skinner/skin_description.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// A loaded skin, answering every question of the form "this form, this
// control, this key, else this default" straight out of the compiled
// description, and the translator through which its strings pass.
// Threads: the user-interface thread only; counters and caches are unguarded.
// Points and scaled integers come back in screen pixels (the skin's value
// times `scale`); defaults are returned as given.
namespace skinner {

class Properties;

// A window that shows a skin. Forms enter the process-wide list while they
// live, so that a change of skin or language reaches every open one.
class LiveForm {
public:
    // The skin the form reads; refresh_skin() reaches only forms of its own.
    virtual const Properties* skin_properties() const = 0;
    // Reads everything from the skin again.
    virtual void on_skin_changed() = 0;

protected:
    ~LiveForm() = default;
};
// In order of creation. A form adds itself in its constructor and removes
// itself in its destructor.
void add_live_form(LiveForm* form);
void remove_live_form(LiveForm* form);
const std::vector<LiveForm*>& live_forms();

// The loaded skin. Invalid (no header) or valid, fixed at construction. Kept
// derived from the translator for layout only: its own table stays empty
// and strings go through the translator of the Properties handle.
class PropertiesImpl : public liba::StringTranslator, liba::Nocopy {
public:
    // An invalid, empty skin.
    PropertiesImpl();
    // Loads the skin at `path` (macros allowed): the "skin" entry of its
    // archive, else the whole file as a bare description. `screen_size` is
    // the full screen in pixels; (0,0) means no screen is known, which
    // keeps `scale` 1 and lets every form variant fit.
    PropertiesImpl(const std::wstring& path, Point screen_size);

    bool is_valid() const { return header_ != nullptr; }
    // Why the skin is invalid, for tools; empty when valid.
    const std::wstring& load_error() const { return load_error_; }
    const std::wstring& path() const { return path_; }
    int scale() const { return scale_; }
    Point screen_size() const { return screen_size_; }
    Point work_area() const { return work_area_; }
    const SkinDescription& description() const { return description_; }

    // The compatibility test on this skin's header (false when invalid).
    VersionFit check_version(const std::wstring& mark, Point size) const;

    // Node lookups; each ends the process with the skin's fatal report when
    // the code asks for something the skin lacks.
    uint32_t control_node(const std::wstring& form, const std::wstring& control); // 0: a kind with no name
    uint32_t form_node(const std::wstring& form);
    // The record of `key` in the node's table, 0 if absent.
    uint32_t find_record(uint32_t node, Table table, const std::wstring& key);
    // The form variant chosen for `form`, 0 if none fits (no report).
    uint32_t choose_form(const std::wstring& form);

    const std::vector<Picture>& pictures() const { return pictures_; }
    const std::vector<Font>& fonts() const { return fonts_; }
    // The report of the last variant search, one line per form node.
    const std::wstring& form_search_report() const { return form_report_; }

    // Diagnostics, zeroed by refresh_skin().
    uint32_t compare_counter = 0;
    uint32_t property_counter = 0;
    uint32_t found_property_counter = 0;

private:
    void load();
    bool read_description();
    void choose_scale();
    bool load_pictures_and_fonts();
    void invalidate(const std::wstring& why);
    [[noreturn]] void report_no_skin() const;

    std::wstring path_;
    Point screen_size_;
    Point work_area_;
    SkinDescription description_;
    const uint8_t* header_ = nullptr; // the one sign of validity
    std::vector<Picture> pictures_;
    std::vector<Font> fonts_;
    int scale_ = 1;
    std::wstring load_error_;

    // One-entry caches: the last form, control and kind found (node 0 is a
    // cached failure).
    std::wstring cached_form_name_;
    uint32_t cached_form_ = 0;
    bool form_cached_ = false;
    std::wstring cached_control_name_;
    uint32_t cached_control_ = 0;
    std::wstring cached_kind_name_;
    uint32_t cached_kind_ = 0;
    std::wstring form_report_;
};

// The handle that forms and controls share: the skin and the translator of
// the current language, each replaced whole on a change.
class Properties : liba::Nocopy {
public:
    // An invalid skin and an empty translator.
    Properties();
    // Loads the skin; the translator is empty.
    Properties(const std::wstring& path, Point screen_size);
    ~Properties();

    // A new skin, swapped in, then refresh_skin().
    void change_skin(const std::wstring& path, Point screen_size);
    // A new translator from the language file and a new skin, then refresh_skin().
    void change_skin_and_language(const std::wstring& path, const std::wstring& language_file, Point screen_size);
    // A new translator; false (and nothing changed) when the file can't be
    // loaded. Otherwise swapped in and refresh_skin().
    bool load_language(const std::wstring& language_file);
    // Every live form of this handle reads its skin again.
    void refresh_skin();

    bool check_version(const std::wstring& mark, Point size) const;
    // Reads only the header of the skin at `path` (its archive's "skin"
    // entry, else the file) and applies the same test.
    static bool check_version(const std::wstring& path, const std::wstring& mark, Point size);

    // `form` empty means a kind: `control` names it.
    Color get_color(const std::wstring& form, const std::wstring& control, const std::wstring& key, Color def);
    std::wstring get_string(const std::wstring& form, const std::wstring& control, const std::wstring& key,
                            const std::wstring& def);
    int get_integer(const std::wstring& form, const std::wstring& control, const std::wstring& key, int def);
    int get_scaled_integer(const std::wstring& form, const std::wstring& control, const std::wstring& key, int def);
    Point get_point(const std::wstring& form, const std::wstring& control, const std::wstring& key, Point def);
    // An SDL_SystemCursor value; a name that is no cursor gives `def`.
    int get_cursor(const std::wstring& form, const std::wstring& control, const std::wstring& key, int def);
    Picture get_picture(const std::wstring& form, const std::wstring& control, const std::wstring& key,
                        const Picture& def);
    Font get_font(const std::wstring& form, const std::wstring& control, const std::wstring& key, const Font& def);

    // Read from the chosen variant's own node.
    int get_form_integer(const std::wstring& form, const std::wstring& key, int def);
    Point get_form_point(const std::wstring& form, const std::wstring& key, Point def);
    Picture get_form_picture(const std::wstring& form, const std::wstring& key, const Picture& def);
    std::wstring get_form_string(const std::wstring& form, const std::wstring& key, const std::wstring& def);
    Color get_form_color(const std::wstring& form, const std::wstring& key, Color def);
    Font get_form_font(const std::wstring& form, const std::wstring& key, const Font& def);

    // The chosen variant's item list: (id, kind name) in order of creation.
    int item_count(const std::wstring& form);
    std::pair<std::wstring, std::wstring> item(const std::wstring& form, int index);

    int scale() const { return impl_->scale(); }
    PropertiesImpl& impl() { return *impl_; }
    const PropertiesImpl& impl() const { return *impl_; }
    const liba::StringTranslator& translator() const { return *translator_; }
    const std::wstring& translate(const std::wstring& key) const { return translator_->translate(key); }
    const std::wstring& translate(const std::wstring& key, const std::wstring& def) const
    {
        return translator_->translate(key, def);
    }

private:
    uint32_t record(const std::wstring& form, const std::wstring& control, const std::wstring& key, Table table);
    uint32_t form_record(const std::wstring& form, const std::wstring& key, Table table);
    Picture picture_at(uint32_t record) const;

    std::unique_ptr<PropertiesImpl> impl_;
    std::unique_ptr<liba::StringTranslator> translator_;
};

// The first 540 bytes of the description of the skin at `path`: from the
// first archive entry whose extension is "skin", else from the file itself.
// False when fewer arrive.
bool read_skin_header(const std::wstring& path, std::string& header);

// Ends the process as a skin that contradicts the code must: logs, shows
// `text` under the caption `word` and exits with code 0, unwinding nothing.
[[noreturn]] void report_skin_fatal(const std::wstring& word, const std::wstring& text);

} // namespace skinner
