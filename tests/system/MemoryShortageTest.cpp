// Whom the kernel ends when memory runs out. To be spared is a right that root may lack on a
// machine that it shares, so this is run where it has one of its own.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/system/DaemonWorld.h"

namespace host::fakes {
namespace {

class WhenMemoryRunsOut : public testing::Test {
 protected:
  // What a service manager gives the daemon and all that it starts.
  void SetUp() override {
    std::ofstream score("/proc/self/oom_score_adj");
    score << -500 << std::flush;
    ASSERT_TRUE(score) << "it takes the capability SYS_RESOURCE";
  }
  ~WhenMemoryRunsOut() override { std::ofstream("/proc/self/oom_score_adj") << 0; }
};

TEST_F(WhenMemoryRunsOut, TheShimIsSparedAsTheDaemonIsButItsGuestIsNot) {
  const std::string qemu = "/var/run/tells-its-score";
  std::ofstream(qemu) << "#!/bin/sh\n"
                         "echo $(cat /proc/self/oom_score_adj /proc/$PPID/oom_score_adj) >&2\n"
                         "exit 3\n";
  chmod(qemu.c_str(), 0755);
  std::filesystem::create_directories("/var/run/shims");
  setenv("VMAGENT_QEMU", qemu.c_str(), 1);
  setenv("VMAGENT_RUN_DIR", "/var/run/shims", 1);
  const Ended shim = run({VMAGENT_SHIM, "-name", "web1", "-chardev",
                          "socket,id=monitor,path=/var/run/web1.monitor,server,nowait"});
  EXPECT_EQ(shim.status, 3) << shim.err;
  EXPECT_EQ(contentOf("/var/run/shims/vm/web1/last-error"), "0 -500\n");
}

}  // namespace
}  // namespace host::fakes
