// The console of a guest, for several viewers.
#include <gmock/gmock.h>
#include <poll.h>

#include "shim/fakes/DaemonProcess.h"
#include "shim/fakes/ShimWorld.h"

namespace shim {
namespace {

using fakes::AgentClient;
using fakes::LineClient;
using fakes::readUntil;
using rt::fakes::modeOf;
using testing::EndsWith;
using testing::HasSubstr;

// A QEMU whose guest prints as fast as it can, when it is told to run.
constexpr char floodingQemu[] = R"(
printf '{"QMP": {}}\n' >&3
while read -r line <&3; do
  printf '{"return": {}, "id": %s\n' "${line##*\"id\":}" >&3
  case $line in
    *cont*) { yes 0123456789abcdef | head -c 20000000; printf '\nTHE END\n'; } >&4;;
    *quit*) exit 0;;
  esac
done)";

class ShimConsole : public fakes::ShimWorld {};

bool hangsUp(const rt::Descriptor& connection) {
  pollfd polled{connection.number(), 0, 0};
  return poll(&polled, 1, fakes::amplePatience) == 1 && (polled.revents & POLLHUP) != 0;
}

TEST_F(ShimConsole, IsSeenByTwoReadersAndTypedAtByAWriter) {
  const auto shim = start();
  AgentClient agent(monitor());
  ASSERT_TRUE(fakes::comesToHold(file("shim.log"), "started as"));
  const LineClient first(file("console.sock"));
  const LineClient second(file("console.sock"));
  LineClient writer(file("console.sock"));
  first.send("view\n");
  agent.bringUp();
  readUntil(writer.socket(), "BOOTSECTOR READY\r\n");
  writer.send("hello");
  for (const LineClient* const viewer : {&first, &second})
    EXPECT_THAT(readUntil(viewer->socket(), "hello"), HasSubstr("BOOTSECTOR READY\r\n"));
  second.send("x");
  EXPECT_THAT(readUntil(second.socket(), "console]\r\n"), HasSubstr("[read-only: "));
  EXPECT_EQ(modeOf(file("console.sock")), 0660);
}

TEST_F(ShimConsole, ShowsWhoComesLateWhatWasWritten) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  ASSERT_TRUE(fakes::comesToHold(file("console.log"), "BOOTSECTOR READY\r\n"));
  const LineClient late(file("console.sock"));
  EXPECT_THAT(readUntil(late.socket(), "READY\r\n"), HasSubstr("BOOTSECTOR READY\r\n"));
}

TEST_F(ShimConsole, DropsAViewerThatStallsWhileTheGuestPrintsAtFullSpeed) {
  const auto shim = start(script(floodingQemu));
  AgentClient agent(monitor());
  agent.line();
  const LineClient stalled(file("console.sock"));
  stalled.send("view\n");
  agent.ask(R"({ "execute": "cont","id": "cont" })");
  EXPECT_TRUE(hangsUp(stalled.socket()));
  EXPECT_TRUE(fakes::comesToHold(file("console.log"), "THE END\n"));
  const LineClient late(file("console.sock"));
  EXPECT_THAT(readUntil(late.socket(), "THE END\n"), EndsWith("THE END\n"));
}

TEST_F(ShimConsole, EndsForItsViewersWithTheGuest) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  const LineClient viewer(file("console.sock"));
  shim->signal(SIGTERM);
  shim->wait();
  EXPECT_TRUE(hangsUp(viewer.socket()));
  EXPECT_EQ(modeOf(file("console.sock")), -1);
}

TEST_F(ShimConsole, StaysWithItsViewersWhenTheDaemonIsKilled) {
  fakes::DaemonProcess daemon(VMAGENT_SHIM, arguments(), environment(), monitor());
  AgentClient agent(monitor());
  agent.bringUp();
  const LineClient viewer(file("console.sock"));
  readUntil(viewer.socket(), "READY\r\n");
  daemon.kill();
  viewer.send("ping");
  EXPECT_THAT(readUntil(viewer.socket(), "ping"), EndsWith("ping"));
  LineClient host(file("shim.sock"));
  host.line();
  host.ask(R"({"stop":{"timeout":0}})");
  EXPECT_TRUE(hangsUp(viewer.socket()));
}

}  // namespace
}  // namespace shim
