#include "Vm/VmAgent/fakes/FakeKernel.h"

#include <fcntl.h>
#include <linux/if_link.h>
#include <net/if.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>
#include <netlink/route/link/macvlan.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <utility>

#include "runtime/base/Check.h"
#include "runtime/net/EthAddr.h"

extern "C" {

unsigned __real_if_nametoindex(const char* name);
int __real_ioctl(int descriptor, unsigned long request, ...);
int __real_open(const char* path, int flags, ...);
int __real_close(int descriptor);
nl_sock* __real_nl_socket_alloc();
int __real_nl_connect(nl_sock* sock, int protocol);
rtnl_link* __real_rtnl_link_macvlan_alloc();
int __real_rtnl_link_build_add_request(rtnl_link* link, int flags, nl_msg** message);
int __real_nl_send_sync(nl_sock* sock, nl_msg* message);
rtnl_link* __real_rtnl_link_alloc();
int __real_rtnl_link_delete(nl_sock* sock, const rtnl_link* link);
nl_addr* __real_nl_addr_build(int family, const void* bytes, size_t size);
nlattr* __real_nla_nest_start(nl_msg* message, int type);
int __real_nla_put(nl_msg* message, int type, int size, const void* data);
int __real_nla_put_string(nl_msg* message, int type, const char* text);

}  // extern "C"

namespace Vm::fakes {

namespace {

FakeKernel* currentKernel = nullptr;

constexpr std::string_view tapPath = "/dev/tap";

int failWith(int error) {
  errno = error;
  return -1;
}

}  // namespace

bool FakeKernel::Device::up() const { return (flags & IFF_UP) != 0; }

FakeKernel* FakeKernel::current() { return currentKernel; }

FakeKernel::FakeKernel(EffectLog& log) : log_(log) {
  rt::check(currentKernel == nullptr, "there is a fake kernel already");
  currentKernel = this;
}

FakeKernel::~FakeKernel() { currentKernel = nullptr; }

void FakeKernel::deviceIs(const std::string& name, uint32_t index) {
  Device& device = devices_[name];
  device.index = index;
  device.flags = IFF_UP | IFF_BROADCAST | IFF_MULTICAST;
}

void FakeKernel::deviceDel(const std::string& name) {
  const auto at = devices_.find(name);
  if (at == devices_.end()) return;
  const uint32_t index = at->second.index;
  devices_.erase(at);
  nodes_.erase(index);
  std::erase_if(devices_, [&](const auto& entry) { return entry.second.lower == index; });
}

const FakeKernel::Device* FakeKernel::device(const std::string& name) const {
  const auto at = devices_.find(name);
  return at == devices_.end() ? nullptr : &at->second;
}

std::vector<std::string> FakeKernel::macvtaps() const {
  std::vector<std::string> names;
  for (const auto& [name, device] : devices_)
    if (device.kind == "macvtap") names.push_back(name);
  return names;
}

void FakeKernel::nodeIs(uint32_t index, int afterFailures) { nodes_[index] = afterFailures; }

void FakeKernel::fail(KernelCall call, int error, int successes) {
  failures_[call] = {error, successes};
}

int FakeKernel::calls(KernelCall call) const {
  const auto at = calls_.find(call);
  return at == calls_.end() ? 0 : at->second;
}

int FakeKernel::tapOf(const std::string& deviceName) const {
  const Device* const wanted = device(deviceName);
  for (auto at = openTaps_.rbegin(); at != openTaps_.rend(); ++at)
    if (wanted && at->second == wanted->index) return at->first;
  return -1;
}

int FakeKernel::failureOf(KernelCall call) {
  ++calls_[call];
  const auto at = failures_.find(call);
  if (at == failures_.end() || at->second.successes-- > 0) return 0;
  const int error = at->second.error;
  failures_.erase(at);
  return error;
}

// What the wrapped calls do.
struct KernelCalls {
  static unsigned nameToIndex(FakeKernel& fake, const char* name) {
    int error = fake.failureOf(KernelCall::nameToIndex);
    const auto* const device = fake.device(name);
    if (error == 0 && device) return device->index;
    errno = error == 0 ? ENODEV : error;
    return 0;
  }

  static int flags(FakeKernel& fake, bool set, ifreq& request) {
    if (const int error = fake.failureOf(set ? KernelCall::setFlags : KernelCall::getFlags))
      return failWith(error);
    const auto at = fake.devices_.find(request.ifr_name);
    if (at == fake.devices_.end()) return failWith(ENODEV);
    auto& [name, device] = *at;
    if (!set) {
      request.ifr_flags = static_cast<short>(device.flags);
      return 0;
    }
    const bool up = (request.ifr_flags & IFF_UP) != 0;
    if (up && !device.up() && macIsInUse(fake, device)) return failWith(EBUSY);
    if (up != device.up()) fake.log_.add((up ? "up " : "down ") + name);
    device.flags = request.ifr_flags;
    return 0;
  }

