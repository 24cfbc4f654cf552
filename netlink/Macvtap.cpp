#include "netlink/Macvtap.h"

#include <linux/if_link.h>
#include <net/if.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>
#include <netlink/route/link/macvlan.h>

#include <cstring>
#include <memory>

#include "runtime/base/Format.h"
#include "runtime/base/Release.h"
#include "runtime/base/Trace.h"

namespace netlink {

namespace {

using SocketPtr = std::unique_ptr<nl_sock, rt::Release<nl_socket_free>>;
using LinkPtr = std::unique_ptr<rtnl_link, rt::Release<rtnl_link_put>>;
using AddressPtr = std::unique_ptr<nl_addr, rt::Release<nl_addr_put>>;
using MessagePtr = std::unique_ptr<nl_msg, rt::Release<nlmsg_free>>;

constexpr size_t macLength = 6;

rt::String macText(const char* bytes) {
  rt::String text;
  for (size_t i = 0; i < macLength; ++i)
    text += rt::format(i == 0 ? "%02x" : ":%02x", static_cast<unsigned char>(bytes[i]));
  return text;
}

// A connected route socket, or null after a trace under the name of `function`.
SocketPtr connectedSocket(const char* function) {
  SocketPtr sock(nl_socket_alloc());
  if (!sock) {
    VM_TRACE(1) << function << " FAIL: cannot alloc nl_sock";
    return nullptr;
  }
  if (nl_connect(sock.get(), NETLINK_ROUTE) < 0) {
    VM_TRACE(1) << function << " Unable to connect socket";
    return nullptr;
  }
  return sock;
}

// Adds what makes the link a macvtap in `mode`. libnl 3.7 knows macvlan only; of the two kinds that
// the message then has the kernel takes the later.
bool putMacvtapInfo(nl_msg* message, uint32_t mode) {
  nlattr* const info = nla_nest_start(message, IFLA_LINKINFO);
  if (!info || nla_put_string(message, IFLA_INFO_KIND, "macvtap") < 0) return false;
  nlattr* const data = nla_nest_start(message, IFLA_INFO_DATA);
  if (!data || nla_put(message, IFLA_MACVLAN_MODE, sizeof mode, &mode) < 0) return false;
  nla_nest_end(message, data);
  nla_nest_end(message, info);
  return true;
}

// The request that creates the device, or null when memory is short.
MessagePtr addRequest(const char* macaddress, const char* ifname, unsigned srcIndex,
                      uint32_t mode) {
  const LinkPtr link(rtnl_link_macvlan_alloc());
  // The address family is 0: libnl takes the bytes as they are.
  const AddressPtr address(nl_addr_build(0, macaddress, macLength));
  if (!link || !address) return nullptr;
  rtnl_link_set_name(link.get(), ifname);
  rtnl_link_set_link(link.get(), static_cast<int>(srcIndex));
  rtnl_link_set_addr(link.get(), address.get());
  nl_msg* message = nullptr;
  if (rtnl_link_build_add_request(link.get(), NLM_F_CREATE, &message) < 0) return nullptr;
  MessagePtr request(message);
  return putMacvtapInfo(message, mode) ? std::move(request) : nullptr;
}

}  // namespace

int deviceAdd(const char* macaddress, const char* ifname, const char* srcdev, uint32_t macvlan_mode,
              int* ifindex) {
  VM_TRACE(7) << "deviceAdd"
              << " macaddress " << macText(macaddress) << " ifname " << ifname << " srcdev "
              << srcdev << " macvlan_mode " << macvlan_mode;
  if (ifindex) *ifindex = 0;
  const unsigned srcIndex = if_nametoindex(srcdev);
  if (srcIndex == 0) {
    VM_TRACE(1) << "deviceAdd"
                << "FAIL: cannot get " << srcdev << "'s ifindex ";
    return -1;
  }
  const SocketPtr sock = connectedSocket("deviceAdd");
  if (!sock) return -1;
  MessagePtr request = addRequest(macaddress, ifname, srcIndex, macvlan_mode);
  // nl_send_sync() frees the message.
  if (!request || nl_send_sync(sock.get(), request.release()) < 0) {
    VM_TRACE(1) << "deviceAdd"
                << " FAIL: cannot send to nl socket ";
    return -1;
  }
  if (ifindex) *ifindex = static_cast<int>(if_nametoindex(ifname));
  return 0;
}

void deviceRemove(const char* ifname) {
  VM_TRACE(7) << "deviceRemove"
              << " ifname " << ifname;
  const SocketPtr sock = connectedSocket("deviceRemove");
  if (!sock) return;
  const LinkPtr link(rtnl_link_alloc());
  if (!link) {
    VM_TRACE(1) << "deviceRemove"
                << " FAIL: cannot alloc rtnl_link";
    return;
  }
  rtnl_link_set_name(link.get(), ifname);
  if (rtnl_link_delete(sock.get(), link.get()) < 0)
    VM_TRACE(1) << "deviceRemove"
                << " FAIL: cannot delete device " << ifname;
}

}  // namespace netlink
