// What users of the machine can do who have no right to anything here.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ostream>

#include "tests/system/DaemonFixture.h"

namespace host::fakes {
namespace {

using testing::Contains;
using testing::Not;

constexpr uid_t somebody = 65534;

// A process with the words of a VM's guest, which does not end when it is told to. Killed with
// this.
class Impostor {
 public:
  Impostor(const std::string& vm, uid_t real, uid_t effective) {
    const std::string monitor = "socket,id=monitor,path=/var/run/" + vm + ".monitor,server,nowait";
    const char* const words[] = {"/usr/bin/qemu-system-x86_64",
                                 "-p",
                                 "-c",
                                 "trap '' TERM; echo; read never",
                                 monitor.c_str(),
                                 nullptr};
    int in[2] = {-1, -1};
    int out[2] = {-1, -1};
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      dup2(in[0], STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      if (setgroups(0, nullptr) != 0 || setresgid(somebody, somebody, somebody) != 0 ||
          setresuid(real, effective, effective) != 0)
        _exit(126);
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      execv("/bin/sh", const_cast<char* const*>(words));
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    stdin_ = in[1];
    char ready = 0;
    EXPECT_EQ(read(out[0], &ready, 1), 1);
    close(out[0]);
  }
  Impostor(const Impostor&) = delete;
  ~Impostor() {
    close(stdin_);
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

  pid_t pid() const { return pid_; }
  bool lives() const { return waitpid(pid_, nullptr, WNOHANG) == 0; }

 private:
  pid_t pid_ = 0;
  int stdin_ = -1;
};

struct Users {
  const char* who;
  uid_t real;
  uid_t effective;
};

std::ostream& operator<<(std::ostream& out, const Users& users) { return out << users.who; }

class Stranger : public DaemonFixture, public testing::WithParamInterface<Users> {};

// A daemon ends what an earlier one has left of a VM before it starts it.
TEST_P(Stranger, WithTheWordsOfAGuestNeitherDelaysItNorIsSignalled) {
  world.start();
  world.addVm("web1", {"--enabled"});
  ASSERT_TRUE(waitUntil([&] { return isOn("web1"); }));
  world.ctl({"disable", "web1", "--wait"});
  world.end(SIGTERM);
  const Impostor impostor("web1", GetParam().real, GetParam().effective);
  EXPECT_THAT(world.guests(), Not(Contains(impostor.pid())));
  world.ctl({"enable", "web1"});
  world.start();
  EXPECT_TRUE(waitUntil([&] { return isOn("web1"); }, 4)) << world.log();
  EXPECT_TRUE(impostor.lives());
}

// The second is what a user makes of a program that takes root's rights when it is started.
INSTANTIATE_TEST_SUITE_P(Users, Stranger,
                         testing::Values(Users{"somebody", somebody, somebody},
                                         Users{"asRoot", somebody, 0},
                                         Users{"rootAsSomebody", 0, somebody}),
                         [](const auto& each) { return std::string(each.param.who); });

}  // namespace
}  // namespace host::fakes
