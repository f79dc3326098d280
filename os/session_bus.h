#pragma once

#include "liba/nocopy.h"

#include <memory>
#include <string>
#include <thread>

struct sd_bus;

namespace os {

class MainThreadHandoff;

// The user's session message bus (sd-bus), served on the main thread: a
// thread of its own sleeps on the bus's socket and, when something arrives,
// posts to the main thread's queue, where every waiting message is
// dispatched to the handlers registered on bus(); it then waits until that
// has run before it looks at the socket again, so the bus is only ever
// touched by the main thread.
// Threads: everything on the main thread; the watcher is internal.
class SessionBus : liba::Nocopy {
public:
    SessionBus();
    ~SessionBus();

    // Connects to the session bus. False, with one log line, when there is
    // none (no DBUS_SESSION_BUS_ADDRESS, no daemon).
    bool open();
    // Null until open succeeds. Owned by this object.
    sd_bus* bus() const { return bus_; }
    // Takes `name` on the bus; false when another process holds it.
    bool request_name(const std::string& name);
    // Dispatches what is already queued, then starts watching. Handlers
    // must be registered first.
    void start();
    // Stops watching, releases the name and closes the connection.
    // Idempotent.
    void stop();

private:
    void watch();
    // Main thread: handles every message waiting and flushes the replies.
    void dispatch();

    sd_bus* bus_ = nullptr;
    std::unique_ptr<MainThreadHandoff> handoff_;
    int wake_pipe_[2] = {-1, -1};
    std::thread thread_;
};

} // namespace os
