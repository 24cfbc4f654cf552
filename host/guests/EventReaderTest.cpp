#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "host/guests/EventReader.h"
#include "runtime/base/fakes/TestFolder.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

class EventReaderTest : public testing::Test {
 protected:
  EventReaderTest() { fs::create_directory(directory / "web1"); }

  void write(const std::string& text) const {
    std::ofstream(directory / "web1/events", std::ios::app) << text;
  }
  static std::string line(int run, int n, const std::string& kind) {
    return "{\"run\":" + std::to_string(run) + ",\"n\":" + std::to_string(n) +
           ",\"at\":1,\"up\":1,\"kind\":\"" + kind + "\"}\n";
  }
  std::vector<std::string> read() {
    std::vector<std::string> kinds;
    for (const auto& event : reader.read("web1")) kinds.push_back(event->kind().str());
    return kinds;
  }

  const rt::fakes::TestFolder folder;
  const fs::path directory = folder.path();
  EventReader reader{rt::String((directory.string()))};
};

TEST_F(EventReaderTest, TellsEachEventOnce) {
  EXPECT_THAT(read(), IsEmpty());
  write(line(7, 1, "started") + line(7, 2, "ready"));
  EXPECT_THAT(read(), ElementsAre("started", "ready"));
  EXPECT_THAT(read(), IsEmpty());
  write(line(7, 3, "resumed"));
  EXPECT_THAT(read(), ElementsAre("resumed"));
  write(line(8, 1, "started"));
  EXPECT_THAT(read(), ElementsAre("started"));
}

TEST_F(EventReaderTest, TellsALineOnceItIsWhole) {
  const std::string whole = line(7, 1, "started");
  write(whole.substr(0, 20));
  EXPECT_THAT(read(), IsEmpty());
  write(whole.substr(20));
  EXPECT_THAT(read(), ElementsAre("started"));
  const std::string next = line(7, 3, "resumed");
  write(line(7, 2, "ready") + next.substr(0, 20));
  EXPECT_THAT(read(), ElementsAre("ready"));
  EXPECT_THAT(read(), IsEmpty());
  write(next.substr(20));
  EXPECT_THAT(read(), ElementsAre("resumed"));
}

TEST_F(EventReaderTest, GoesOnWhereTheFileBecameTheOlderOne) {
  write(line(7, 1, "started"));
  EXPECT_THAT(read(), ElementsAre("started"));
  write(line(7, 2, "ready"));
  fs::rename(directory / "web1/events", directory / "web1/events.1");
  write(line(7, 3, "resumed"));
  EXPECT_THAT(read(), ElementsAre("ready", "resumed"));
  fs::rename(directory / "web1/events", directory / "web1/events.1");
  write(line(7, 4, "paused"));
  EXPECT_THAT(read(), ElementsAre("paused"));
}

TEST_F(EventReaderTest, TellsWhatIsLeftWhereMoreWasWrittenThanIsKept) {
  write(line(7, 1, "started"));
  EXPECT_THAT(read(), ElementsAre("started"));
  fs::remove(directory / "web1/events");
  write(line(7, 90, "paused") + line(7, 91, "resumed"));
  EXPECT_THAT(read(), ElementsAre("paused", "resumed"));
}

TEST_F(EventReaderTest, LeavesOutWhatIsNoEvent) {
  write("rubbish\n\n[1]\n" + line(7, 1, "started") + "{\"run\":\"x\"}\n");
  EXPECT_THAT(read(), ElementsAre("started"));
}

TEST_F(EventReaderTest, TakesWhatItKnowsOfALineOfALaterVersion) {
  write(R"({"run":7,"n":1,"kind":"end","exit":3,"mood":"bad"})"
        "\n");
  EXPECT_THAT(read(), ElementsAre("end"));
}

TEST_F(EventReaderTest, TellsALineOnceThatIsInBothFiles) {
  write(line(7, 1, "started") + line(7, 2, "ready"));
  fs::copy_file(directory / "web1/events", directory / "web1/events.1");
  EXPECT_THAT(read(), ElementsAre("started", "ready"));
}

TEST_F(EventReaderTest, FollowsNoLinkAndWaitsForNoPipe) {
  std::ofstream(directory / "elsewhere") << line(7, 1, "started");
  fs::create_symlink(directory / "elsewhere", directory / "web1/events");
  EXPECT_THAT(read(), IsEmpty());
  fs::remove(directory / "web1/events");
  ASSERT_EQ(mkfifo((directory / "web1/events").c_str(), 0600), 0);
  EXPECT_THAT(read(), IsEmpty());
}

}  // namespace
}  // namespace host