  static bool macIsInUse(const FakeKernel& fake, const FakeKernel::Device& wanted) {
    for (const auto& [name, other] : fake.devices_)
      if (&other != &wanted && other.lower == wanted.lower && other.lower != 0 && other.up() &&
          other.mac == wanted.mac)
        return true;
    return false;
  }

  // For reading, writing or both, as `flags` say.
  static int openTap(FakeKernel& fake, const std::string& path, int flags) {
    if (const int error = fake.failureOf(KernelCall::openTap)) return failWith(error);
    const auto index = static_cast<uint32_t>(std::stoul(path.substr(tapPath.size())));
    const auto node = fake.nodes_.find(index);
    if (node == fake.nodes_.end() || node->second == FakeKernel::never) return failWith(ENOENT);
    if (node->second > 0) {
      --node->second;
      return failWith(ENOENT);
    }
    const int file = memfd_create(path.c_str(), 0);
    const int descriptor = __real_open(("/proc/self/fd/" + std::to_string(file)).c_str(), flags);
    __real_close(file);
    fake.openTaps_[descriptor] = index;
    fake.log_.add("open " + path);
    return descriptor;
  }

  static void closed(FakeKernel& fake, int descriptor, bool wasOpen) {
    if (!wasOpen) ++fake.badCloses_;
    const auto at = fake.openTaps_.find(descriptor);
    if (at == fake.openTaps_.end()) return;
    fake.log_.add("close " + std::string(tapPath) + std::to_string(at->second));
    fake.openTaps_.erase(at);
  }

  // As the kernel reads it: of two attributes of one type the later holds.
  static int newLink(FakeKernel& fake, nlmsghdr* header) {
    nlattr* attributes[IFLA_MAX + 1] = {};
    if (header->nlmsg_type != RTM_NEWLINK ||
        nlmsg_parse(header, sizeof(ifinfomsg), attributes, IFLA_MAX, nullptr) < 0 ||
        !attributes[IFLA_IFNAME] || !attributes[IFLA_LINKINFO])
      return -NLE_INVAL;
    const std::string name = nla_get_string(attributes[IFLA_IFNAME]);
    if (fake.device(name)) return -NLE_EXIST;
    nlattr* info[IFLA_INFO_MAX + 1] = {};
    nla_parse_nested(info, IFLA_INFO_MAX, attributes[IFLA_LINKINFO], nullptr);
    FakeKernel::Device device;
    device.requestedFlags = header->nlmsg_flags;
    if (info[IFLA_INFO_KIND]) device.kind = nla_get_string(info[IFLA_INFO_KIND]);
    if (info[IFLA_INFO_DATA]) {
      nlattr* data[IFLA_MACVLAN_MAX + 1] = {};
      nla_parse_nested(data, IFLA_MACVLAN_MAX, info[IFLA_INFO_DATA], nullptr);
      if (data[IFLA_MACVLAN_MODE]) device.mode = nla_get_u32(data[IFLA_MACVLAN_MODE]);
    }
    if (attributes[IFLA_LINK]) device.lower = nla_get_u32(attributes[IFLA_LINK]);
    if (const nlattr* const address = attributes[IFLA_ADDRESS]; address && nla_len(address) == 6) {
      rt::EthAddr::Bytes bytes{};
      std::memcpy(bytes.data(), nla_data(address), bytes.size());
      device.mac = rt::EthAddr(bytes).text().str();
    }
    std::string lowerName;
    for (const auto& [otherName, other] : fake.devices_)
      if (other.index == device.lower) lowerName = otherName;
    if (lowerName.empty()) return -NLE_NODEV;
    device.index = fake.nextIndex_++;
    fake.nodes_[device.index] = fake.nodeAfter;
    fake.log_.add("link add " + name + " on " + lowerName + " " + device.mac);
    fake.devices_[name] = std::move(device);
    return 0;
  }

  static int sendSync(FakeKernel& fake, nl_msg* message) {
    const int error = fake.failureOf(KernelCall::sendRequest);
    const int result = error ? -error : newLink(fake, nlmsg_hdr(message));
    nlmsg_free(message);  // as nl_send_sync() does in any case
    return result;
  }

  static int linkDelete(FakeKernel& fake, const rtnl_link* link) {
    const char* const given = rtnl_link_get_name(const_cast<rtnl_link*>(link));
    const std::string name = given ? given : "";
    fake.log_.add("link del " + (name.empty() ? "(no name)" : name));
    if (const int error = fake.failureOf(KernelCall::linkDelete)) return -error;
    if (!fake.device(name)) return -NLE_NODEV;
    fake.deviceDel(name);
    return 0;
  }

  // A library call that gives an object, or null when it is to fail.
  template <class Object>
  static Object* object(KernelCall call, Object* (*real)()) {
    auto* const fake = FakeKernel::current();
    return fake && fake->failureOf(call) != 0 ? nullptr : real();
  }

