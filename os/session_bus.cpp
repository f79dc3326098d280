#include "os/session_bus.h"

#include "os/log.h"
#include "os/main_thread_handoff.h"

#include <systemd/sd-bus.h>

#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <unistd.h>

namespace os {

SessionBus::SessionBus() : handoff_(std::make_unique<MainThreadHandoff>()) {}

SessionBus::~SessionBus()
{
    stop();
}

bool SessionBus::open()
{
    if (bus_)
        return true;
    // The connection is made in the background; asking for our unique name
    // waits for it, so a missing daemon shows here and not at first use.
    const char* unique = nullptr;
    int r = sd_bus_open_user(&bus_);
    if (r >= 0)
        r = sd_bus_get_unique_name(bus_, &unique);
    if (r < 0) {
        bus_ = sd_bus_flush_close_unref(bus_);
        log() << "session bus: none (" << -r << ")\n";
        return false;
    }
    return true;
}

bool SessionBus::request_name(const std::string& name)
{
    int r = bus_ ? sd_bus_request_name(bus_, name.c_str(), 0) : -1;
    if (r < 0)
        log() << "session bus: can't take the name " << name.c_str() << " (" << -r << ")\n";
    return r >= 0;
}

void SessionBus::start()
{
    if (!bus_ || thread_.joinable())
        return;
    if (::pipe2(wake_pipe_, O_CLOEXEC) != 0)
        return;
    dispatch();
    handoff_->reopen();
    handoff_->arm();
    thread_ = std::thread([this] { watch(); });
}

void SessionBus::stop()
{
    if (thread_.joinable()) {
        char b = 0;
        ssize_t written = ::write(wake_pipe_[1], &b, 1);
        (void)written;
        handoff_->cancel();
        handoff_->close();
        thread_.join();
    }
    for (int& fd : wake_pipe_) {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
    if (bus_) {
        sd_bus_flush(bus_);
        bus_ = sd_bus_flush_close_unref(bus_);
    }
}

void SessionBus::watch()
{
    // Only the socket's number is read here; the bus itself is the main
    // thread's, and the number stays while the connection lives.
    pollfd fds[2] = {{sd_bus_get_fd(bus_), POLLIN, 0}, {wake_pipe_[0], POLLIN, 0}};
    const std::function<void()> dispatch_messages = [this] { dispatch(); };
    for (;;) {
        int n = ::poll(fds, 2, -1);
        if (n < 0)
            continue;
        if (fds[1].revents || (fds[0].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0)
            return;
        if (fds[0].revents && !handoff_->deliver(dispatch_messages))
            return;
    }
}

void SessionBus::dispatch()
{
    int r;
    while ((r = sd_bus_process(bus_, nullptr)) > 0) {
    }
    if (r < 0)
        log() << "session bus: processing failed (" << -r << ")\n";
    sd_bus_flush(bus_);
}

} // namespace os
