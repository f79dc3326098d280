#include "files/range_marks.h"

#include "liba/fatal.h"
#include "liba/text.h"
#include "os/file.h"
#include "os/log.h"
#include "os/xml_document.h"

#include <algorithm>
#include <charconv>
#include <climits>

namespace {

const wchar_t kSideExtension[] = L".bm";
const wchar_t kRootElement[] = L"Bookmarks";
const wchar_t kMarkElement[] = L"Bookmark";
const wchar_t kNameAttribute[] = L"Name";
const wchar_t kPositionAttribute[] = L"Position";
const wchar_t kPlayAttribute[] = L"Play";
// A mark whose file entry has no name gets the name every new mark gets.
const wchar_t kDefaultName[] = L"Bookmark";

int32_t clamp_position(int64_t position)
{
    return static_cast<int32_t>(std::clamp<int64_t>(position, 0, INT32_MAX));
}

// Logs why a side file gave no marks and hands the reason to the caller.
bool fail_load(const std::wstring& origin, const std::wstring& reason, std::wstring* why)
{
    os::log() << "range marks: " << origin << ": " << reason << ", no marks taken\n";
    if (why)
        *why = reason;
    return false;
}

} // namespace

std::wstring side_file_of(const std::wstring& path) { return path + kSideExtension; }

bool RangeMarks::load(const std::wstring& side_path, std::wstring* why)
{
    clear();
    if (!os::FileAttributes(side_path).exists())
        return true;
    std::string bytes;
    if (!os::read_whole_file(side_path, bytes))
        return fail_load(side_path, L"can't read the file", why);
    return load_bytes(bytes, side_path, why);
}

bool RangeMarks::load_bytes(std::string_view bytes, const std::wstring& origin, std::wstring* why)
{
    clear();
    os::XmlDocument doc;
    std::wstring error;
    if (!doc.load_bytes(bytes, &error))
        return fail_load(origin, error, why);
    os::XmlNode root = doc.root().child(kRootElement);
    if (!root)
        return fail_load(origin, L"no element \"Bookmarks\"", why);
    // Route numbers follow the file order of the marks to play.
    std::vector<Entry> entries;
    int64_t next_route_number = 0;
    const int children = root.child_count();
    for (int i = 0; i < children; ++i) {
        os::XmlNode node = root.child_at(i);
        if (node.name() != kMarkElement)
            continue; // elements of other writers are no marks
        const std::wstring where = L"element " + std::to_wstring(i + 1) + L" of \"Bookmarks\"";
        std::wstring text;
        if (!node.attribute(kPositionAttribute, text))
            return fail_load(origin, where + L" has no \"Position\"", why);
        int position = 0;
        if (!node.attribute(kPositionAttribute, position) || position < 0)
            return fail_load(origin, where + L": \"Position\" \"" + text + L"\" is not a position", why);
        bool play = false;
        if (node.attribute(kPlayAttribute, text) && !node.attribute(kPlayAttribute, play))
            return fail_load(origin, where + L": \"Play\" \"" + text + L"\" is not a flag", why);
        std::wstring name = kDefaultName;
        node.attribute(kNameAttribute, name);
        entries.push_back({std::move(name), position, play ? next_route_number++ : -1});
    }
    assign(std::move(entries));
    return true;
}

std::string RangeMarks::save_bytes() const
{
    os::XmlDocument doc;
    os::XmlNode root = doc.root().add_child(kRootElement);
    auto write = [&](const RangeMark& m) {
        os::XmlNode node = root.add_child(kMarkElement);
        node.set_attribute(kNameAttribute, m.name);
        node.set_attribute(kPositionAttribute, static_cast<int>(m.position));
        node.set_attribute(kPlayAttribute, m.kind != -1);
    };
    for (int32_t index : route_)
        write(marks_[index]);
    for (const RangeMark& m : marks_)
        if (m.kind == -1)
            write(m);
    return doc.save_bytes();
}

bool RangeMarks::save(const std::wstring& side_path) const
{
    if (os::write_file_atomically(side_path, save_bytes()))
        return true;
    os::log() << "range marks: " << side_path << ": can't write the file\n";
    return false;
}

int RangeMarks::add_mark_raw(int32_t position, const std::wstring& name, bool in_route)
{
    position = clamp_position(position);
    auto at = std::lower_bound(marks_.begin(), marks_.end(), position,
                               [](const RangeMark& m, int32_t p) { return m.position < p; });
    const int index = static_cast<int>(at - marks_.begin());
    if (at != marks_.end() && at->position == position) {
        if (in_route && at->kind == -1) {
            at->kind = route_count();
            route_.push_back(index);
        }
        return index;
    }
    marks_.insert(at, RangeMark{name, position, -1});
    for (int32_t& r : route_)
        if (r >= index)
            ++r;
    if (in_route) {
        marks_[index].kind = route_count();
        route_.push_back(index);
    }
    return index;
}

