#include "playlist/log_fields.h"

#include "playlist/number_text.h"

namespace playlist {

namespace {

constexpr double kMillisecondsPerSecond = 1000.0;
// Behind a written length: a reader that drops it, and one that reads the
// number as far as it goes, both get the milliseconds.
constexpr wchar_t kLengthEnd = L'.';

} // namespace

os::XmlNode find_log(const os::XmlDocument& document, std::wstring& error)
{
    os::XmlNode log = document.root().child(L"Log");
    if (!log)
        error = L"no \"Log\" element";
    return log;
}

std::vector<os::XmlNode> log_events(const os::XmlNode& log)
{
    std::vector<os::XmlNode> events;
    const int count = log.child_count();
    for (int i = 0; i < count; ++i)
        if (os::XmlNode event = log.child_at(i); event.name() == L"LogEvent")
            events.push_back(event);
    return events;
}

std::optional<std::wstring> child_text(const os::XmlNode& node, const wchar_t* name)
{
    os::XmlNode child = node.child(name);
    if (!child)
        return std::nullopt;
    return std::wstring(trim_blanks(child.text()));
}

std::optional<double> child_seconds(const os::XmlNode& node, const wchar_t* name)
{
    auto text = child_text(node, name);
    if (!text)
        return std::nullopt;
    auto ms = parse_number(*text);
    if (!ms)
        return std::nullopt;
    return *ms / kMillisecondsPerSecond;
}

std::optional<double> child_length(const os::XmlNode& node, const wchar_t* name)
{
    auto text = child_text(node, name);
    if (!text || text->empty())
        return std::nullopt;
    text->pop_back();
    auto ms = parse_number(*text);
    if (!ms)
        return std::nullopt;
    return *ms / kMillisecondsPerSecond;
}

std::optional<int32_t> child_integer(const os::XmlNode& node, const wchar_t* name)
{
    auto text = child_text(node, name);
    if (!text)
        return std::nullopt;
    return parse_int32(*text);
}

void add_text(os::XmlNode& node, const wchar_t* name, const std::wstring& text) { node.add_child(name).set_text(text); }

void add_seconds(os::XmlNode& node, const wchar_t* name, double seconds)
{
    add_text(node, name, number_text(seconds * kMillisecondsPerSecond));
}

void add_length(os::XmlNode& node, const wchar_t* name, double seconds)
{
    add_text(node, name, number_text(seconds * kMillisecondsPerSecond) + kLengthEnd);
}

} // namespace playlist
