#pragma once

#include "liba/nocopy.h"
#include "os/unix_socket_server.h"

#include <functional>
#include <string>

// How a later start of the program hands its command line to the running
// instance: a Unix-domain stream socket in the runtime folder. The sender
// writes the text's length in bytes as a 4-byte little-endian number (0 for
// an empty line, no terminator) and the text as UTF-16LE, then waits for one
// answer byte, which comes only after the running instance has acted on the
// line on its main thread.
namespace os {

// Command lines longer than this (in UTF-16 units) are ignored.
inline constexpr size_t kMaxCommandLineUnits = 32768;

enum class HandOver {
    taken,        // a running instance answered
    nobody,       // nothing listens (or it went away before answering)
    interrupted,  // a signal ended the wait
};

// Main thread of a starting process. Blocks until the running instance has
// acted on the line.
HandOver hand_over_command_line(const std::string& socket_path, const std::wstring& text);

// The running instance's side. A thread accepts one connection at a time and
// hands each line to the main thread, where `handler` runs; connections from
// another user are refused, and a line that is too long or not valid UTF-16
// is logged and dropped, its sender answered all the same.
// Threads: construct, listen and stop on the main thread.
class CommandLineServer : liba::Nocopy {
public:
    using Handler = std::function<void(const std::wstring&)>;

    explicit CommandLineServer(Handler handler);
    ~CommandLineServer();

    // Removes a socket file left by a killed instance (call it only while
    // holding the instance lock), binds, listens and starts accepting.
    bool listen(const std::string& socket_path);
    // Stops accepting and removes the socket file; a line on its way to the
    // main thread is answered and dropped. Idempotent.
    void stop();

private:
    void serve(int connection);

    Handler handler_;
    UnixSocketServer server_;
};

} // namespace os
