// Whom the kernel ends when memory runs out. To be spared is a right that root may lack on a
// machine that it shares, so this is run where it has one of its own.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>

#include "tests/system/DaemonWorld.h"
#include "tests/system/PrivateMounts.h"

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

std::string scoreOf(const std::string& pid) { return contentOf("/proc/" + pid + "/oom_score_adj"); }

TEST_F(WhenMemoryRunsOut, TheShimIsSparedAsTheDaemonIsButItsGuestIsNot) {
  const std::string qemu = "/var/run/waits";
  std::ofstream(qemu) << "#!/bin/sh\necho up\nexec sleep 1000\n";
  chmod(qemu.c_str(), 0755);
  std::filesystem::create_directories("/var/run/shims");
  const std::string log = "/var/run/shims/vm/web1/shim.log";
  const pid_t shim = fork();
  if (shim == 0) {
    setenv("VMAGENT_QEMU", qemu.c_str(), 1);
    setenv("VMAGENT_QEMU_READS", Vm::fakes::programs, 1);
    setenv("VMAGENT_RUN_DIR", "/var/run/shims", 1);
    execl(VMAGENT_SHIM, VMAGENT_SHIM, "-name", "web1", "-chardev",
          "socket,id=monitor,path=/var/run/web1.monitor,server,nowait", nullptr);
    _exit(127);
  }
  EXPECT_TRUE(waitUntil([&] { return contentOf(log).find("qemu: up\n") != std::string::npos; }))
      << contentOf(log);
  std::smatch process;
  const std::string said = contentOf(log);
  EXPECT_TRUE(std::regex_search(said, process, std::regex("process (\\d+) is"))) << said;
  EXPECT_EQ(scoreOf(std::to_string(shim)), "-500\n");
  EXPECT_EQ(scoreOf(process[1]), "0\n") << contentOf(log);
  Vm::fakes::signalProcess(shim, SIGTERM);
  int status = 0;
  EXPECT_EQ(waitpid(shim, &status, 0), shim);
}

}  // namespace
}  // namespace host::fakes
