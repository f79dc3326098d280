// The Unix-socket server under clients that connect at once: every request's
// work runs once, on the main thread, and its answer reaches its client; a
// stop with requests on their way releases every client and runs no more work.
#include "liba/active.h"
#include "os/event_loop.h"
#include "os/unix_socket_server.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// Sends numbers until `count` are answered or the server goes; returns how
// many answers were the number plus one.
int client(const std::string& path, uint32_t first, int count)
{
    int right = 0;
    for (int i = 0; i < count; ++i) {
        int fd = os::connect_unix_socket(path);
        if (fd < 0)
            break;
        uint32_t answer = 0;
        bool answered = os::write_u32le(fd, first + static_cast<uint32_t>(i)) && os::read_u32le(fd, answer);
        ::close(fd);
        if (!answered || answer == 0)
            break;
        right += answer == first + static_cast<uint32_t>(i) + 1 ? 1 : 0;
    }
    return right;
}

TEST(SocketServerThreading, ConcurrentClientsGetTheirAnswersAndStopReleasesThoseWaiting)
{
    CActiveScheduler scheduler;
    os::EventLoop loop(scheduler);
    test::TempDir dir;
    const std::string path = (dir.path() / "server.sock").string();
    const std::thread::id main_thread = std::this_thread::get_id();
    std::atomic<int> handled{0};
    // The serve function refers to the server it belongs to.
    os::UnixSocketServer server("test", [&](int c) {
        uint32_t v = 0;
        if (!os::read_u32le(c, v))
            return;
        uint32_t r = 0;
        bool ran = server.run_on_main([&] {
            EXPECT_EQ(std::this_thread::get_id(), main_thread);
            r = v + 1;
            ++handled;
        });
        os::write_u32le(c, ran ? r : 0);
    });
    ASSERT_TRUE(server.listen(path));

    constexpr int kClients = 4;
    constexpr int kRequests = 40;
    std::vector<std::thread> clients;
    std::atomic<int> right{0};
    for (int k = 0; k < kClients; ++k)
        clients.emplace_back([&, k] { right += client(path, 1000u * static_cast<uint32_t>(k + 1), kRequests); });
    loop.run([&] { return handled.load() == kClients * kRequests; });
    for (auto& t : clients)
        t.join();
    EXPECT_EQ(right.load(), kClients * kRequests);

    // Clients that never stop asking; the server stops under them.
    clients.clear();
    for (int k = 0; k < kClients; ++k)
        clients.emplace_back([&, k] { client(path, 1000u * static_cast<uint32_t>(k + 1), 1 << 30); });
    const int before = handled.load();
    loop.run([&] { return handled.load() >= before + 50; });
    server.stop();
    const int at_stop = handled.load();
    for (auto& t : clients)
        t.join();
    scheduler.dispatch_posted();
    EXPECT_EQ(handled.load(), at_stop) << "no work runs once the server has stopped";
    EXPECT_FALSE(scheduler.has_posted());
}

} // namespace