int RangeMarks::add_mark(int32_t position, const std::wstring& name)
{
    const int before = count();
    const int index = add_mark_raw(position, name, false);
    if (count() == before || index == 0)
        return index;
    // Ranges do not overlap, so the only routed range that can hold the new
    // position is the one of the mark just before it; it now ends there.
    const int32_t place = marks_[index - 1].kind;
    if (place != -1) {
        route_.insert(route_.begin() + place + 1, index);
        renumber_route();
    }
    return index;
}

void RangeMarks::remove(int index)
{
    check_index(index, count(), "remove");
    if (marks_[index].kind != -1)
        route_.erase(route_.begin() + marks_[index].kind);
    marks_.erase(marks_.begin() + index);
    for (int32_t& r : route_)
        if (r > index)
            --r;
    renumber_route();
}

void RangeMarks::clear()
{
    marks_.clear();
    route_.clear();
}

const RangeMark& RangeMarks::mark(int index) const
{
    check_index(index, count(), "mark");
    return marks_[index];
}

const RangeMark& RangeMarks::route_mark(int i) const { return marks_[route_index(i)]; }

int RangeMarks::route_index(int i) const
{
    check_index(i, route_count(), "route_index");
    return route_[i];
}

int32_t RangeMarks::range_length(int index, int32_t total_length) const
{
    check_index(index, count(), "range_length");
    const int64_t end = index + 1 < count() ? marks_[index + 1].position : total_length;
    return static_cast<int32_t>(std::max<int64_t>(0, end - marks_[index].position));
}

void RangeMarks::splice(int32_t at, int32_t shift, const RangeMarks& other)
{
    std::vector<Entry> entries;
    entries.reserve(marks_.size() + other.marks_.size());
    for (const RangeMark& m : marks_) {
        const int64_t position = m.position > at ? int64_t{m.position} + shift : m.position;
        entries.push_back({m.name, position, m.kind});
    }
    const int64_t route_base = route_count();
    for (const RangeMark& m : other.marks_)
        entries.push_back({m.name, int64_t{m.position} + at, m.kind == -1 ? -1 : route_base + m.kind});
    assign(std::move(entries));
}

void RangeMarks::assign(std::vector<Entry> entries)
{
    for (Entry& e : entries)
        e.position = clamp_position(e.position);
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Entry& a, const Entry& b) { return a.position < b.position; });
    clear();
    std::vector<std::pair<int64_t, int32_t>> routed; // route key, mark index
    for (size_t i = 0; i < entries.size();) {
        // The first entry at a position is the mark; the others there only
        // lend it their route key, so a routed range is never lost.
        int64_t order = -1;
        size_t j = i;
        for (; j < entries.size() && entries[j].position == entries[i].position; ++j)
            if (entries[j].order != -1 && (order == -1 || entries[j].order < order))
                order = entries[j].order;
        const int32_t index = count();
        marks_.push_back(RangeMark{std::move(entries[i].name), static_cast<int32_t>(entries[i].position), -1});
        if (order != -1)
            routed.emplace_back(order, index);
        i = j;
    }
    std::stable_sort(routed.begin(), routed.end());
    for (const auto& [order, index] : routed)
        route_.push_back(index);
    renumber_route();
}

void RangeMarks::renumber_route()
{
    for (RangeMark& m : marks_)
        m.kind = -1;
    for (size_t place = 0; place < route_.size(); ++place)
        marks_[route_[place]].kind = static_cast<int32_t>(place);
}

void RangeMarks::check_index(int index, int size, const char* what) const
{
    if (index < 0 || index >= size)
        liba::fatal(L"RangeMarks::" + liba::from_utf8(what),
                    L"index " + std::to_wstring(index) + L" outside 0.." + std::to_wstring(size - 1));
}

namespace {

void append_seconds(std::string& out, double seconds)
{
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, seconds, std::chars_format::fixed, 6);
    out.append(buf, r.ec == std::errc() ? r.ptr : buf);
}

} // namespace

std::string label_track(const RangeMarks& marks, const std::function<double(int32_t)>& seconds_of,
                        double duration_seconds)
{
    std::string out;
    for (int i = 0; i < marks.count(); ++i) {
        const double start = seconds_of(marks.mark(i).position);
        const double end = i + 1 < marks.count() ? seconds_of(marks.mark(i + 1).position) : duration_seconds;
        std::wstring name = marks.mark(i).name;
        std::replace_if(name.begin(), name.end(), [](wchar_t c) { return c == L'\t' || c == L'\n' || c == L'\r'; },
                        L' ');
        append_seconds(out, start);
        out += '\t';
        append_seconds(out, std::max(start, end));
        out += '\t';
        out += liba::to_utf8(name);
        out += '\n';
    }
    return out;
}
