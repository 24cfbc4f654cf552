// Who gets the memory of a guest whose QEMU crashes. What the kernel does with cores is the whole
// machine's, so this is run where there is one of its own.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/system/DaemonWorld.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {
namespace {

namespace fs = std::filesystem;

constexpr const char* coresTaker = "/core-taker";
constexpr const char* taken = "/core-taken";
constexpr const char* pattern = "/proc/sys/kernel/core_pattern";

void makeProgram(const std::string& path, const std::string& text) {
  std::ofstream(path) << "#!/bin/sh\n" << text << "\n";
  chmod(path.c_str(), 0755);
}

// A program takes the machine's cores.
class CrashedQemu : public testing::Test {
 protected:
  void SetUp() override {
    makeProgram(coresTaker, std::string(": >") + taken);
    std::ofstream file(pattern);
    file << "|" << coresTaker << std::flush;
    ASSERT_TRUE(file);
  }
  ~CrashedQemu() override {
    std::ofstream(pattern) << before_;
    fs::remove(taken);
    fs::remove(coresTaker);
  }

  static bool isTaken(double seconds) {
    return waitUntil([] { return fs::exists(taken); }, seconds);
  }

 private:
  const std::string before_ = contentOf(pattern);
};

TEST_F(CrashedQemu, HasItsMemoryTakenByNoProgram) {
  const pid_t another = fork();
  if (another == 0) {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    signal(SIGSEGV, SIG_DFL);  // a sanitizer's
    raise(SIGSEGV);
  }
  int status = 0;
  ASSERT_EQ(waitpid(another, &status, 0), another);
  ASSERT_TRUE(isTaken(10)) << "a limit of no bytes keeps no program from it";
  fs::remove(taken);

  makeProgram("/var/run/crasher", "kill -SEGV $$");
  fs::create_directories("/var/run/crashed");
  setenv("VMAGENT_QEMU", "/var/run/crasher", 1);
  setenv("VMAGENT_QEMU_READS", Vm::fakes::programs, 1);
  setenv("VMAGENT_RUN_DIR", "/var/run/crashed", 1);
  const Ended shim = run({VMAGENT_SHIM, "-name", "web1", "-chardev",
                          "socket,id=monitor,path=/var/run/web1.monitor,server,nowait"});
  for (const char* name : {"VMAGENT_QEMU", "VMAGENT_QEMU_READS", "VMAGENT_RUN_DIR"}) unsetenv(name);
  EXPECT_EQ(shim.status, -SIGSEGV) << contentOf("/var/run/crashed/vm/web1/shim.log");
  EXPECT_FALSE(isTaken(1));
}

}  // namespace
}  // namespace host::fakes
