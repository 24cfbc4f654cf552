// The files in which shims say what is wrong with their guests.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include "host/guests/DiskShims.h"
#include "runtime/base/Exception.h"
#include "runtime/base/fakes/TestFolder.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/loop/ActivityManager.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class GuestFilesTest : public testing::Test {
 protected:
  GuestFilesTest() { fs::create_directory(directory); }

  void start() {
    shims = std::make_unique<DiskShims>(rt::String(run.string()), "15");
    followed = shims->follow({.problem =
                                  [this](const rt::String& vm, const rt::String& problem) {
                                    if (problem.empty())
                                      told.erase(vm.str());
                                    else
                                      told[vm.str()] = problem.str();
                                    ++times;
                                  },
                              .event =
                                  [this](const GuestEvent& event) {
                                    events.push_back(event.vm().str() + ": " + event.kind().str());
                                    ++times;
                                  }});
  }
  void turn() { manager.turn(rt::Seconds(0)); }
  void makeVm(const char* vm) const { fs::create_directory(directory / vm); }
  // As shims do: the whole file at once.
  void write(const char* vm, const char* text) const {
    std::ofstream(directory / vm / "problem.new") << text << "\n";
    fs::rename(directory / vm / "problem.new", directory / vm / "problem");
  }
  void append(const char* vm, const std::string& kind) {
    std::ofstream(directory / vm / "events", std::ios::app)
        << R"({"run":1,"n":)" << ++number << R"(,"kind":")" << kind << "\"}\n";
  }
  void remove(const char* vm) const { fs::remove(directory / vm / "problem"); }

  rt::ActivityManager manager{rt::make<rt::fakes::ManualClock>()};
  const rt::fakes::TestFolder folder;
  const fs::path run = folder.path();
  const fs::path directory = run / "vm";  // of all VMs' directories
  std::map<std::string, std::string> told;
  int times = 0;
  int number = 0;
  std::unique_ptr<DiskShims> shims;
  std::vector<std::string> events;
  rt::Ptr<const rt::Entity> followed;
};

TEST_F(GuestFilesTest, ThatAreThereAreToldAtOnce) {
  makeVm("web1");
  write("web1", "no card");
  start();
  EXPECT_THAT(told, ElementsAre(Pair("web1", "no card")));
}

TEST_F(GuestFilesTest, ThatComeChangeAndGoAreTold) {
  makeVm("web1");
  start();
  write("web1", "no card");
  turn();
  EXPECT_THAT(told, ElementsAre(Pair("web1", "no card")));
  write("web1", "no answer");
  turn();
  EXPECT_THAT(told, ElementsAre(Pair("web1", "no answer")));
  remove("web1");
  turn();
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(GuestFilesTest, OfAVmWhoseDirectoryIsMadeLaterAreTold) {
  start();
  makeVm("web1");
  write("web1", "no card");
  turn();
  EXPECT_THAT(told, ElementsAre(Pair("web1", "no card")));
  makeVm("web2");
  turn();
  write("web2", "no answer");
  turn();
  EXPECT_THAT(told, ElementsAre(Pair("web1", "no card"), Pair("web2", "no answer")));
}

TEST_F(GuestFilesTest, AreToldAfterADirectoryWasRemovedAndMadeAnew) {
  makeVm("web1");
  start();
  write("web1", "no card");
  fs::remove_all(directory / "web1");
  turn();
  makeVm("web1");
  turn();
  EXPECT_THAT(told, IsEmpty());
  write("web1", "no answer");
  turn();
  EXPECT_THAT(told, ElementsAre(Pair("web1", "no answer")));
}

TEST_F(GuestFilesTest, DoNotWakeForOtherFiles) {
  makeVm("web1");
  start();
  times = 0;
  std::ofstream(directory / "web1" / "console.log") << "text";
  std::ofstream(directory / "web1" / "last-error.new") << "text";
  fs::rename(directory / "web1" / "last-error.new", directory / "web1" / "last-error");
  turn();
  EXPECT_EQ(times, 0);
}

// More than the kernel keeps for us, of one VM, and then the one that counts.
TEST_F(GuestFilesTest, AreNotMissedWhenTheKernelLosesEvents) {
  makeVm("a");
  makeVm("web1");
  start();
  int queued = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> queued;
  ASSERT_GT(queued, 0);
  // Each of two names, or the kernel would merge them.
  write("a", "x");
  for (int i = 0; i <= queued / 2; ++i) {
    std::ofstream(directory / "a" / "one") << "";
    fs::rename(directory / "a" / "one", directory / "a" / "two");
    fs::remove(directory / "a" / "two");
  }
  write("web1", "no card");
  for (int i = 0; i < queued; ++i) turn();
  EXPECT_THAT(told, ElementsAre(Pair("a", "x"), Pair("web1", "no card")));
}

TEST_F(GuestFilesTest, EventsAreToldThatAreThereAndThatCome) {
  makeVm("web1");
  append("web1", "started");
  start();
  EXPECT_THAT(events, ElementsAre("web1: started"));
  append("web1", "ready");
  turn();
  EXPECT_THAT(events, ElementsAre("web1: started", "web1: ready"));
  fs::rename(directory / "web1/events", directory / "web1/events.1");
  append("web1", "resumed");
  turn();
  append("web1", "paused");
  turn();
  EXPECT_THAT(events, ElementsAre("web1: started", "web1: ready", "web1: resumed", "web1: paused"));
}

TEST_F(GuestFilesTest, EventsOfAVmWhoseDirectoryIsMadeLaterAreTold) {
  start();
  makeVm("web1");
  turn();
  append("web1", "started");
  turn();
  append("web1", "ready");
  turn();
  EXPECT_THAT(events, ElementsAre("web1: started", "web1: ready"));
}

TEST_F(GuestFilesTest, EventsThatAreAskedForAtOnceAreToldOnce) {
  makeVm("web1");
  start();
  append("web1", "end");
  shims->catchUp("web1");
  EXPECT_THAT(events, ElementsAre("web1: end"));
  turn();
  EXPECT_THAT(events, ElementsAre("web1: end"));
}

TEST_F(GuestFilesTest, NeedADirectory) {
  fs::remove_all(directory);
  EXPECT_THROW(start(), rt::ErrnoException);
}

}  // namespace
}  // namespace host
