#pragma once

#include "os/xml_document.h"

#include <optional>
#include <string>
#include <vector>

// The child elements of the two XML logs, whose values are element text:
// times in milliseconds in the file, in seconds here. Threads: any.
namespace playlist {

// The child's text less blanks at its ends; nullopt when there is no such child.
// The root "Log" of a log document; null (and `error` set) when there is none.
os::XmlNode find_log(const os::XmlDocument& document, std::wstring& error);
// The "LogEvent" children of a log, in order.
std::vector<os::XmlNode> log_events(const os::XmlNode& log);

std::optional<std::wstring> child_text(const os::XmlNode& node, const wchar_t* name);
// A time in milliseconds, as seconds; nullopt when missing or not a number.
std::optional<double> child_seconds(const os::XmlNode& node, const wchar_t* name);
// A length: milliseconds followed by one character that is not part of the
// number, which is dropped.
std::optional<double> child_length(const os::XmlNode& node, const wchar_t* name);
std::optional<int32_t> child_integer(const os::XmlNode& node, const wchar_t* name);

void add_text(os::XmlNode& node, const wchar_t* name, const std::wstring& text);
void add_seconds(os::XmlNode& node, const wchar_t* name, double seconds);
// Milliseconds followed by the character that child_length drops.
void add_length(os::XmlNode& node, const wchar_t* name, double seconds);

} // namespace playlist
