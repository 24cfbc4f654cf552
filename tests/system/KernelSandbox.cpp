#include "tests/system/KernelSandbox.h"

#include <net/if.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>
#include <netlink/route/link/macvtap.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

#include "runtime/base/Check.h"

namespace Vm::fakes {

std::string enterKernelSandbox() {
  if (geteuid() != 0) return "root, for network and mount namespaces of its own";
  if (access("/usr/sbin/ip", X_OK) != 0 && access("/sbin/ip", X_OK) != 0) return "iproute2";
  if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0 ||
      mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0 ||
      mount("tmpfs", "/dev", "tmpfs", 0, "mode=755") != 0)
    return "the right to make network and mount namespaces of its own";
  return {};
}

void ip(const std::string& arguments) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe,cert-env33-c): one thread, and a fixed program
  const int status = std::system(("/sbin/ip " + arguments).c_str());
  rt::check(status == 0, arguments.c_str());
}

void makeTapNode(const std::string& device) {
  const std::string name = "tap" + std::to_string(if_nametoindex(device.c_str()));
  std::ifstream file("/sys/class/net/" + device + "/" + name + "/dev");
  unsigned major = 0;
  unsigned minor = 0;
  char colon = 0;
  file >> major >> colon >> minor;
  rt::check(static_cast<bool>(file), "the device has no tap");
  const std::string node = "/dev/" + name;
  rt::check(mknod(node.c_str(), S_IFCHR | 0600, makedev(major, minor)) == 0, "mknod");
}

std::optional<KernelDevice> kernelDevice(const std::string& name) {
  const std::unique_ptr<nl_sock, void (*)(nl_sock*)> sock(nl_socket_alloc(), nl_socket_free);
  rt::check(sock && nl_connect(sock.get(), NETLINK_ROUTE) == 0, "no netlink socket");
  rtnl_link* found = nullptr;
  if (rtnl_link_get_kernel(sock.get(), 0, name.c_str(), &found) < 0) return std::nullopt;
  const std::unique_ptr<rtnl_link, void (*)(rtnl_link*)> link(found, rtnl_link_put);
  KernelDevice device;
  device.index = static_cast<uint32_t>(rtnl_link_get_ifindex(found));
  device.lower = static_cast<uint32_t>(rtnl_link_get_link(found));
  device.up = (rtnl_link_get_flags(found) & IFF_UP) != 0;
  if (const char* const kind = rtnl_link_get_type(found)) device.kind = kind;
  if (device.kind == "macvtap") device.macvtapMode = rtnl_link_macvtap_get_mode(found);
  char text[32] = "";
  if (nl_addr* const address = rtnl_link_get_addr(found))
    device.mac = nl_addr2str(address, text, sizeof text);
  return device;
}

}  // namespace Vm::fakes
