#include "audio/play_chain.h"
#include "files/range_marks.h"
#include "liba/text.h"
#include "os/file.h"
#include "tools/commands.h"

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quillctl {

namespace {

// Seconds of the positions of one sound file, as the program's reader of
// that file tells them.
struct FileClock {
    std::function<double(int32_t)> seconds_of; // position -> seconds
    double duration = 0;                       // seconds to the end of the audio
};

// The clock of a sound file, opened once per command: the program's reader of
// the file, found by content. Nullopt when no reader takes the file.
std::optional<FileClock> open_file_clock(const std::wstring& path)
{
    std::shared_ptr<audio::PlayChain> chain = audio::create_play_chain(path, nullptr);
    if (!chain || chain->get_reader() == nullptr)
        return std::nullopt;
    FileClock clock;
    clock.duration = chain->get_reader()->get_duration();
    clock.seconds_of = [chain](int32_t position) { return chain->get_reader()->position_to_seconds(position); };
    return clock;
}

struct Change {
    enum Kind { kAdd, kRemove, kRoute } kind;
    std::vector<std::wstring> names; // one for add and remove; the route's for route
    int32_t position = 0;            // add only
};

struct Request {
    std::wstring file;
    std::vector<Change> changes;
    std::optional<std::wstring> export_path;
};

bool is_option(const std::string& arg) { return arg.rfind("--", 0) == 0; }

// Nullopt when the command line is wrong.
std::optional<Request> parse(const Args& args)
{
    if (args.empty() || is_option(args[0]))
        return std::nullopt;
    Request r;
    r.file = liba::from_utf8(args[0]);
    for (size_t i = 1; i < args.size();) {
        const std::string& option = args[i++];
        if (option == "--add") {
            if (i + 2 > args.size())
                return std::nullopt;
            auto position = liba::text_to_int(liba::from_utf8(args[i + 1]));
            if (!position || *position < 0 || *position > INT32_MAX)
                return std::nullopt;
            r.changes.push_back({Change::kAdd, {liba::from_utf8(args[i])}, static_cast<int32_t>(*position)});
            i += 2;
        } else if (option == "--remove") {
            if (i + 1 > args.size())
                return std::nullopt;
            r.changes.push_back({Change::kRemove, {liba::from_utf8(args[i++])}});
        } else if (option == "--route") {
            Change c{Change::kRoute, {}};
            while (i < args.size() && !is_option(args[i]))
                c.names.push_back(liba::from_utf8(args[i++]));
            r.changes.push_back(std::move(c));
        } else if (option == "--export") {
            if (i + 1 > args.size() || r.export_path)
                return std::nullopt;
            r.export_path = liba::from_utf8(args[i++]);
        } else {
            return std::nullopt;
        }
    }
    return r;
}

std::vector<int> marks_named(const RangeMarks& marks, const std::wstring& name)
{
    std::vector<int> found;
    for (int i = 0; i < marks.count(); ++i)
        if (marks.mark(i).name == name)
            found.push_back(i);
    return found;
}

// The route becomes the marks of the names in the order given (a name that
// several marks carry brings them all, by position); the others leave it.
bool set_route(RangeMarks& marks, const std::vector<std::wstring>& names, std::string& why)
{
    std::vector<int> order;
    for (const std::wstring& name : names) {
        std::vector<int> found = marks_named(marks, name);
        if (found.empty()) {
            why = "no mark named '" + liba::to_utf8(name) + "'";
            return false;
        }
        order.insert(order.end(), found.begin(), found.end());
    }
    RangeMarks old = marks;
    marks.clear();
    for (int index : order)
        marks.add_mark_raw(old.mark(index).position, old.mark(index).name, true);
    for (int i = 0; i < old.count(); ++i)
        marks.add_mark_raw(old.mark(i).position, old.mark(i).name, false);
    return true;
}

bool apply(RangeMarks& marks, const Change& change, std::string& why)
{
    switch (change.kind) {
    case Change::kAdd:
        marks.add_mark(change.position, change.names[0]);
        return true;
    case Change::kRemove: {
        std::vector<int> found = marks_named(marks, change.names[0]);
        if (found.empty()) {
            why = "no mark named '" + liba::to_utf8(change.names[0]) + "'";
            return false;
        }
        for (auto it = found.rbegin(); it != found.rend(); ++it)
            marks.remove(*it);
        return true;
    }
    case Change::kRoute:
        return set_route(marks, change.names, why);
    }
    return false;
}

// One mark a line stays one line: tabs and line breaks of a name become blanks.
std::string one_line(const std::wstring& name)
{
    std::string text = liba::to_utf8(name);
    for (char& c : text)
        if (c == '\t' || c == '\n' || c == '\r')
            c = ' ';
    return text;
}

void print(const RangeMarks& marks, const std::optional<FileClock>& clock)
{
    for (int i = 0; i < marks.count(); ++i) {
        const RangeMark& m = marks.mark(i);
        std::string seconds;
        if (clock) {
            char buf[64];
            std::snprintf(buf, sizeof buf, "%.3f", clock->seconds_of(m.position));
            seconds = buf;
        }
        std::printf("%s\t%d\t%s\t%d\n", one_line(m.name).c_str(), static_cast<int>(m.position), seconds.c_str(),
                    static_cast<int>(m.kind));
    }
}

} // namespace

int cmd_marks(const Args& args)
{
    std::optional<Request> request = parse(args);
    if (!request)
        return kUsage;
    const std::string file = liba::to_utf8(request->file);
    os::FileAttributes attributes(request->file);
    if (!attributes.exists())
        return fail(file, "no such file");
    if (attributes.is_folder)
        return fail(file, "is a folder, not a sound file");

    const std::wstring side = side_file_of(request->file);
    RangeMarks marks;
    std::wstring why_not;
    if (!marks.load(side, &why_not))
        return fail(liba::to_utf8(side), liba::to_utf8(why_not));

    std::optional<FileClock> clock = open_file_clock(request->file);
    if (request->export_path && !clock)
        return fail(file, "no reader opens it, so its marks have no times to export");

    for (const Change& change : request->changes) {
        std::string why;
        if (!apply(marks, change, why))
            return fail(file, why);
    }

    bool created_export = false;
    if (request->export_path) {
        const std::wstring& out = *request->export_path;
        created_export = !os::FileAttributes(out).exists();
        if (!os::write_file_atomically(out, label_track(marks, clock->seconds_of, clock->duration)))
            return fail(liba::to_utf8(out), "can't write the label track");
    }
    if (!request->changes.empty() && !marks.save(side)) {
        if (created_export)
            os::FileAttributes(*request->export_path).remove();
        return fail(liba::to_utf8(side), "can't write the side file");
    }
    print(marks, clock);
    return kDone;
}

} // namespace quillctl
