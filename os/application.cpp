#include "os/application.h"

#include "liba/fatal.h"
#include "liba/text.h"
#include "os/log.h"
#include "os/path.h"

#include <SDL.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace os {

namespace {

Application* g_instance = nullptr;
// Window class names were compared in a buffer of this many characters.
constexpr size_t kClassNameLimit = 39;

std::atomic<bool> g_quit_signalled{false};
int g_signal_fd = -1;   // eventfd the handler writes to
int g_stop_fd = -1;     // eventfd that ends the watching thread

void on_quit_signal(int)
{
    g_quit_signalled.store(true);
    uint64_t one = 1;
    if (::write(g_signal_fd, &one, sizeof one) < 0) {
        // The flag alone still ends the start-up waits.
    }
}

// Installed without SA_RESTART, so that a start blocked in the instance lock
// or waiting for the running instance's answer gives up at once.
void install_quit_handlers()
{
    struct sigaction sa {};
    sa.sa_handler = on_quit_signal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = 0;
    ::sigaction(SIGTERM, &sa, nullptr);
    ::sigaction(SIGINT, &sa, nullptr);
}

bool report_in_message_box(const std::wstring& location, const std::wstring& text)
{
    if (SDL_WasInit(SDL_INIT_VIDEO) == 0)
        return false;
    const char* driver = SDL_GetCurrentVideoDriver();
    if (driver && (std::string(driver) == "offscreen" || std::string(driver) == "dummy"))
        return false;
    return SDL_ShowSimpleMessageBox(SDL_MESSAGEBOX_ERROR, liba::to_utf8(location).c_str(),
                                    liba::to_utf8(text).c_str(), nullptr) == 0;
}

void log_teardown_step(int step)
{
    log() << static_cast<long long>(tick_count()) << " Application::~Application " << step << "\n";
}

} // namespace

Application::Application(const std::wstring& name) : name_(name), class_name_(L"SkinnerClass_" + name)
{
    if (class_name_.size() >= kClassNameLimit)
        liba::fatal(L"Application::Application", L"Application name is too long. Sorry.");
    if (g_instance)
        liba::fatal(L"Application::Application", L"instance != 0");
    g_instance = this;

    liba::FatalHooks hooks;
    hooks.report = report_in_message_box;
    install_log_fatal_flush(hooks);

    init_path_macros();
    if (!ensure_app_data())
        std::fprintf(stderr, "quillaphonics: can't create the settings folder %s; settings will not be kept\n",
                     liba::to_utf8(expand_path(L"%app_data%")).c_str());

    scheduler_ = std::make_unique<CActiveScheduler>();
    loop_ = std::make_unique<EventLoop>(*scheduler_);

    g_signal_fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    g_stop_fd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    install_quit_handlers();
    signal_thread_ = std::thread([this] { watch_signals(); });
}

Application::~Application()
{
    log_teardown_step(1);
    stop_listening();
    loop_.reset();
    scheduler_.reset();
    log_teardown_step(2);
    release_instance_lock();
    log_teardown_step(3);
    // There is no COM apartment on this platform; the step keeps its place.
    log_teardown_step(4);

    uint64_t one = 1;
    if (::write(g_stop_fd, &one, sizeof one) < 0) {
        // The thread then ends when the process does.
    }
    if (signal_thread_.joinable())
        signal_thread_.join();
    ::signal(SIGTERM, SIG_DFL);
    ::signal(SIGINT, SIG_DFL);
    ::close(g_signal_fd);
    ::close(g_stop_fd);
    g_signal_fd = g_stop_fd = -1;
    g_instance = nullptr;
}

Application& Application::instance()
{
    if (!g_instance)
        liba::fatal(L"Application::instance", L"instance == 0");
    return *g_instance;
}

bool Application::quit_signalled() { return g_quit_signalled.load(); }

void Application::watch_signals()
{
    // Signals go to the other threads; this one only turns them into a quit.
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
    pollfd fds[2] = {{g_signal_fd, POLLIN, 0}, {g_stop_fd, POLLIN, 0}};
    for (;;) {
        int n = ::poll(fds, 2, -1);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 || (fds[1].revents & POLLIN))
            return;
        if (fds[0].revents & POLLIN) {
            uint64_t count;
            if (::read(g_signal_fd, &count, sizeof count) > 0) {
                log() << "quit signal\n";
                loop_->quit();
            }
        }
    }
}

std::string Application::lock_path() const
{
    return liba::to_utf8(join_path(runtime_dir(), class_name_ + L".lock"));
}

std::string Application::socket_path() const
{
    return liba::to_utf8(join_path(runtime_dir(), class_name_));
}

bool Application::find_running_instance(const std::wstring& command_line)
{
    if (runtime_dir().empty() || !lock_.acquire(lock_path()))
        return false;
    command_line_ = command_line;
    found_running_ = false;
    switch (hand_over_command_line(socket_path(), command_line_)) {
    case HandOver::taken:
        found_running_ = true;
        break;
    case HandOver::interrupted:
        // A quit signal during the wait ends this start as well.
        found_running_ = true;
        break;
    case HandOver::nobody:
        break;
    }
    return found_running_;
}

void Application::release_instance_lock() { lock_.release(); }

bool Application::listen_for_command_lines(CommandLineServer::Handler handler)
{
    if (server_)
        return true;
    server_ = std::make_unique<CommandLineServer>(std::move(handler));
    if (!server_->listen(socket_path())) {
        server_.reset();
        return false;
    }
    return true;
}

void Application::stop_listening()
{
    if (server_) {
        server_->stop();
        server_.reset();
    }
}

} // namespace os
