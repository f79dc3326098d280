#include "os/command_line_channel.h"

#include "liba/text.h"
#include "os/log.h"

#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>

namespace os {

namespace {

constexpr unsigned char kAnswerTaken = 1;
constexpr unsigned char kAnswerDropped = 0;

} // namespace

HandOver hand_over_command_line(const std::string& socket_path, const std::wstring& text)
{
    int fd = connect_unix_socket(socket_path);
    if (fd < 0)
        return HandOver::nobody;
    std::string bytes = liba::to_utf16le_bytes(text);
    // A listener that refuses the line may close before reading all of it; its
    // answer is still there to read, so a failed send is not decisive.
    if (write_u32le(fd, static_cast<uint32_t>(bytes.size())))
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

CommandLineServer::CommandLineServer(Handler handler)
    : handler_(std::move(handler)), server_("CommandLineServer", [this](int c) { serve(c); })
{
}

CommandLineServer::~CommandLineServer() { stop(); }

bool CommandLineServer::listen(const std::string& socket_path) { return server_.listen(socket_path); }

void CommandLineServer::stop() { server_.stop(); }

void CommandLineServer::serve(int c)
{
    uint32_t size = 0;
    if (!read_u32le(c, size))
        return;
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
        else if (server_.run_on_main([&] { handler_(*text); }))
            answer = kAnswerTaken;
    }
    write_all(c, &answer, 1);
}

} // namespace os
