#include "tests/system/TapNodeMaker.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "runtime/base/Check.h"

namespace Vm::fakes {

namespace {

namespace fs = std::filesystem;

// The nodes are what the kernel shows below /sys/class/net/DEVICE/tapN/dev, "MAJOR:MINOR".
void makeNodes() {
  std::error_code gone;  // devices may go while they are looked at
  for (const auto& device : fs::directory_iterator("/sys/class/net", gone))
    for (const auto& entry : fs::directory_iterator(device.path(), gone)) {
      const std::string name = entry.path().filename();
      if (!name.starts_with("tap")) continue;
      std::ifstream file(entry.path() / "dev");
      unsigned major = 0;
      unsigned minor = 0;
      char colon = 0;
      if (file >> major >> colon >> minor)
        mknod(("/dev/" + name).c_str(), S_IFCHR | 0600, makedev(major, minor));
    }
}

bool hasDevice(const std::string& node) {
  std::error_code gone;
  for (const auto& device : fs::directory_iterator("/sys/class/net", gone))
    if (fs::exists(device.path() / node, gone)) return true;
  return false;
}

void removeNodes() {
  for (const auto& entry : fs::directory_iterator("/dev")) {
    const std::string name = entry.path().filename();
    if (name.starts_with("tap") && !hasDevice(name)) fs::remove(entry);
  }
}

}  // namespace

TapNodeMaker::TapNodeMaker()
    : links_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)),
      stop_(eventfd(0, EFD_CLOEXEC)) {
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = RTMGRP_LINK;
  rt::check(bind(links_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 && stop_ >= 0,
            "the tap nodes' maker cannot listen");
  thread_ = std::thread([this] { run(); });
}

TapNodeMaker::~TapNodeMaker() {
  const uint64_t one = 1;
  rt::check(write(stop_, &one, sizeof one) == sizeof one, "write");
  thread_.join();
  close(stop_);
  close(links_);
}

void TapNodeMaker::run() const {
  pollfd ready[] = {{links_, POLLIN, 0}, {stop_, POLLIN, 0}};
  while (true) {
    poll(ready, 2, -1);
    if (ready[1].revents != 0) return;
    char message[8192];
    (void)!recv(links_, message, sizeof message, 0);
    makeNodes();
    removeNodes();
  }
}

}  // namespace Vm::fakes