  static int failure(FakeKernel& fake, KernelCall call) { return fake.failureOf(call); }

  // Nothing is connected: what is sent is read here.
  static int connect(FakeKernel& fake, int protocol) {
    if (protocol != NETLINK_ROUTE) return -NLE_PROTO_MISMATCH;
    return -fake.failureOf(KernelCall::socketConnect);
  }

  static int packetSocket(FakeKernel& fake) {
    if (const int error = fake.failureOf(KernelCall::packetSocket)) return failWith(error);
    return memfd_create("packet socket", 0);
  }
};

int FakeKernel::packetSocket() { return KernelCalls::packetSocket(*this); }

}  // namespace Vm::fakes

using Vm::fakes::FakeKernel;
using Vm::fakes::KernelCall;
using Vm::fakes::KernelCalls;

extern "C" {

unsigned __wrap_if_nametoindex(const char* name) {
  auto* const fake = FakeKernel::current();
  return fake ? KernelCalls::nameToIndex(*fake, name) : __real_if_nametoindex(name);
}

int __wrap_ioctl(int descriptor, unsigned long request, ...) {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  auto* const fake = FakeKernel::current();
  if (!fake || (request != SIOCGIFFLAGS && request != SIOCSIFFLAGS))
    return __real_ioctl(descriptor, request, argument);
  return KernelCalls::flags(*fake, request == SIOCSIFFLAGS, *static_cast<ifreq*>(argument));
}

int __wrap_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const int mode = va_arg(arguments, int);
  va_end(arguments);
  auto* const fake = FakeKernel::current();
  if (!fake || !std::string_view(path).starts_with(Vm::fakes::tapPath))
    return __real_open(path, flags, mode);
  return KernelCalls::openTap(*fake, path, flags);
}

int __wrap_close(int descriptor) {
  const int result = __real_close(descriptor);
  const int error = errno;
  if (auto* const fake = FakeKernel::current()) {
    KernelCalls::closed(*fake, descriptor, result == 0 || error != EBADF);
    errno = error;
  }
  return result;
}

nl_sock* __wrap_nl_socket_alloc() {
  return KernelCalls::object(KernelCall::socketAlloc, __real_nl_socket_alloc);
}

int __wrap_nl_connect(nl_sock* sock, int protocol) {
  auto* const fake = FakeKernel::current();
  if (!fake) return __real_nl_connect(sock, protocol);
  return KernelCalls::connect(*fake, protocol);
}

rtnl_link* __wrap_rtnl_link_macvlan_alloc() {
  return KernelCalls::object(KernelCall::macvlanAlloc, __real_rtnl_link_macvlan_alloc);
}

int __wrap_rtnl_link_build_add_request(rtnl_link* link, int flags, nl_msg** message) {
  auto* const fake = FakeKernel::current();
  if (const int error = fake ? KernelCalls::failure(*fake, KernelCall::buildRequest) : 0)
    return -error;
  return __real_rtnl_link_build_add_request(link, flags, message);
}

nl_addr* __wrap_nl_addr_build(int family, const void* bytes, size_t size) {
  auto* const fake = FakeKernel::current();
  if (fake && KernelCalls::failure(*fake, KernelCall::buildAddress) != 0) return nullptr;
  if (fake) fake->addressFamily = family;
  return __real_nl_addr_build(family, bytes, size);
}

nlattr* __wrap_nla_nest_start(nl_msg* message, int type) {
  auto* const fake = FakeKernel::current();
  if (fake && KernelCalls::failure(*fake, KernelCall::startNest) != 0) return nullptr;
  return __real_nla_nest_start(message, type);
}

int __wrap_nla_put(nl_msg* message, int type, int size, const void* data) {
  auto* const fake = FakeKernel::current();
  if (const int error = fake ? KernelCalls::failure(*fake, KernelCall::putAttribute) : 0)
    return -error;
  return __real_nla_put(message, type, size, data);
}

int __wrap_nla_put_string(nl_msg* message, int type, const char* text) {
  auto* const fake = FakeKernel::current();
  if (const int error = fake ? KernelCalls::failure(*fake, KernelCall::putAttribute) : 0)
    return -error;
  return __real_nla_put_string(message, type, text);
}

int __wrap_nl_send_sync(nl_sock* sock, nl_msg* message) {
  auto* const fake = FakeKernel::current();
  return fake ? KernelCalls::sendSync(*fake, message) : __real_nl_send_sync(sock, message);
}

rtnl_link* __wrap_rtnl_link_alloc() {
  return KernelCalls::object(KernelCall::linkAlloc, __real_rtnl_link_alloc);
}

int __wrap_rtnl_link_delete(nl_sock* sock, const rtnl_link* link) {
  auto* const fake = FakeKernel::current();
  return fake ? KernelCalls::linkDelete(*fake, link) : __real_rtnl_link_delete(sock, link);
}

}  // extern "C"
