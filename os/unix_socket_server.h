#pragma once

#include "liba/nocopy.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

// Unix-domain stream sockets between processes of one user: a client's
// connect and exact reads and writes, and the server side, which accepts one
// connection at a time on a thread of its own, refuses other users and runs
// each request's work on the main thread while the connection waits.
// Numbers on these sockets are little-endian.
namespace os {

class MainThreadHandoff;

// A connected socket, to be closed by the caller; -1 when nothing listens at
// `path` or the path is too long for a socket address.
int connect_unix_socket(const std::string& path);
// Exactly `n` bytes; false on end, error or the receive time-out.
bool read_exactly(int fd, void* buffer, size_t n);
bool write_all(int fd, const void* buffer, size_t n);
bool read_u32le(int fd, uint32_t& value);
bool write_u32le(int fd, uint32_t value);

// Threads: construct, listen and stop on the main thread; `serve` runs on the
// accepting thread, and the work it hands to run_on_main on the main thread.
class UnixSocketServer : liba::Nocopy {
public:
    // Serves one connection of this user; the server closes it afterwards.
    // Reads on it time out after a few seconds.
    using Serve = std::function<void(int connection)>;

    // `name` begins the server's log lines.
    UnixSocketServer(std::string name, Serve serve);
    ~UnixSocketServer();

    // Removes a socket file left by a killed process (call it only while no
    // other process of ours can be listening there), binds it owner-only,
    // listens and starts accepting.
    bool listen(const std::string& path);
    // Stops accepting and removes the socket file; work on its way to the
    // main thread is dropped and its connection released. Idempotent.
    void stop();

    // From `serve`: runs `work` on the main thread and waits until it has run.
    // False when the server stopped first and `work` did not run.
    bool run_on_main(const std::function<void()>& work);

private:
    void accept_loop();
    bool peer_is_us(int connection) const;

    std::string name_;
    Serve serve_;
    std::unique_ptr<MainThreadHandoff> receiver_;
    std::string path_;
    int listen_fd_ = -1;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

} // namespace os
