// Loading a skin and finding its nodes: PropertiesImpl.
#include "skinner/properties.h"

#include "liba/text.h"
#include "liba/zip_file.h"
#include "os/file.h"
#include "os/log.h"
#include "os/path.h"

namespace skinner {

namespace {

// A description is at most a few hundred kilobytes; anything far larger is
// no skin and is not read into memory.
constexpr uint64_t kMaxDescriptionSize = 64u << 20;

bool is_skin_entry(const std::wstring& name) { return liba::to_lower(os::extension_of(name)) == L"skin"; }

std::wstring pair_text(Point p) { return liba::int_to_text(p.x) + L"," + liba::int_to_text(p.y); }

void log_record_sizes()
{
    struct Size {
        const char* name;
        size_t size;
    };
    const Size sizes[] = {{"IntegerNode", kIntegerNodeSize},
                          {"PointNode", kPointNodeSize},
                          {"ColorNode", kColorNodeSize},
                          {"StringNode", kStringNodeSize},
                          {"PictureNode", kPictureNodeSize}};
    for (const Size& s : sizes)
        os::log() << s.name << "::Size=" << s.size << " sizeof(" << s.name << ")=" << s.size << "\n";
}

} // namespace

bool read_skin_header(const std::wstring& path, std::string& header)
{
    std::wstring expanded = os::expand_path(path);
    header.assign(kSkinHeaderSize, '\0');
    liba::ZipFile zip(expanded);
    for (std::wstring entry = zip.next_entry(); !entry.empty(); entry = zip.next_entry())
        if (is_skin_entry(entry))
            return zip.read(header.data(), header.size()) == header.size();
    os::File file(expanded, os::File::kRead);
    return file.read(header.data(), header.size()) == header.size();
}

PropertiesImpl::PropertiesImpl() { load_error_ = L"no skin loaded"; }

PropertiesImpl::PropertiesImpl(const std::wstring& path, Point screen_size)
    : path_(path), screen_size_(screen_size), work_area_(screen_size)
{
    // The work area is the whole screen: the menu bar stands in a strip of
    // the window below it.
    log_record_sizes();
    load();
}

void PropertiesImpl::invalidate(const std::wstring& why)
{
    header_ = nullptr;
    load_error_ = why;
}

void PropertiesImpl::load()
{
    if (!read_description())
        return;
    std::wstring why;
    if (!description_.validate(&why)) {
        invalidate(why);
        return;
    }
    header_ = description_.data();
    choose_scale();
    load_pictures_and_fonts();
}

bool PropertiesImpl::read_description()
{
    std::wstring expanded = os::expand_path(path_);
    liba::ZipFile zip(expanded);
    for (std::wstring entry = zip.next_entry(); !entry.empty(); entry = zip.next_entry()) {
        if (!is_skin_entry(entry))
            continue;
        if (zip.size() > kMaxDescriptionSize) {
            invalidate(L"its description is too large");
            return false;
        }
        std::string bytes(zip.size(), '\0');
        size_t got = zip.read(bytes.data(), bytes.size());
        if (got < bytes.size()) {
            os::log() << "Error: skin [" << path_ << "] failed to load from archive\n";
            // An archive cut inside its description: whatever arrived is no
            // whole skin, and a skin that reads as far as it goes would show
            // half a layout.
            invalidate(L"the archive ends inside its description entry " + entry);
            return false;
        }
        description_ = SkinDescription(std::move(bytes));
        return true;
    }
    zip.close();

    // No "skin" entry: a bare description, or an archive the chain can't
    // read (compressed, broken), which then fails the magic test.
    os::File file(expanded, os::File::kRead);
    if (!file.is_open()) {
        invalidate(L"can't open it");
        return false;
    }
    int64_t size = file.size();
    if (size < 0 || uint64_t(size) > kMaxDescriptionSize) {
        invalidate(L"it is too large for a skin");
        return false;
    }
    std::string bytes(static_cast<size_t>(size), '\0');
    size_t got = file.read(bytes.data(), bytes.size());
    if (got < bytes.size()) {
        os::log() << "Error: skin [" << path_ << "] failed to load\n";
        bytes.resize(got);
    }
    description_ = SkinDescription(std::move(bytes));
    if (!SkinHeaderView::is_well_formed(description_.data(), description_.size())) {
        invalidate(description_.size() < kSkinHeaderSize
                       ? L"no skin entry in an archive, and too short for a bare description"
                       : L"neither an archive with a skin entry nor a skin description");
        return false;
    }
    return true;
}

VersionFit PropertiesImpl::check_version(const std::wstring& mark, Point size) const
{
    if (!header_)
        return {};
    return check_header_version(SkinHeaderView(header_), mark, size.x, size.y);
}

void PropertiesImpl::choose_scale()
{
    SkinHeaderView header(header_);
    NativeSize first = header.native_size(0);
    if ((screen_size_.x == 0 && screen_size_.y == 0) || first.width == 0 || first.height == 0)
        return;
    VersionFit fit = check_version(L"", screen_size_);
    if (fit.ok) {
        scale_ = fit.scale;
        return;
    }
    // The best fit: the least room left over, width counting per line.
    int64_t W = screen_size_.x, H = screen_size_.y;
    int64_t best = (W + 1) * H;
    for (int s = 1; s <= 4; ++s)
        for (int i = 0; i < kNativeSizeSlots; ++i) {
            NativeSize n = header.native_size(i);
            int64_t d = (W - int64_t(n.width) * s) * H;
            int64_t e = H - int64_t(n.height) * s;
            if (d >= 0 && e >= 0 && d + e < best) {
                best = d + e;
                scale_ = s;
            }
        }
}

bool PropertiesImpl::load_pictures_and_fonts()
{
    SkinHeaderView header(header_);
    std::vector<std::wstring> pool = description_.pool_strings();
    uint32_t picture_count = header.picture_count();
    for (uint32_t i = 0; i < picture_count && i < pool.size(); ++i) {
        Picture p(path_, pool[i], true, scale_);
        if (!p.is_valid()) {
            os::log() << "PropertiesImpl::PropertiesImpl picture failed to load {" << pool[i] << "}\n";
            invalidate(L"the picture " + pool[i] + L" failed to load");
            pictures_.clear();
            return false;
        }
        pictures_.push_back(p);
    }
    for (size_t i = picture_count; i < pool.size(); ++i) {
        Font f(scale_);
        f.parse(pool[i]);
        fonts_.push_back(f);
    }
    return true;
}

uint32_t PropertiesImpl::find_record(uint32_t node, Table table, const std::wstring& key)
{
    uint32_t r = description_.find_record(node, table, key, &compare_counter);
    if (r)
        ++found_property_counter;
    return r;
}

uint32_t PropertiesImpl::choose_form(const std::wstring& form)
{
    if (form_cached_ && form == cached_form_name_)
        return cached_form_;
    form_cached_ = true;
    cached_form_name_ = form;
    cached_form_ = 0;
    cached_control_name_.clear();
    cached_control_ = 0;
    form_report_.clear();
    if (form.empty() || !header_)
        return 0;

    Point best;
    for (uint32_t node : description_.preorder(SkinHeaderView(header_).form_tree())) {
        std::wstring name = description_.text_at(description_.name(node));
        if (!description_.starts_with_at(description_.name(node), form)) {
            form_report_ += L"-" + name + L"\n";
            continue;
        }
        form_report_ += L"+" + name;
        Point size;
        if (uint32_t r = find_record(node, Table::kPoints, L"Size"))
            size = {static_cast<int32_t>(double(read_i16(description_.data() + r + kPointXAt)) * scale_),
                    static_cast<int32_t>(double(read_i16(description_.data() + r + kPointXAt + 2)) * scale_)};
        std::wstring devices;
        if (uint32_t r = find_record(node, Table::kStrings, L"Devices"))
            devices = description_.text_at(read_u16(description_.data() + r + kStringValueAt));
        int fullscreen = 0;
        if (uint32_t r = find_record(node, Table::kIntegers, L"Fullscreen"))
            fullscreen = read_i32(description_.data() + r + kIntegerValueAt);
        form_report_ += L" Size=" + pair_text(size) + L" Devices=" + devices;

        Point limit = fullscreen ? screen_size_ : work_area_;
        // With no screen known, every variant fits.
        bool no_limit = limit.x == 0 && limit.y == 0;
        if (devices_fit(devices, is_smartphone())) {
            form_report_ += L" good_for_device";
            bool fits = no_limit || (size.x <= limit.x && size.y <= limit.y);
            if (fits && (size.x > best.x || (size.x == best.x && size.y >= best.y))) {
                cached_form_ = node;
                best = size;
            }
        }
        form_report_ += L"\n";
    }
    return cached_form_;
}

uint32_t PropertiesImpl::form_node(const std::wstring& form)
{
    if (!header_)
        report_no_skin();
    uint32_t node = choose_form(form);
    if (!node)
        report_skin_fatal(L"report_no_form", L"Skin file {" + path_ + L"} has no form {" + form +
                                                 L"} for workarea_size=" + pair_text(work_area_) +
                                                 L". list of all forms:\n" + form_report_);
    return node;
}

uint32_t PropertiesImpl::control_node(const std::wstring& form, const std::wstring& control)
{
    if (!header_)
        report_no_skin();
    if (form.empty()) {
        if (control.empty())
            return 0;
        if (control != cached_kind_name_ || !cached_kind_) {
            cached_kind_name_ = control;
            cached_kind_ = description_.find_node(SkinHeaderView(header_).kind_tree(), control, &compare_counter);
        }
        if (!cached_kind_)
            report_skin_fatal(L"report_no_form", L"Skin file {" + path_ + L"} has no kind {" + control + L"}");
        return cached_kind_;
    }
    uint32_t node = choose_form(form);
    if (node && (control != cached_control_name_ || !cached_control_)) {
        cached_control_name_ = control;
        cached_control_ = description_.find_node(description_.controls(node), control, &compare_counter);
    }
    if (!node || !cached_control_)
        report_skin_fatal(L"report_no_control", L"Skin file {" + path_ + L"} form {" + form +
                                                    L"} has no control {" + control + L"}");
    return cached_control_;
}

void PropertiesImpl::report_no_skin() const
{
    report_skin_fatal(L"report_no_skin", L"Skin file {" + path_ + L"} was invalid, but no check_version performed");
}

} // namespace skinner
