#pragma once

#include "liba/active.h"
#include "liba/nocopy.h"
#include "os/command_line_channel.h"
#include "os/event_loop.h"
#include "os/instance_lock.h"

#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace os {

// The process: single-instance lock, the scheduler and event loop of the main
// thread, the channel on which later starts hand over their command lines,
// and the quit signals. One per process, built first in main and destroyed
// last. Threads: main thread only, except that SIGTERM and SIGINT, on any
// thread, end the event loop so that shutdown runs in its normal order.
class Application : liba::Nocopy {
public:
    // Fatal when an Application exists already or the composed class name,
    // "SkinnerClass_" + name, is 39 characters or longer.
    explicit Application(const std::wstring& name);
    virtual ~Application();

    static Application& instance();

    CActiveScheduler& scheduler() { return *scheduler_; }
    EventLoop& loop() { return *loop_; }
    const std::wstring& class_name() const { return class_name_; }

    // Takes the instance lock (waiting for a start under way) and hands the
    // command line to a running instance if there is one. True when it was
    // taken and this process has to end; the lock stays held either way.
    bool find_running_instance(const std::wstring& command_line);
    // Lets the next start go on. Idempotent.
    void release_instance_lock();

    // From here on, command lines of later starts reach `handler` on the main
    // thread. Call it while holding the instance lock.
    bool listen_for_command_lines(CommandLineServer::Handler handler);
    void stop_listening();

    // True once SIGTERM or SIGINT arrived.
    static bool quit_signalled();

    std::string lock_path() const;
    std::string socket_path() const;

private:
    void watch_signals();

    std::wstring name_;
    std::wstring class_name_;
    std::wstring command_line_;
    bool found_running_ = false;
    std::unique_ptr<CActiveScheduler> scheduler_;
    std::unique_ptr<EventLoop> loop_;
    InstanceLock lock_;
    std::unique_ptr<CommandLineServer> server_;
    std::thread signal_thread_;
};

} // namespace os
