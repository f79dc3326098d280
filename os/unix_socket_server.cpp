#include "os/unix_socket_server.h"

#include "os/log.h"
#include "os/main_thread_handoff.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace os {

namespace {

constexpr int kReceiveTimeoutSeconds = 5;
constexpr int kBacklog = 16;

bool make_address(const std::string& path, sockaddr_un& addr)
{
    std::memset(&addr, 0, sizeof addr);
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof addr.sun_path)
        return false;
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    return true;
}

// Calls `step` (a recv or a send) until all `n` bytes at `p` are moved,
// going on after signals.
template <class Step>
bool move_all(char* p, size_t n, Step step)
{
    while (n > 0) {
        ssize_t done = step(p, n);
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0)
            return false;
        p += done;
        n -= static_cast<size_t>(done);
    }
    return true;
}

} // namespace

int connect_unix_socket(const std::string& path)
{
    sockaddr_un addr;
    if (!make_address(path, addr))
        return -1;
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

bool read_exactly(int fd, void* buffer, size_t n)
{
    return move_all(static_cast<char*>(buffer), n, [fd](char* p, size_t left) { return ::recv(fd, p, left, 0); });
}

bool write_all(int fd, const void* buffer, size_t n)
{
    // send only reads from the buffer.
    return move_all(const_cast<char*>(static_cast<const char*>(buffer)), n,
                    [fd](char* p, size_t left) { return ::send(fd, p, left, MSG_NOSIGNAL); });
}

bool read_u32le(int fd, uint32_t& value)
{
    unsigned char b[4];
    if (!read_exactly(fd, b, sizeof b))
        return false;
    value = uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24;
    return true;
}

bool write_u32le(int fd, uint32_t value)
{
    unsigned char b[4];
    for (int i = 0; i < 4; ++i)
        b[i] = static_cast<unsigned char>(value >> (8 * i));
    return write_all(fd, b, sizeof b);
}

UnixSocketServer::UnixSocketServer(std::string name, Serve serve)
    : name_(std::move(name)), serve_(std::move(serve)), receiver_(std::make_unique<MainThreadHandoff>())
{
}

UnixSocketServer::~UnixSocketServer() { stop(); }

bool UnixSocketServer::listen(const std::string& path)
{
    sockaddr_un addr;
    if (listen_fd_ >= 0 || !make_address(path, addr))
        return false;
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    ::unlink(path.c_str());
    // Owner-only from the moment the file exists.
    mode_t old_mask = ::umask(077);
    bool bound = ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    ::umask(old_mask);
    if (!bound || ::chmod(path.c_str(), 0600) != 0 || ::listen(fd, kBacklog) != 0) {
        log() << name_ << ": can't listen on " << path << ": " << std::strerror(errno) << "\n";
        ::close(fd);
        return false;
    }
    path_ = path;
    listen_fd_ = fd;
    stopping_.store(false);
    receiver_->reopen();
    receiver_->arm();
    thread_ = std::thread([this] { accept_loop(); });
    return true;
}

void UnixSocketServer::stop()
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

bool UnixSocketServer::run_on_main(const std::function<void()>& work)
{
    return receiver_->deliver(work);
}

bool UnixSocketServer::peer_is_us(int c) const
{
    ucred peer{};
    socklen_t len = sizeof peer;
    if (::getsockopt(c, SOL_SOCKET, SO_PEERCRED, &peer, &len) == 0 && peer.uid == ::getuid())
        return true;
    log() << name_ << ": refused a connection of user " << static_cast<long long>(peer.uid) << "\n";
    return false;
}

void UnixSocketServer::accept_loop()
{
    while (!stopping_.load()) {
        int c = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (c < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            break;
        }
        if (peer_is_us(c)) {
            timeval tv{kReceiveTimeoutSeconds, 0};
            ::setsockopt(c, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
            serve_(c);
        }
        ::close(c);
    }
}

} // namespace os
