// Sleep and power-off against a mock of logind on a private bus, and without one.
#include "platform/power/PowerActions.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <sstream>

#include "foundation/Log.h"
#include "support/DBusSession.h"
#include "support/Eventually.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;
using test::DBusSession;

TEST(PowerActions, AskLogindOnceItIsSilent) {
  const test::TemporaryFolder folder;
  const auto calls = [&] {
    std::stringstream text;
    text << std::ifstream(folder / "calls").rdbuf();
    return text.str();
  };
  DBusSession session(DBusSession::Bus::system);
  session.spawn({"/usr/bin/python3", "-m", "dbusmock", "--system", "--logfile", folder / "calls",
                 "--template", "logind"});
  ASSERT_TRUE(session.waitForName("org.freedesktop.login1")) << "python3-dbusmock is missing";
  const log::Capture capture;
  PowerActions actions;
  const auto before = std::chrono::steady_clock::now();
  actions.suspend();
  ASSERT_TRUE(test::eventually([&] { return calls().find("Suspend False") != std::string::npos; }));
  EXPECT_GE(std::chrono::steady_clock::now() - before, 300ms);
  EXPECT_EQ(calls().find("PowerOff"), std::string::npos);
  actions.powerOff();
  ASSERT_TRUE(
      test::eventually([&] { return calls().find("PowerOff False") != std::string::npos; }));
  session.kill();
  actions.suspend();
  // Of this call, or of the one before where the answer was still on its way.
  EXPECT_TRUE(capture.waitFor("ℹ️ The machine cannot be ", 10s));
  actions.powerOff();
  std::this_thread::sleep_for(400ms);  // longer than the wait for silence
  EXPECT_EQ(capture.lines().size(), 1U) << "said once";
}

}  // namespace
}  // namespace velorin
