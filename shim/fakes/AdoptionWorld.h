// Daemons that come and go, and the shims that they start, of one VM.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "shim/fakes/DaemonProcess.h"
#include "shim/fakes/ShimWorld.h"

namespace shim::fakes {

class AdoptionWorld : public ShimWorld {
 protected:
  // What is left of a test that failed.
  ~AdoptionWorld() override {
    daemons.clear();
    for (const rt::Descriptor& shim : shims)
      syscall(SYS_pidfd_send_signal, shim.number(), SIGKILL, 0, 0);
  }

  DaemonProcess& daemon(const std::vector<std::string>& words) {
    daemons.push_back(
        std::make_unique<DaemonProcess>(VMAGENT_SHIM, words, environment(), monitor(), listener));
    shims.emplace_back(static_cast<int>(syscall(SYS_pidfd_open, daemons.back()->shim(), 0)));
    return *daemons.back();
  }
  DaemonProcess& daemon(int cards = 0) { return daemon(arguments(cards)); }
  // A guest that runs, of a daemon that is gone; its QEMU.
  pid_t orphan(int cards = 0) {
    DaemonProcess& first = daemon(cards);
    AgentClient(monitor()).bringUp();
    first.kill();
    const auto qemus = qemusOfOurs();
    return qemus.size() == 1 ? qemus.front() : -1;
  }
  // Its QEMUs have files open in each test's folder.
  std::vector<pid_t> qemusOfOurs() const { return qemusWith(folder.path()); }
  pid_t keeper() const {
    LineClient client(file("shim.sock"));
    const std::string line = client.line();
    const size_t at = line.find("\"pid\":");
    return at == std::string::npos ? -1 : std::atoi(line.c_str() + at + 6);
  }
  // Nothing runs, and nothing lies about that only a guest has.
  void expectNothingLeft() const {
    EXPECT_TRUE(comeToBe(0, folder.path()));
    for (const rt::Descriptor& shim : shims) EXPECT_TRUE(becomesReadable(shim.number()));
  }

  Listener listener = Listener::handedOver;  // of daemons to come
  std::vector<std::unique_ptr<DaemonProcess>> daemons;
  std::vector<rt::Descriptor> shims;  // all that were started, as processes
};

}  // namespace shim::fakes
