#include "app/status_publication.h"

#include "app/document.h"
#include "liba/active.h"
#include "liba/event.h"
#include "liba/text.h"
#include "os/log.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <mutex>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int kReceiveTimeoutSeconds = 5;

bool io_exactly(int fd, void* buffer, size_t n, bool sending)
{
    auto* p = static_cast<char*>(buffer);
    while (n > 0) {
        ssize_t done = sending ? ::send(fd, p, n, MSG_NOSIGNAL) : ::recv(fd, p, n, 0);
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

// Carries one command number from the accepting thread to the main thread
// and its result back. Armed (active) whenever it can take a command.
class StatusPublication::Receiver : public CActive {
public:
    explicit Receiver(StatusPublication& owner) : owner_(owner) {}

    void arm()
    {
        CActiveScheduler::instance().set_active(*this);
        std::lock_guard<std::mutex> g(mutex_);
        posted_ = false;
    }

    // Accepting thread: 0 when the receiver was closed first.
    int32_t deliver(int32_t command)
    {
        {
            std::lock_guard<std::mutex> g(mutex_);
            if (closed_ || posted_ || !is_active())
                return 0;
            command_ = command;
            result_ = 0;
            posted_ = true;
            done_.reset();
            CActiveScheduler::instance().notify(*this);
        }
        done_.wait();
        std::lock_guard<std::mutex> g(mutex_);
        return result_;
    }

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
        int32_t command;
        {
            std::lock_guard<std::mutex> g(mutex_);
            command = command_;
        }
        int32_t result = owner_.handle(command);
        arm();
        {
            std::lock_guard<std::mutex> g(mutex_);
            result_ = result;
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
    StatusPublication& owner_;
    std::mutex mutex_;
    int32_t command_ = 0;
    int32_t result_ = 0;
    bool posted_ = false;
    bool closed_ = false;
    liba::Event done_;
};

StatusPublication::StatusPublication(Document& document, ShowHandler show)
    : document_(document), show_(std::move(show)), receiver_(std::make_unique<Receiver>(*this))
{
}

StatusPublication::~StatusPublication() { stop(); }

bool StatusPublication::publish(const std::string& socket)
{
    if (listen_fd_ >= 0)
        return false;
    if (!clipboard_) {
        auto mapped = std::make_unique<status::CCommMemoryMappedFilesClipboard>();
        if (!mapped->is_open())
            return false;
        clipboard_ = std::move(mapped);
    }
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (socket.size() >= sizeof addr.sun_path)
        return false;
    std::memcpy(addr.sun_path, socket.c_str(), socket.size() + 1);
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    ::unlink(socket.c_str());
    // Owner-only from the moment the file exists.
    mode_t old_mask = ::umask(077);
    bool bound = ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
    ::umask(old_mask);
    if (!bound || ::chmod(socket.c_str(), 0600) != 0 || ::listen(fd, 16) != 0) {
        os::log() << "status: can't listen on " << socket << ": " << std::strerror(errno) << "\n";
        ::close(fd);
        return false;
    }
    path_ = socket;
    listen_fd_ = fd;
    stopping_.store(false);
    receiver_->arm();
    thread_ = std::thread([this] { accept_loop(); });
    return true;
}

void StatusPublication::stop()
{
    if (listen_fd_ < 0)
        return;
    stopping_.store(true);
    receiver_->cancel();
    receiver_->close();
    ::shutdown(listen_fd_, SHUT_RDWR);
    if (thread_.joinable())
        thread_.join();
    ::close(listen_fd_);
    listen_fd_ = -1;
    ::unlink(path_.c_str());
}

void StatusPublication::accept_loop()
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

void StatusPublication::serve(int c)
{
    ucred peer{};
    socklen_t len = sizeof peer;
    if (::getsockopt(c, SOL_SOCKET, SO_PEERCRED, &peer, &len) != 0 || peer.uid != ::getuid()) {
        os::log() << "status: refused a connection of user " << static_cast<long long>(peer.uid) << "\n";
        return;
    }
    timeval tv{kReceiveTimeoutSeconds, 0};
    ::setsockopt(c, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    unsigned char b[4];
    if (!io_exactly(c, b, 4, false))
        return;
    int32_t command = static_cast<int32_t>(uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 |
                                           uint32_t(b[3]) << 24);
    uint32_t result = static_cast<uint32_t>(receiver_->deliver(command));
    for (int i = 0; i < 4; ++i)
        b[i] = static_cast<unsigned char>(result >> (8 * i));
    io_exactly(c, b, 4, true);
}

bool StatusPublication::read_fields(int32_t command, std::vector<std::wstring>& fields)
{
    status::CSerializableString args;
    if (!clipboard_ || !args.read(*clipboard_)) {
        os::log() << "status: command " << command << " without readable arguments\n";
        return false;
    }
    fields = status::split_arguments(*args.text, status::argument_lengths(command));
    if (fields.back() == L"y" && show_)
        show_();
    return true;
}

bool StatusPublication::answer(bool value)
{
    document_.notify_views();
    return status::CSerializableBool(value).write(*clipboard_);
}

int32_t StatusPublication::handle(int32_t command)
{
    if (!clipboard_)
        return 0;
    if (command == status::kStatus) {
        status::CSerializableBool show;
        if (!show.read(*clipboard_))
            return 0;
        if (show.value && show_)
            show_();
        status::CQuillaphonicsStatus s = build_status();
        return s.write(*clipboard_) && status::CSerializableBool(true).write(*clipboard_) ? 1 : 0;
    }
    if (command < status::kPlay || command > status::kStep) {
        os::log() << "status: unknown command " << command << "\n";
        return 0;
    }
    std::vector<std::wstring> f;
    if (!read_fields(command, f))
        return 0;
    bool ok = false;
    switch (command) {
    case status::kPlay: ok = f[0].empty() ? document_.play_current() : document_.play_file(f[0]); break;
    case status::kRecord: {
        if (f[0].empty()) {
            ok = document_.record(L"%my_documents%");
        } else {
            std::optional<long long> format = liba::text_to_int(f[1]);
            if (!format)
                return 0;
            ok = document_.record_to(f[0], static_cast<int>(*format));
        }
        break;
    }
    case status::kOverwrite: ok = document_.record_overwrite(f[0]); break;
    case status::kAppend: ok = document_.record_append(f[0]); break;
    case status::kInsert: {
        std::optional<long long> position = liba::text_to_int(f[1]);
        if (!position)
            return 0;
        ok = document_.record_insert(f[0], static_cast<int32_t>(*position));
        break;
    }
    case status::kPause: ok = document_.is_paused() ? document_.resume() : document_.pause(); break;
    case status::kStop: ok = document_.stop(); break;
    case status::kStep: {
        std::optional<long long> delta = liba::text_to_int(f[0]);
        if (!delta)
            return 0;
        ok = document_.step_item(static_cast<int>(*delta));
        break;
    }
    default: break;
    }
    return answer(ok) ? 1 : 0;
}

status::CQuillaphonicsStatus StatusPublication::build_status() const
{
    status::CQuillaphonicsStatus s;
    audio::FileReader* r = document_.reader();
    if (!document_.is_playing() || !r)
        return s;
    s.state = document_.is_paused() ? s.kPlayPaused : s.kPlaying;
    s.path = document_.current_path();
    s.length = r->get_length();
    s.position = r->get_position();
    std::wstring format = document_.format();
    if (format == audio::kFormatMP3)
        s.format = 0;
    else if (format == audio::kFormatPCM || format == audio::kFormatADPCM || format == audio::kFormatGSM)
        s.format = 1;
    else
        s.format = 2;
    s.rate = r->get_rate();
    s.bits = r->get_bits();
    s.kbps = r->get_bitrate() / 1000;
    s.stereo = r->get_channels() == 2 ? 1 : 0;
    s.time_ms = static_cast<int32_t>(r->get_time() * 1000.0);
    return s;
}
