#include "os/command_line_channel.h"

#include "liba/event.h"
#include "liba/text.h"
#include "os/log.h"

#include <cerrno>
#include <cstring>
#include <mutex>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace os {

namespace {

constexpr int kReceiveTimeoutSeconds = 5;
constexpr unsigned char kAnswerTaken = 1;
constexpr unsigned char kAnswerDropped = 0;

bool make_address(const std::string& path, sockaddr_un& addr)
{
    std::memset(&addr, 0, sizeof addr);
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof addr.sun_path)
        return false;
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    return true;
}

// Reads exactly `n` bytes; false on end, error or time-out.
bool read_exactly(int fd, void* buffer, size_t n)
{
    auto* p = static_cast<char*>(buffer);
    while (n > 0) {
        ssize_t got = ::recv(fd, p, n, 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        p += got;
        n -= static_cast<size_t>(got);
    }
    return true;
}

bool write_all(int fd, const void* buffer, size_t n)
{
    auto* p = static_cast<const char*>(buffer);
    while (n > 0) {
        ssize_t put = ::send(fd, p, n, MSG_NOSIGNAL);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            return false;
        p += put;
        n -= static_cast<size_t>(put);
    }
    return true;
}

void put_u32le(unsigned char* out, uint32_t v)
{
    for (int i = 0; i < 4; ++i)
        out[i] = static_cast<unsigned char>(v >> (8 * i));
}

uint32_t get_u32le(const unsigned char* in)
{
    return uint32_t(in[0]) | uint32_t(in[1]) << 8 | uint32_t(in[2]) << 16 | uint32_t(in[3]) << 24;
}

} // namespace

HandOver hand_over_command_line(const std::string& socket_path, const std::wstring& text)
{
    sockaddr_un addr;
    if (!make_address(socket_path, addr))
        return HandOver::nobody;
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return HandOver::nobody;
    if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        ::close(fd);
        return HandOver::nobody;
    }
    std::string bytes = liba::to_utf16le_bytes(text);
    unsigned char header[4];
    put_u32le(header, static_cast<uint32_t>(bytes.size()));
    // A listener that refuses the line may close before reading all of it; its
    // answer is still there to read, so a failed send is not decisive.
    if (write_all(fd, header, sizeof header))
        write_all(fd, bytes.data(), bytes.size());
    unsigned char answer = 0;
    // Only the program's quit signals interrupt this wait (they are installed
    // without SA_RESTART); the start then ends instead of waiting on.
    ssize_t got = ::recv(fd, &answer, 1, 0);
    int err = errno;
    ::close(fd);
    if (got == 1)
        return HandOver::taken;
    if (got < 0 && err == EINTR)
        return HandOver::interrupted;
    return HandOver::nobody;
}

// Carries one command line from the accepting thread to the main thread and
// the result back. Armed (active) whenever it can take a line.
class CommandLineServer::Receiver : public CActive {
public:
    explicit Receiver(Handler handler) : handler_(std::move(handler)) {}

    void arm()
    {
        CActiveScheduler::instance().set_active(*this);
        std::lock_guard<std::mutex> g(mutex_);
        posted_ = false;
    }

    // Accepting thread: hands the line over and waits until the main thread
    // has acted on it. False when the receiver was closed first.
    bool deliver(const std::wstring& text)
    {
        {
            std::lock_guard<std::mutex> g(mutex_);
            if (closed_ || posted_ || !is_active())
                return false;
            text_ = text;
            posted_ = true;
            handled_ = false;
            done_.reset();
            // Notify under the lock, so a cancel on the main thread either
            // finds this completion in the queue or sees that none will come.
            CActiveScheduler::instance().notify(*this);
        }
        done_.wait();
        std::lock_guard<std::mutex> g(mutex_);
        return handled_;
    }

    // Main thread, after cancel: releases a sender still waiting.
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
        std::wstring text;
        {
            std::lock_guard<std::mutex> g(mutex_);
            text = text_;
        }
        handler_(text);
        arm();
        {
            std::lock_guard<std::mutex> g(mutex_);
            handled_ = true;
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
    Handler handler_;
    std::mutex mutex_;
    std::wstring text_;
    bool posted_ = false;
    bool closed_ = false;
    bool handled_ = false;
    liba::Event done_;
};

CommandLineServer::CommandLineServer(Handler handler)
    : receiver_(std::make_unique<Receiver>(std::move(handler)))
{
}

CommandLineServer::~CommandLineServer() { stop(); }

bool CommandLineServer::listen(const std::string& socket_path)
{
    sockaddr_un addr;
    if (listen_fd_ >= 0 || !make_address(socket_path, addr))
        return false;
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    ::unlink(socket_path.c_str());
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || ::listen(fd, 16) != 0) {
        log() << "CommandLineServer: can't listen on " << socket_path << ": " << std::strerror(errno) << "\n";
        ::close(fd);
        return false;
    }
    path_ = socket_path;
    listen_fd_ = fd;
    stopping_.store(false);
    receiver_->arm();
    thread_ = std::thread([this] { accept_loop(); });
    return true;
}

void CommandLineServer::stop()
{
    if (listen_fd_ < 0)
        return;
    stopping_.store(true);
    receiver_->cancel();
    receiver_->close();
    // Shutting a listening socket down wakes a thread blocked in accept.
    ::shutdown(listen_fd_, SHUT_RDWR);
    if (thread_.joinable())
        thread_.join();
    ::close(listen_fd_);
    listen_fd_ = -1;
    ::unlink(path_.c_str());
}

void CommandLineServer::accept_loop()
{
    while (!stopping_.load()) {
        int c = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (c < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            break;
        }
        serve(c);
        ::close(c);
    }
}

void CommandLineServer::serve(int c)
{
    ucred peer{};
    socklen_t len = sizeof peer;
    if (::getsockopt(c, SOL_SOCKET, SO_PEERCRED, &peer, &len) != 0 || peer.uid != ::getuid()) {
        log() << "CommandLineServer: refused a connection of user " << static_cast<long long>(peer.uid) << "\n";
        return;
    }
    timeval tv{kReceiveTimeoutSeconds, 0};
    ::setsockopt(c, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);

    unsigned char header[4];
    if (!read_exactly(c, header, sizeof header))
        return;
    uint32_t size = get_u32le(header);
    unsigned char answer = kAnswerDropped;
    if (size > kMaxCommandLineUnits * 2) {
        log() << "CommandLineServer: ignored a command line of " << static_cast<long long>(size) << " bytes\n";
    } else {
        std::string bytes(size, '\0');
        if (!read_exactly(c, bytes.data(), size))
            return;
        auto text = liba::from_utf16le_bytes(bytes);
        if (!text)
            log() << "CommandLineServer: ignored a command line that is not valid UTF-16\n";
        else if (receiver_->deliver(*text))
            answer = kAnswerTaken;
    }
    write_all(c, &answer, 1);
}

} // namespace os
