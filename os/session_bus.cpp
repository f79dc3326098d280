#include "os/session_bus.h"

#include "liba/active.h"
#include "liba/event.h"
#include "os/log.h"

#include <systemd/sd-bus.h>

#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <unistd.h>

namespace os {

// Carries "the socket is readable" from the watcher to the main thread and
// tells the watcher when the messages have been handled. Armed (active)
// whenever it can take a delivery.
class SessionBus::Dispatcher : public CActive {
public:
    explicit Dispatcher(SessionBus& owner) : owner_(owner) {}

    void arm() { CActiveScheduler::instance().set_active(*this); }

    // Watcher thread: false when the dispatcher was closed first.
    bool deliver()
    {
        {
            std::lock_guard<std::mutex> g(mutex_);
            if (closed_ || !is_active())
                return false;
            posted_ = true;
            done_.reset();
            CActiveScheduler::instance().notify(*this);
        }
        done_.wait();
        std::lock_guard<std::mutex> g(mutex_);
        return !closed_;
    }

    // Main thread, after cancel: releases a watcher still waiting.
    void close()
    {
        {
            std::lock_guard<std::mutex> g(mutex_);
            closed_ = true;
        }
        done_.set();
    }

    void run() override
    {
        bool closed;
        {
            std::lock_guard<std::mutex> g(mutex_);
            closed = closed_;
            posted_ = false;
        }
        if (!closed) {
            owner_.dispatch();
            arm();
        }
        done_.set();
    }

    void do_cancel() override
    {
        std::lock_guard<std::mutex> g(mutex_);
        closed_ = true;
        if (!posted_) {
            posted_ = true;
            CActiveScheduler::instance().notify(*this);
        }
    }

private:
    SessionBus& owner_;
    std::mutex mutex_;
    bool posted_ = false;
    bool closed_ = false;
    liba::Event done_;
};

SessionBus::SessionBus() : dispatcher_(std::make_unique<Dispatcher>(*this)) {}

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
    dispatcher_->arm();
    thread_ = std::thread([this] { watch(); });
}

void SessionBus::stop()
{
    if (thread_.joinable()) {
        char b = 0;
        ssize_t written = ::write(wake_pipe_[1], &b, 1);
        (void)written;
        dispatcher_->cancel();
        dispatcher_->close();
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
    for (;;) {
        int n = ::poll(fds, 2, -1);
        if (n < 0)
            continue;
        if (fds[1].revents || (fds[0].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0)
            return;
        if (fds[0].revents && !dispatcher_->deliver())
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
