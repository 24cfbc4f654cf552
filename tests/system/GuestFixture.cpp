#include "tests/system/GuestFixture.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace host::fakes {

namespace {

namespace fs = std::filesystem;

// Nodes of taps in the daemon's /dev.
std::vector<std::string> tapNodes(pid_t daemon) {
  std::vector<std::string> found;
  for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(daemon) + "/root/dev"))
    if (const std::string name = entry.path().filename(); name.starts_with("tap"))
      found.push_back(name);
  return found;
}

}  // namespace

std::vector<std::string> GuestFixture::options() {
  // The guest of one sector takes no notice of its power button.
  return {"--shim", VMAGENT_SHIM, "--accel", "tcg", "--stop-timeout", "1"};
}

void GuestFixture::start(const std::vector<std::string>& more) {
  std::vector<std::string> words = options();
  words.insert(words.end(), more.begin(), more.end());
  world.start(words);
}

Ended GuestFixture::addVm(const std::string& name, const std::vector<std::string>& more,
                          const std::string& image) const {
  const std::string disk = "/var/run/" + name + ".img";
  fs::copy_file(image.empty() ? BOOTSECTOR : image, disk);
  std::vector<std::string> words = {"add", name, "--disk", disk, "--memory", "32", "--enabled"};
  words.insert(words.end(), more.begin(), more.end());
  return world.vmctl(words);
}

void GuestFixture::bootVm(const std::string& name, const std::vector<std::string>& more,
                          const std::string& image) const {
  const Ended ended = addVm(name, more, image);
  ASSERT_EQ(ended.status, 0) << ended.err;
  ASSERT_TRUE(world.saysOnConsole(name, ready)) << world.log();
  ASSERT_THAT(world.qemus(name), testing::SizeIs(1));
}

void GuestFixture::runVm(const std::string& name, const std::vector<std::string>& more) const {
  bootVm(name, more);
  expectShownRunning(name);
}

void GuestFixture::expectShownRunning(const std::string& name) const {
  world.ctl({"wait", name, "--for", "state=Running", "--timeout", "40"});
}

bool GuestFixture::says(const std::string& name, const std::string& text) const {
  return waitUntil(
      [&] {
        return world.vmctl({"why", name}).out.find(text) != std::string::npos;
      },
      30);
}

std::string GuestFixture::told(const std::string& name) const {
  return world.vmctl({"why", name}).out + world.row("vmProcess", name) +
         world.row("vmProblem", name) + world.log();
}

bool GuestFixture::becomes(const std::string& name, const std::string& state) const {
  return waitUntil([&] { return world.hasRow("vmStatus", name, R"("state":")" + state + "\""); });
}

void GuestFixture::expectEcho(const std::string& name, const std::string& text) const {
  const size_t from = world.console(name).size();
  world.type(name, text);
  EXPECT_TRUE(world.saysOnConsole(name, text, from)) << world.console(name);
}

void GuestFixture::expectNothingLeftOf(const std::string& name) const {
  EXPECT_THAT(world.qemus(name), testing::IsEmpty());
  EXPECT_THAT(world.guests(name), testing::IsEmpty());
  EXPECT_FALSE(fs::exists("/var/run/" + name + ".monitor"));
  for (const auto& entry : fs::directory_iterator(world.runDir + "/vm/" + name))
    EXPECT_THAT(entry.path().filename().string(),
                testing::AnyOf("console.log", "events", "shim.log", "last-error", "lock"));
  EXPECT_EQ(macvtaps(), "");
  EXPECT_TRUE(waitUntil([&] { return tapNodes(world.daemon()).empty(); }));
}

void GuestFixture::waitForPolls(const std::string& name, size_t more) const {
  const size_t wanted = world.polls(name).size() + more;
  const double patience = 3 * pollInterval * static_cast<double>(more);
  EXPECT_TRUE(waitUntil([&] { return world.polls(name).size() >= wanted; }, patience));
}

void addPort(const std::string& port) {
  ip("link add " + port + " type veth peer name wire");
  ip("link set " + port + " up");
}

std::string macvtaps() { return run({"/sbin/ip", "-o", "link", "show", "type", "macvtap"}).out; }

}  // namespace host::fakes
