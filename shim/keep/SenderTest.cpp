#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "shim/keep/Sender.h"

namespace shim {
namespace {

class Sender : public testing::Test {
 protected:
  Sender() { prctl(PR_GET_NAME, name_); }
  ~Sender() override { prctl(PR_SET_NAME, name_); }

  static std::string ofUs() {
    return "signal 15 to its shim, from process " + std::to_string(getpid());
  }

 private:
  char name_[16] = "";
};

TEST_F(Sender, IsNamed) {
  prctl(PR_SET_NAME, "tester");
  EXPECT_EQ(signalText(15, getpid()), ofUs() + " (tester)");
}

TEST_F(Sender, EndsNoLineByItsName) {
  prctl(PR_SET_NAME, "a\x1b[2J\x7f");
  EXPECT_EQ(signalText(15, getpid()), ofUs() + " (a?[2J?)");
}

TEST_F(Sender, ThatIsGoneHasNoName) {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  waitpid(child, nullptr, 0);
  EXPECT_EQ(signalText(1, child), "signal 1 to its shim, from process " + std::to_string(child));
}

TEST_F(Sender, IsTheKernelForATerminalThatHangsUp) {
  EXPECT_EQ(signalText(1, 0), "signal 1 to its shim, from the kernel");
}

}  // namespace
}  // namespace shim
