// The daemon is killed again and again while configuration changes: nothing that was committed is
// lost, nothing is left over, and no VM runs twice.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <map>
#include <random>
#include <set>
#include <string>

#include "tests/system/DaemonWorld.h"

namespace host::fakes {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

constexpr int rounds = 200;

class DaemonKill : public testing::Test {
 protected:
  static std::string document(bool enabled, int memory) {
    return std::string(R"({"enabled":)") + (enabled ? "true" : "false") +
           R"(,"diskImage":"/var/run/disk.img","memory":)" + std::to_string(memory) + "}";
  }
  // Adds, changes, switches or removes one of four VMs.
  void change() {
    const std::string name = "web" + std::to_string(random_() % 4);
    const std::string doc =
        random_() % 5 == 0 ? ""
                           : document(random_() % 2 == 0, 64 + static_cast<int>(random_() % 8));
    world.write("vmConfig", name, doc);
    committed_[name] = doc;
  }
  // At most one guest of each, or else a name.
  std::string twice() const {
    std::set<std::string> seen;
    for (const auto& [name, doc] : committed_)
      if (world.guests(name).size() > 1) return name;
    return {};
  }
  bool isSettled(const std::string& name, const std::string& doc) const {
    const bool on = doc.find(R"("enabled":true)") != std::string::npos;
    if (world.guests(name).size() != (on ? 1U : 0U)) return false;
    if (doc.empty()) return world.row("vmStatus", name).empty();
    return world.hasRow("vmStatus", name, on ? R"("enabled":true)" : R"("enabled":false)");
  }

  DaemonWorld world;
  std::map<std::string, std::string> committed_;
  std::mt19937 random_{1};  // NOLINT(cert-msc51-cpp,cert-msc32-c): the same moments every time
};

TEST_F(DaemonKill, LosesNothingAndLeavesNothingBehind) {
  world.start();
  for (int round = 0; round < rounds; ++round) {
    for (int changes = static_cast<int>(random_() % 3); changes >= 0; --changes) change();
    waitUntil([] { return false; }, static_cast<double>(random_() % 40) / 1000);
    ASSERT_EQ(world.end(SIGKILL), -SIGKILL);
    ASSERT_EQ(twice(), "") << "in round " << round;
    if (round % 2 == 0) change();  // while no daemon runs
    world.launch();
    waitUntil([] { return false; }, static_cast<double>(random_() % 60) / 1000);
  }
  world.end(SIGKILL);
  world.start();
  for (const auto& each : committed_) {
    const auto& name = each.first;
    const auto& doc = each.second;
    EXPECT_EQ(world.row("vmConfig", name), doc);
    EXPECT_TRUE(waitUntil([&] { return isSettled(name, doc); }, 30))
        << name << " " << doc << "\n"
        << world.row("vmStatus", name) << "\n"
        << world.log();
  }
  EXPECT_EQ(twice(), "");
  for (const auto& [name, doc] : committed_) world.write("vmConfig", name, "");
  EXPECT_TRUE(waitUntil([&] { return world.guests().empty(); }, 30));
}

}  // namespace
}  // namespace host::fakes
