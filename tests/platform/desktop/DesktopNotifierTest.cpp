// Notifications against a server on a private bus, which keeps what it is given.
#include "platform/desktop/DesktopNotifier.h"

#include <gtest/gtest.h>

#include <fstream>

#include "NotificationServer.h"
#include "foundation/Log.h"
#include "platform/desktop/SessionBus.h"
#include "support/ChildProcess.h"
#include "support/DBusSession.h"
#include "support/Eventually.h"
#include "support/TemporaryFolder.h"

namespace velorin {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;
using Server = test::NotificationServer;

class DesktopNotifierTest : public testing::Test {
 protected:
  DesktopNotifierTest() { MainThread::instance(); }

  static DesktopNotification notification(std::string summary) {
    DesktopNotification made;
    made.summary = std::move(summary);
    made.body = "A & B\n<c>";
    made.actions = {{.key = "NEXT", .label = "Next"}};
    return made;
  }

  Lines invoked;
  test::DBusSession session;
  SessionBus bus;
  std::optional<DesktopNotifier> notifier{
      std::in_place, bus, [this](const std::string& key) { invoked.push_back(key); }};
};

TEST_F(DesktopNotifierTest, EachTakesThePlaceOfTheLastAndItsActionsAreHeard) {
  test::TemporaryFolder folder;
  Server server({"actions", "body", "body-markup"});
  DesktopNotification first = notification(
      "On\xFF"
      "e");
  first.imagePath = folder / "cover .jpg";
  std::ofstream(first.imagePath) << "picture";
  notifier->show(first);
  const auto shown = server.shown(1);
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_EQ(shown[0].summary, "On\uFFFDe");
  EXPECT_EQ(shown[0].body, "A &amp; B\n&lt;c&gt;");
  EXPECT_EQ(shown[0].actions, (Lines{"NEXT", "Next"}));
  EXPECT_EQ(shown[0].hints.at("desktop-entry").get<std::string>(), "velorin");
  EXPECT_EQ(shown[0].hints.at("urgency").get<std::uint8_t>(), 0);
  EXPECT_TRUE(shown[0].hints.at("image-path").get<std::string>().ends_with("/cover%20.jpg"));

  // A server that takes its time gets the last one only, and that as a replacement.
  server.setSlow(true);
  notifier->show(notification("Two"));
  server.shown(2);
  notifier->show(notification("Three"));
  notifier->show(notification("Four"));
  server.setSlow(false);
  const auto all = server.shown(3);
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[1].replaces, 41u);
  EXPECT_EQ(all[2].summary, "Four");
  EXPECT_EQ(all[2].replaces, 42u);

  // The answer to "Four" comes before the signals: one connection, in order.
  server.emit("ActionInvoked", std::uint32_t{7}, std::string("OTHER PROGRAM'S"));
  server.emit("ActionInvoked", std::uint32_t{42}, std::string("NEXT"));
  MainThread::instance().runUntil([&] { return !invoked.empty(); }, 10s);
  EXPECT_EQ(invoked, Lines{"NEXT"});
  notifier.reset();
  EXPECT_EQ(server.shown(4).back().summary, "closed");
}

TEST_F(DesktopNotifierTest, AServerThatShowsLessGetsLess) {
  Server server({"body"});
  notifier->show(notification("One"));
  const auto shown = server.shown(1);
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_EQ(shown[0].body, "A & B\n<c>");
  EXPECT_EQ(shown[0].actions, Lines{});
  EXPECT_EQ(shown[0].hints.count("image-path"), 0u);
  // What was closed is not replaced, once that is known.
  EXPECT_TRUE(test::eventually([&, count = std::size_t{1}]() mutable {
    server.emit("NotificationClosed", std::uint32_t{41}, std::uint32_t{1});
    notifier->show(notification("Two"));
    return server.shown(++count).back().replaces == 0;
  }));
}

TEST_F(DesktopNotifierTest, WithoutAServerItIsToldOnceAndALaterOneIsUsed) {
  log::Capture log;
  notifier->show(notification("One"));
  ASSERT_TRUE(log.waitFor("No desktop notifications", 10s));
  notifier->show(notification("Two"));
  Server server({"body"});
  // Asked in order on one connection, so "Two" was answered before this one.
  notifier->show(notification("Three"));
  const auto shown = server.shown(1);
  ASSERT_FALSE(shown.empty());
  EXPECT_EQ(log.lines().size(), 1u);
}

/// Of dunst: on a screen that nobody sees, with a chooser of actions that takes "Next".
TEST_F(DesktopNotifierTest, ARealServerShowsOneAtATimeAndAnswersWithTheChosenAction) {
  for (const char* program : {"Xvfb", "dunst", "dunstctl"}) {
    if (test::findProgram(program).empty()) GTEST_SKIP() << "not installed: " << program;
  }
  test::TemporaryFolder folder;
  const std::string chooser = folder / "chooser";
  std::ofstream(chooser) << "#!/bin/sh\ngrep -m1 Next\n";
  std::filesystem::permissions(chooser, std::filesystem::perms::owner_all);
  std::ofstream(folder / "dunstrc") << "[global]\ndmenu = " << chooser << "\n";

  test::ChildProcess screen;
  ASSERT_TRUE(screen.start({"Xvfb", "-displayfd", "1", "-nolisten", "tcp"}, folder / "display"));
  std::string number;
  ASSERT_TRUE(test::eventually(
      [&] { return static_cast<bool>(std::ifstream(folder / "display") >> number); }));
  session.spawn({"env", "DISPLAY=:" + number, "dunst", "-conf", folder / "dunstrc"});
  ASSERT_TRUE(session.waitForName(Server::kName));

  notifier->show(notification("One"));
  notifier->show(notification("Two"));
  const auto displayed = [] { return test::runProgram({"dunstctl", "count", "displayed"}); };
  ASSERT_TRUE(test::eventually([&] { return displayed() == "1\n"; })) << displayed();
  EXPECT_TRUE(test::eventually([&] {
    test::runProgram({"dunstctl", "action"});
    return MainThread::instance().runUntil([&] { return !invoked.empty(); }, 1s);
  }));
  EXPECT_EQ(invoked.front(), "NEXT");
  notifier.reset();
  EXPECT_TRUE(test::eventually([&] { return displayed() == "0\n"; })) << displayed();
}

}  // namespace
}  // namespace velorin
