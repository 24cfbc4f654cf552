// What an operator is told has happened, with a real QEMU and what is shipped.
#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>

#include "tests/system/GuestFixture.h"

namespace host::fakes {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace fs = std::filesystem;

class Events : public GuestFixture {
 protected:
  // Lines of JSON without the moment at which they were shown.
  static std::string withoutNow(const std::string& lines) {
    return std::regex_replace(lines, std::regex(R"("now":[0-9]+)"), "");
  }
  // The store and the seq of the last of such lines.
  static std::pair<std::string, std::string> lastNumberIn(const std::string& lines) {
    std::pair<std::string, std::string> last;
    const std::regex number(R"re("store":"([^"]+)","op":"event","seq":([0-9]+))re");
    for (std::sregex_iterator at(lines.begin(), lines.end(), number), end; at != end; ++at)
      last = {(*at)[1], (*at)[2]};
    return last;
  }
  std::string history(const std::string& name) const {
    return world.vmctl({"history", name, "-o", "json"}).out;
  }
  bool tells(const std::string& name, const std::string& text) const {
    return waitUntil([&] { return history(name).find(text) != std::string::npos; }, 20);
  }
  static size_t countOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
      ++count;
    return count;
  }
};

TEST_F(Events, TellAVmsLifeWithTimesAndAuthors) {
  start();
  bootVm("web1");
  EXPECT_TRUE(tells("web1", R"("kind":"state","reason":"running")")) << history("web1");
  world.ctl({"set", "web1", "memory=96"});
  EXPECT_TRUE(tells("web1", "memory 64 -> 96") || tells("web1", " -> 96")) << history("web1");
  EXPECT_THAT(history("web1"), HasSubstr(R"("via":"vmctl set")"));
  world.ctl({"reset", "web1"});
  EXPECT_TRUE(tells("web1", R"("reason":"reset","severity":"note")")) << history("web1");
  world.ctl({"stop", "web1", "--now"});
  EXPECT_TRUE(tells("web1", R"("kind":"end","reason":"powered-off")")) << history("web1");
  EXPECT_THAT(history("web1"), HasSubstr("the guest was switched off by "));
  const std::string table = world.vmctl({"events"}).out;
  EXPECT_THAT(table, ContainsRegex("web1 +config +.* -> 96 .*\\(vmctl set\\)"));
  EXPECT_THAT(table, ContainsRegex("web1 +ended +the guest was switched off"));
}

TEST_F(Events, AreToldOnceThoughTheDaemonIsExchanged) {
  start();
  bootVm("web1");
  bootVm("web2");
  world.ctl({"reset", "web1"});
  ASSERT_TRUE(tells("web1", R"("reason":"reset")"));
  world.type("web2", powerOff);
  ASSERT_TRUE(tells("web2", R"("reason":"guest-shutdown")"));
  world.end(SIGKILL);
  kill(world.qemus("web1").front(), SIGKILL);
  start();
  EXPECT_TRUE(tells("web1", R"("kind":"end","reason":"killed")")) << history("web1");
  EXPECT_EQ(countOf(history("web1"), R"("reason":"reset")"), 1U) << history("web1");
  EXPECT_EQ(countOf(history("web2"), R"("reason":"guest-shutdown")"), 1U) << history("web2");
  EXPECT_EQ(countOf(world.vmctl({"events", "-o", "json"}).out, R"("reason":"begun")"), 2U);
}

TEST_F(Events, AreToldWhateverOthersHaveWrittenAmongThem) {
  start();
  bootVm("web1");
  world.end(SIGKILL);
  world.write("event", "000000000900",
              R"({"id":900,"seq":900,"vm":"web1","kind":"guest","run":9000000000000000,"n":9})");
  world.write("event", "9223372036854775807",
              R"({"id":9223372036854775807,"seq":9223372036854775807,"vm":"web1","kind":"end"})");
  start();
  world.ctl({"reset", "web1"});
  EXPECT_TRUE(tells("web1", R"("seq":902,)")) << history("web1");
  EXPECT_TRUE(tells("web1", R"("reason":"reset")")) << history("web1");
  EXPECT_THAT(history("web1"), Not(HasSubstr("9223372036854775807")));
}

TEST_F(Events, TellWhatWasChangedWhileNoDaemonRan) {
  start();
  bootVm("web1");
  world.end(SIGKILL);
  world.ctl({"set", "web1", "memory=96"});
  start();
  EXPECT_TRUE(tells("web1", "changed while no vmagentd ran")) << history("web1");
  EXPECT_THAT(history("web1"), HasSubstr(R"("via":"vmctl set")"));
}

TEST_F(Events, OutliveARebootWhereTheyAreKeptAndAReaderGoesOnBehindHisNumber) {
  start({"--keep-history"});
  bootVm("web1");
  world.type("web1", powerOff);
  ASSERT_TRUE(tells("web1", R"("reason":"guest-shutdown")"));
  world.ctl({"disable", "web1"});
  world.end(SIGTERM);
  const std::string before = world.vmctl({"events", "-o", "json"}).out;
  fs::remove_all(world.runDir);
  start({"--keep-history"});
  const std::string after = world.vmctl({"events", "-o", "json"}).out;
  EXPECT_EQ(withoutNow(after).find(withoutNow(before)), 0U) << before << after;
  const auto [store, seq] = lastNumberIn(before);
  const Ended more = world.vmctl({"events", "-o", "json", "--after", store + ":" + seq});
  EXPECT_THAT(more.out, HasSubstr(R"("reason":"begun")"));
  EXPECT_THAT(more.out, Not(HasSubstr("lost")));
  EXPECT_THAT(more.out, Not(HasSubstr("guest-shutdown")));
}

TEST_F(Events, OfTheLastMinuteBeforeThePowerFailedAreSaidToBeLostAndTheirNumbersAreNobodyElses) {
  start({"--keep-history"});
  ASSERT_TRUE(waitUntil([&] { return fs::exists(world.stateDir + "/kept/events"); }));
  world.addVm("web1");
  ASSERT_TRUE(tells("web1", R"("reason":"added")"));
  const auto [store, seq] = lastNumberIn(world.vmctl({"events", "-o", "json"}).out);
  world.end(SIGKILL);
  fs::remove_all(world.runDir);
  start({"--keep-history"});
  const std::string all = world.vmctl({"events", "-o", "json", "--after", store + ":" + seq}).out;
  EXPECT_THAT(all, HasSubstr(R"("op":"lost","reason":"not-kept")"));
  EXPECT_GT(std::stoull(lastNumberIn(all).second), std::stoull(seq) + 1'000) << all;
}

TEST_F(Events, BeginAnewWhereTheirFileIsDamagedWhichIsPutAside) {
  fs::create_directories(world.stateDir + "/kept");
  std::ofstream(world.stateDir + "/kept/events") << "rubbish\n";
  start({"--keep-history"});
  EXPECT_THAT(world.log(), HasSubstr("kept/events: line 1 is no event: it is put aside"));
  EXPECT_EQ(contentOf(world.stateDir + "/kept/events.bad"), "rubbish\n");
  EXPECT_THAT(world.vmctl({"events", "-o", "json"}).out, HasSubstr(R"("seq":1,)"));
  world.end(SIGTERM);
  EXPECT_THAT(contentOf(world.stateDir + "/kept/events"), HasSubstr(R"("reason":"ended")"));
}

TEST_F(Events, SinceAMomentAreThoseBehindIt) {
  start();
  bootVm("web1");
  EXPECT_THAT(world.vmctl({"history", "web1", "--since", "yesterday"}).out, HasSubstr("added"));
  // What happened in this second is not behind us yet.
  EXPECT_TRUE(waitUntil([&] {
    return world.vmctl({"history", "web1", "--since", "0s"}).out.find("added") == std::string::npos;
  }));
  EXPECT_EQ(world.vmctl({"history", "web1", "--since", "2126-01-01"}).status, 2);
}

}  // namespace
}  // namespace host::fakes
