#include "playlist/list_multi_tracker.h"

#include "os/xml_document.h"
#include "playlist/log_fields.h"

#include <algorithm>

namespace playlist {

namespace {

constexpr wchar_t kVersion[] = L"multitracker";

// Events whose text goes to the attribute of the same name.
constexpr const wchar_t* kTextAttributes[] = {L"MediaID", L"MediaType", L"DetailRefID", L"MediaComment",
                                              L"Status",  L"Override",  L"RelaxEarly",  L"RelaxLate"};

// Events start on a running clock: each entry's end is its start plus its
// duration, an unknown duration counting as none.
double played(double duration) { return std::max(duration, 0.0); }

} // namespace

ListMultiTracker::ListMultiTracker() : ListXml(kFormatMultiTracker) {}

ListMultiTracker::ListMultiTracker(const std::wstring& path) : ListXml(kFormatMultiTracker) { load(path); }

bool ListMultiTracker::read_entries(const os::XmlDocument& document)
{
    os::XmlNode root = find_log(document, error);
    if (!root)
        return false;
    std::wstring version;
    if (!root.attribute(L"version", version) || version != kVersion) {
        error = L"the \"Log\" is not of version \"multitracker\"";
        return false;
    }
    root.attribute(L"HeaderID", header_id);
    root.attribute(L"Name", name);
    root.attribute(L"StartTime", start_time);

    double running = 0;
    for (const os::XmlNode& event : log_events(root)) {
        PlaylistEntry entry;
        entry.path = child_text(event, L"MediaLocation").value_or(L"");
        if (entry.path.empty())
            continue;
        entry.duration = child_length(event, L"MediaLength").value_or(entry.duration);
        entry.clip_begin = child_seconds(event, L"ClipBeg").value_or(entry.clip_begin);
        entry.fade_in = child_seconds(event, L"FadeIn").value_or(entry.fade_in);
        entry.fade_out = child_seconds(event, L"FadeOut").value_or(entry.fade_out);
        entry.clip_end = child_seconds(event, L"ClipEnd").value_or(entry.clip_end);
        auto start = child_seconds(event, L"StartTime");
        if (start && *start >= 0) {
            entry.next_offset = *start - running;
            running = *start + played(entry.duration);
        } else {
            if (auto next = child_seconds(event, L"StartNext"))
                entry.next_offset = -*next;
            running += entry.next_offset + played(entry.duration);
        }
        if (auto title = child_text(event, L"MediaTitle"))
            entry.attributes[L"title"] = *title;
        if (auto artist = child_text(event, L"MediaArtist"))
            entry.attributes[L"artist"] = *artist;
        for (const wchar_t* key : kTextAttributes)
            if (auto text = child_text(event, key))
                entry.attributes[key] = *text;
        entry.track = child_integer(event, L"Track").value_or(entry.track);
        entries.push_back(std::move(entry));
    }
    return true;
}

void ListMultiTracker::write(os::XmlDocument& document) const
{
    document.create();
    os::XmlNode root = document.root().add_child(L"Log");
    root.set_attribute(L"version", kVersion);
    root.set_attribute(L"HeaderID", header_id);
    root.set_attribute(L"Name", name);
    root.set_attribute(L"StartTime", start_time);

    double running = 0;
    for (const PlaylistEntry& entry : entries) {
        if (entry.path.empty())
            continue; // the reader skips events without a location
        os::XmlNode event = root.add_child(L"LogEvent");
        add_text(event, L"MediaLocation", entry.path);
        add_length(event, L"MediaLength", entry.duration);
        add_seconds(event, L"ClipBeg", entry.clip_begin);
        add_seconds(event, L"FadeIn", entry.fade_in);
        add_seconds(event, L"FadeOut", entry.fade_out);
        add_seconds(event, L"ClipEnd", entry.clip_end);
        // Both forms of the start: a reader takes the start time when it is
        // not negative, else the overlap with the entry before.
        double start = running + entry.next_offset;
        add_seconds(event, L"StartTime", start);
        add_seconds(event, L"StartNext", -entry.next_offset);
        running = start + played(entry.duration);
        auto title = entry.attributes.find(L"title");
        if (title != entry.attributes.end())
            add_text(event, L"MediaTitle", title->second);
        auto artist = entry.attributes.find(L"artist");
        if (artist != entry.attributes.end())
            add_text(event, L"MediaArtist", artist->second);
        for (const wchar_t* key : kTextAttributes) {
            auto it = entry.attributes.find(key);
            if (it != entry.attributes.end())
                add_text(event, key, it->second);
        }
        add_text(event, L"Track", std::to_wstring(entry.track));
    }
}

} // namespace playlist
