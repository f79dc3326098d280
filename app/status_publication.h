#pragma once

#include "app/status_publication_wire.h"
#include "liba/nocopy.h"
#include "os/unix_socket_server.h"

#include <functional>
#include <memory>
#include <string>

class Document;

// The server of the status publication: numbered commands arrive on the
// program's socket, owner-only, and run on the main thread against the
// Document, reading their arguments from the shared clipboard and writing
// their answers there. Commands 1 to 4 start a recording.
// Threads: construct, publish, stop and handle on the main thread; a thread
// of its own accepts connections and waits for each command's result.
class StatusPublication : liba::Nocopy {
public:
    // "show" of a command was "y": bring the window forward.
    using ShowHandler = std::function<void()>;
    // Command 0: select `path` where the window shows files and play it; an
    // empty path plays the file selected there. True when it started.
    using PlayHandler = std::function<bool(const std::wstring& path)>;

    // Runs one of the window's commands by name ("Play", "Record",
    // "PlayStop", "RecordStop"), as its buttons and keys do.
    using CommandHandler = std::function<int(const std::wstring& name)>;

    // Without a play handler command 0 plays through the Document alone;
    // without a command handler so do pause (5) and stop (6).
    StatusPublication(Document& document, ShowHandler show, PlayHandler play = {}, CommandHandler command = {});
    ~StatusPublication();

    // Opens the shared memory and listens on `socket` (which is made
    // owner-only). False when either fails.
    bool publish(const std::string& socket = status::socket_path());
    // Stops listening and removes the socket file. Idempotent.
    void stop();

    // Runs one command: its result is whether the answer was written; 0 for
    // an unknown number or unreadable arguments.
    int32_t handle(int32_t command);
    // The status as command 7 answers it.
    status::CQuillaphonicsStatus build_status() const;
    // The record of a recording: its file, how far the writer has come.
    status::CQuillaphonicsStatus recording_status() const;
    // The clipboard in use (null before publish unless one was given).
    void use_clipboard(std::unique_ptr<status::CCommClipboard> clipboard) { clipboard_ = std::move(clipboard); }

private:
    void serve(int connection);
    // Reads the argument text of `command`; false when it can't be read.
    bool read_fields(int32_t command, std::vector<std::wstring>& fields);
    bool answer(bool value);
    // Commands 5 and 6: true when the state changed as asked.
    bool pause_or_resume();
    bool stop_now();

    Document& document_;
    ShowHandler show_;
    PlayHandler play_;
    CommandHandler command_;
    std::unique_ptr<status::CCommClipboard> clipboard_;
    bool published_ = false;
    os::UnixSocketServer server_;
};
