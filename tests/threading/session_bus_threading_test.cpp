// The session bus served on the main thread while clients on other threads
// call it at once: every call runs once, on the main thread, and is
// answered; a stop with calls on their way answers none and hangs nothing.
#include "liba/active.h"
#include "os/event_loop.h"
#include "os/session_bus.h"
#include "tests/support/test_support.h"

#include <gtest/gtest.h>

#include <systemd/sd-bus.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

constexpr const char* kName = "org.quillaphonics.Test";
std::thread::id g_main;
std::atomic<int> g_handled{0};

int add_one(sd_bus_message* m, void*, sd_bus_error*)
{
    EXPECT_EQ(std::this_thread::get_id(), g_main);
    uint32_t v = 0;
    sd_bus_message_read(m, "u", &v);
    ++g_handled;
    return sd_bus_reply_method_return(m, "u", v + 1);
}

const sd_bus_vtable kTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("AddOne", "u", "u", add_one, 0),
    SD_BUS_VTABLE_END,
};

// Calls AddOne `count` times on a connection of its own; how many answers
// were right. Stops at the first failure.
int client(uint32_t first, int count)
{
    sd_bus* bus = nullptr;
    if (sd_bus_open_user(&bus) < 0)
        return 0;
    int right = 0;
    for (int i = 0; i < count; ++i) {
        sd_bus_message* reply = nullptr;
        sd_bus_error error = SD_BUS_ERROR_NULL;
        sd_bus_message* call = nullptr;
        uint32_t answer = 0;
        bool ok = sd_bus_message_new_method_call(bus, &call, kName, "/t", "org.quillaphonics.Test", "AddOne") >= 0 &&
                  sd_bus_message_append(call, "u", first + i) >= 0 &&
                  sd_bus_call(bus, call, 3'000'000, &error, &reply) >= 0 && sd_bus_message_read(reply, "u", &answer) >= 0;
        sd_bus_message_unref(call);
        sd_bus_message_unref(reply);
        sd_bus_error_free(&error);
        if (!ok)
            break;
        right += answer == first + static_cast<uint32_t>(i) + 1 ? 1 : 0;
    }
    sd_bus_flush_close_unref(bus);
    return right;
}

TEST(SessionBusThreading, ConcurrentCallersAreAnsweredOnTheMainThreadAndStopHangsNone)
{
    std::string out = test::run_out("dbus-daemon --session --fork --nopidfile --print-address=1 --print-pid=1");
    size_t nl = out.find('\n');
    setenv("DBUS_SESSION_BUS_ADDRESS", out.substr(0, nl).c_str(), 1);
    int daemon = std::atoi(out.c_str() + nl + 1);

    CActiveScheduler scheduler;
    os::EventLoop loop(scheduler);
    g_main = std::this_thread::get_id();
    os::SessionBus bus;
    ASSERT_TRUE(bus.open());
    sd_bus_slot* slot = nullptr;
    ASSERT_GE(sd_bus_add_object_vtable(bus.bus(), &slot, "/t", "org.quillaphonics.Test", kTable, nullptr), 0);
    ASSERT_TRUE(bus.request_name(kName));
    bus.start();

    constexpr int kClients = 4, kCalls = 50;
    std::atomic<int> right{0}, finished{0};
    std::vector<std::thread> clients;
    for (int c = 0; c < kClients; ++c)
        clients.emplace_back([&, c] {
            right += client(static_cast<uint32_t>(c) * 1000, kCalls);
            ++finished;
            loop.wake();
        });
    loop.run([&] { return finished.load() == kClients; });
    for (auto& t : clients)
        t.join();
    EXPECT_EQ(right.load(), kClients * kCalls);
    EXPECT_EQ(g_handled.load(), kClients * kCalls);

    // Callers keep calling while the service stops: each ends within its
    // time-out, and no call runs after the stop.
    finished = 0;
    for (int c = 0; c < kClients; ++c)
        clients[c] = std::thread([&, c] {
            client(static_cast<uint32_t>(c) * 1000, 1000);
            ++finished;
        });
    loop.run([&] { return g_handled.load() > kClients * kCalls + 20; });
    sd_bus_slot_unref(slot);
    bus.stop();
    int after_stop = g_handled.load();
    for (auto& t : clients)
        t.join();
    EXPECT_EQ(finished.load(), kClients);
    EXPECT_EQ(g_handled.load(), after_stop);
    ::kill(daemon, SIGTERM);
    unsetenv("DBUS_SESSION_BUS_ADDRESS");
}

} // namespace
