// The sleep inhibitor against a mock of logind on a private bus, and without one.
#include "platform/power/SleepInhibitor.h"

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <chrono>

#include "foundation/Log.h"
#include "support/DBusSession.h"
#include "support/Eventually.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;
using test::DBusSession;

// What logind holds, as "what who why mode" of each lock.
std::vector<std::string> inhibitors(const DBusSession& session) {
  std::vector<std::string> all;
  sd_bus* bus = nullptr;
  sd_bus_new(&bus);
  sd_bus_set_address(bus, session.address().c_str());
  sd_bus_set_bus_client(bus, 1);
  sd_bus_message* reply = nullptr;
  if (sd_bus_start(bus) >= 0 &&
      sd_bus_call_method(bus, "org.freedesktop.login1", "/org/freedesktop/login1",
                         "org.freedesktop.login1.Manager", "ListInhibitors", nullptr, &reply,
                         "") >= 0) {
    sd_bus_message_enter_container(reply, 'a', "(ssssuu)");
    const char *what, *who, *why, *mode;
    std::uint32_t user, process;
    while (sd_bus_message_read(reply, "(ssssuu)", &what, &who, &why, &mode, &user, &process) > 0) {
      all.push_back(std::string(what) + " " + who + " " + why + " " + mode);
    }
    sd_bus_message_unref(reply);
  }
  sd_bus_flush_close_unref(bus);
  return all;
}

bool comesToHold(const DBusSession& session, const std::vector<std::string>& expected) {
  return test::eventually([&] { return inhibitors(session) == expected; });
}

TEST(SleepInhibitor, HoldsALockOfLogindWhileItIsAcquired) {
  DBusSession session(DBusSession::Bus::system);
  session.spawn({"/usr/bin/python3", "-m", "dbusmock", "--system", "--template", "logind"});
  ASSERT_TRUE(session.waitForName("org.freedesktop.login1")) << "python3-dbusmock is missing";
  const std::vector<std::string> held = {"idle Velorin Velorin audio playback block"};
  {
    SleepInhibitor inhibitor;
    EXPECT_TRUE(comesToHold(session, {}));
    inhibitor.acquire();
    inhibitor.acquire();
    EXPECT_TRUE(comesToHold(session, held));
    inhibitor.release();
    EXPECT_TRUE(comesToHold(session, {}));
    inhibitor.acquire();
    EXPECT_TRUE(comesToHold(session, held));
  }
  EXPECT_TRUE(comesToHold(session, {}));
}

TEST(SleepInhibitor, WithoutLogindSaysSoOnceAndReturnsAtOnce) {
  const log::Capture capture;
  DBusSession session(DBusSession::Bus::system);
  {
    SleepInhibitor inhibitor;
    const auto before = std::chrono::steady_clock::now();
    inhibitor.acquire();
    inhibitor.release();
    inhibitor.acquire();
    EXPECT_LT(std::chrono::steady_clock::now() - before, 100ms);
    EXPECT_TRUE(capture.waitFor("ℹ️ The machine may fall asleep", 5s));
    session.kill();
    inhibitor.release();
    inhibitor.acquire();
  }
  EXPECT_EQ(capture.lines().size(), 1u);
}

}  // namespace
}  // namespace velorin
