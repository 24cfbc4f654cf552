// QEMUs that fail at once, each for a reason of its own: what is told of it, and what is left.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "runtime/base/Descriptor.h"
#include "tests/system/GuestFixture.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

class QemuThatFails : public GuestFixture {
 protected:
  static std::vector<std::string> withCard(const std::string& model = "e1000") {
    return {"--nic", "model=" + model + ",mac=52:54:00:00:00:02,intf=Ethernet1"};
  }
  // The cause is shown in QEMU's words, and nothing is left once nobody asks for the VM.
  void expectStoppedFor(const std::string& name, const std::string& cause) const {
    ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", name, R"("source":"qemu")"); }))
        << world.row("vmProblem", name) << world.log();
    EXPECT_TRUE(becomes(name, "Stopped"));
    const std::string shown = world.ctl({"show", name});
    EXPECT_THAT(shown, HasSubstr("Stopped"));
    EXPECT_THAT(shown, HasSubstr(cause));
    world.ctl({"disable", name, "--wait"});
    expectNothingLeftOf(name);
  }
};

// In QEMU's place, a script that starts QEMU another way; for a while. QEMU stays in its folder,
// for its modules are beside that.
class OtherQemu {
 public:
  explicit OtherQemu(const std::string& script) {
    namespace fs = std::filesystem;
    fs::rename(Vm::fakes::qemuPath, aside);
    std::ofstream(Vm::fakes::qemuPath) << "#!/bin/bash\nqemu=" << aside << "\n" << script << "\n";
    fs::permissions(Vm::fakes::qemuPath, fs::perms(0755));
  }
  OtherQemu(const OtherQemu&) = delete;
  ~OtherQemu() { std::filesystem::rename(aside, Vm::fakes::qemuPath); }

 private:
  static constexpr const char* aside = "/usr/bin/qemu-aside";
};

TEST_F(QemuThatFails, ToBeExecutedIsShownStoppedWithTheCauseAndSoIsItsShim) {
  namespace fs = std::filesystem;
  const std::string shim = "/var/run/own-shim";
  fs::copy_file(VMAGENT_SHIM, shim);
  world.start({"--shim", shim, "--accel", "tcg", "--stop-timeout", "1"});
  {
    const OtherQemu ofNoInterpreter("");
    std::ofstream(Vm::fakes::qemuPath) << "#!/no/interpreter\n";
    ASSERT_EQ(addVm("web1").status, 0);
    expectStoppedFor("web1", "cannot be run: No such file or directory");
  }
  fs::permissions(shim, fs::perms(0644));
  world.ctl({"enable", "web1"});
  expectStoppedFor("web1", "QEMU or its shim could not be executed (exit status 127)");
}

TEST_F(QemuThatFails, IsWaitedForByNobody) {
  const OtherQemu ofNoInterpreter("");
  std::ofstream(Vm::fakes::qemuPath) << "#!/no/interpreter\n";
  start();
  ASSERT_EQ(addVm("web1").status, 0);
  world.ctl({"disable", "web1", "--wait"});
  for (const char* const verb : {"enable", "restart"}) {
    const auto begin = std::chrono::steady_clock::now();
    const Ended ended = world.vmctl({verb, "web1", "--wait", "--timeout", "60"});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20)) << verb;
    EXPECT_EQ(ended.status, 1) << verb;
    EXPECT_THAT(ended.err, HasSubstr("cannot be run: No such file or directory")) << verb;
  }
}

TEST_F(QemuThatFails, ForACardThatItHasNotIsShownStoppedWithTheCauseAndLeavesNothing) {
  const OtherQemu lessThanOurs(R"(exec "$qemu" "${@/#tulip,/no-such-card,}")");
  addPort("Ethernet1");
  start({"--qemu-reads", Vm::fakes::programs});
  ASSERT_EQ(addVm("web1", withCard("tulip")).status, 0);
  expectStoppedFor("web1", "'no-such-card' is not a valid device model name");
}

TEST_F(QemuThatFails, ForAScreenPortInUseIsShownStoppedWithTheCauseAndLeavesNothing) {
  const rt::Descriptor holder(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(5901);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(bind(holder.number(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(holder.number(), 1), 0);
  addPort("Ethernet1");
  start({"--vnc-listen", "127.0.0.1"});
  std::vector<std::string> more = withCard();
  more.insert(more.end(), {"--vnc-port", "5901"});
  ASSERT_EQ(addVm("web1", more).status, 0);
  expectStoppedFor("web1",
                   "the screen cannot be served at port 5901 of 127.0.0.1: Address already in use");
}

TEST_F(QemuThatFails, ForADiskThatAnotherHasIsShownStoppedWithTheCauseAndLeavesNothing) {
  addPort("Ethernet1");
  start();
  // As another QEMU locks it, which is no VM's.
  std::filesystem::copy_file(BOOTSECTOR, "/var/run/web1.img");
  const rt::Descriptor disk(open("/var/run/web1.img", O_RDWR | O_CLOEXEC));
  struct flock noOtherWriter {};
  noOtherWriter.l_type = F_RDLCK;
  noOtherWriter.l_start = 201;
  noOtherWriter.l_len = 1;
  ASSERT_EQ(fcntl(disk.number(), F_OFD_SETLK, &noOtherWriter), 0);
  std::vector<std::string> words = {"add",      "web1", "--disk",   "/var/run/web1.img",
                                    "--memory", "32",   "--enabled"};
  const auto card = withCard();
  words.insert(words.end(), card.begin(), card.end());
  world.ctl(words);
  expectStoppedFor("web1", "Is another process using the image");
}

TEST_F(QemuThatFails, ForWantOfMemoryIsShownStoppedWithTheCauseAndLeavesNothing) {
  const OtherQemu confined("ulimit -v 2200000\nexec \"$qemu\" \"$@\"");
  addPort("Ethernet1");
  start({"--qemu-reads", Vm::fakes::programs});
  bootVm("web1", withCard());  // with little memory it runs
  world.ctl({"set", "web1", "memory=2100"});
  world.ctl({"restart", "web1"});
  expectStoppedFor("web1", "cannot set up guest memory");
}

}  // namespace
}  // namespace host::fakes
