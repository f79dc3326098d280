#include "playlist/list_offline_radio.h"

#include "os/xml_document.h"
#include "playlist/log_fields.h"

namespace playlist {

namespace {

// Texts of <AudioInfo> and the attributes they become.
struct InfoField {
    const wchar_t* element;
    const wchar_t* attribute;
};
constexpr InfoField kInfoFields[] = {
    {L"Title", L"title"}, {L"Artist", L"artist"}, {L"Number", L"MediaID"}, {L"Comment", L"MediaComment"}};

constexpr wchar_t kEntryType[] = L"EntryType";

std::optional<double> not_negative(std::optional<double> value)
{
    if (value && *value < 0)
        return std::nullopt;
    return value;
}

} // namespace

ListOfflineRadio::ListOfflineRadio() : ListXml(kFormatOfflineRadio) {}

ListOfflineRadio::ListOfflineRadio(const std::wstring& path) : ListXml(kFormatOfflineRadio) { load(path); }

bool ListOfflineRadio::read_entries(const os::XmlDocument& document)
{
    os::XmlNode root = find_log(document, error);
    if (!root)
        return false;
    root.attribute(L"StartTime", start_time);

    for (const os::XmlNode& event : log_events(root)) {
        PlaylistEntry entry;
        entry.path = child_text(event, L"FileName").value_or(L"");
        if (entry.path.empty())
            continue;
        entry.duration = not_negative(child_length(event, L"AudioLength")).value_or(entry.duration);
        entry.clip_begin = not_negative(child_seconds(event, L"StartFadeUp")).value_or(entry.clip_begin);
        entry.fade_in = not_negative(child_seconds(event, L"StartFadeUpLength")).value_or(entry.fade_in);
        auto fade_out = not_negative(child_seconds(event, L"EndFadeDownLength"));
        entry.fade_out = fade_out.value_or(entry.fade_out);
        // The file names where the fade down starts; the clip ends when it is over.
        if (auto fade_start = not_negative(child_seconds(event, L"EndFadeDown")))
            entry.clip_end = *fade_start + fade_out.value_or(0.0);
        if (auto cross_fade = not_negative(child_seconds(event, L"CrossFade")))
            entry.next_offset = -*cross_fade;
        if (auto type = child_text(event, kEntryType))
            entry.attributes[kEntryType] = *type;
        if (os::XmlNode info = event.child(L"AudioInfo"))
            for (const InfoField& field : kInfoFields)
                if (auto text = child_text(info, field.element))
                    entry.attributes[field.attribute] = *text;
        entries.push_back(std::move(entry));
    }
    return true;
}

void ListOfflineRadio::write(os::XmlDocument& document) const
{
    document.create();
    os::XmlNode root = document.root().add_child(L"Log");
    root.set_attribute(L"StartTime", start_time);
    for (const PlaylistEntry& entry : entries) {
        if (entry.path.empty())
            continue; // the reader skips events without a file name
        os::XmlNode event = root.add_child(L"LogEvent");
        add_text(event, L"FileName", entry.path);
        if (entry.duration >= 0)
            add_length(event, L"AudioLength", entry.duration);
        add_seconds(event, L"StartFadeUp", entry.clip_begin);
        add_seconds(event, L"StartFadeUpLength", entry.fade_in);
        add_seconds(event, L"EndFadeDownLength", entry.fade_out);
        add_seconds(event, L"EndFadeDown", entry.clip_end - entry.fade_out);
        add_seconds(event, L"CrossFade", -entry.next_offset);
        auto type = entry.attributes.find(kEntryType);
        if (type != entry.attributes.end())
            add_text(event, kEntryType, type->second);
        os::XmlNode info;
        for (const InfoField& field : kInfoFields) {
            auto it = entry.attributes.find(field.attribute);
            if (it == entry.attributes.end())
                continue;
            if (!info)
                info = event.add_child(L"AudioInfo");
            add_text(info, field.element, it->second);
        }
    }
}

} // namespace playlist
