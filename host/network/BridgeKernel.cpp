#include <linux/neighbour.h>
#include <net/if.h>
#include <netlink/addr.h>
#include <netlink/netlink.h>
#include <netlink/route/neighbour.h>
#include <sys/socket.h>

#include <fstream>
#include <string>

#include "host/base/Report.h"
#include "host/network/BridgeFdb.h"
#include "runtime/base/Release.h"
#include "runtime/base/Text.h"

namespace host {

namespace {

using Socket = std::unique_ptr<nl_sock, rt::Release<nl_socket_free>>;
using Neighbour = std::unique_ptr<rtnl_neigh, rt::Release<rtnl_neigh_put>>;
using Address = std::unique_ptr<nl_addr, rt::Release<nl_addr_put>>;

class NetlinkBridges final : public BridgeKernel {
 public:
  std::optional<Bridge> bridge(const rt::String& name) override {
    std::ifstream file("/sys/class/net/" + name.str() + "/bridge/vlan_filtering");
    const uint32_t ifIndex = if_nametoindex(name.charPtr());
    const bool isBridge = file.is_open() || isThere("/sys/class/net/" + name.str() + "/bridge");
    if (ifIndex == 0 || !isBridge) return std::nullopt;
    int filtering = 0;
    file >> filtering;
    return Bridge{ifIndex, filtering != 0};
  }

  Answer add(const Bridge& bridge, const BridgeEntry& entry) override {
    const int result = send(bridge, entry, [](nl_sock* socket, rtnl_neigh* neighbour) {
      return rtnl_neigh_add(socket, neighbour, NLM_F_CREATE | NLM_F_EXCL);
    });
    if (result == -NLE_EXIST) return {Added::wasThere, {}};
    if (result >= 0) return {Added::done, {}};
    return {Added::failed, failure("cannot be added", entry, result)};
  }

  bool remove(const Bridge& bridge, const BridgeEntry& entry) override {
    const int result = send(bridge, entry, [](nl_sock* socket, rtnl_neigh* neighbour) {
      return rtnl_neigh_delete(socket, neighbour, 0);
    });
    if (result >= 0 || result == -NLE_OBJ_NOTFOUND) return true;
    // Without that VLAN: one that knows of VLANs may have the entry all the same.
    if (result == -NLE_INVAL) return !bridge.filtersVlans;
    report(failure("cannot be removed", entry, result));
    return true;
  }

 private:
  static bool isThere(const std::string& path) {
    return std::ifstream(path + "/ageing_time").good();
  }

  template <class Request>
  static int send(const Bridge& bridge, const BridgeEntry& entry, Request request) {
    const Socket socket(nl_socket_alloc());
    const Neighbour neighbour(rtnl_neigh_alloc());
    const auto bytes = entry.mac.bytes();
    const Address address(nl_addr_build(AF_LLC, bytes.data(), bytes.size()));
    if (!socket || !neighbour || !address) return -NLE_NOMEM;
    if (const int result = nl_connect(socket.get(), NETLINK_ROUTE); result < 0) return result;
    rtnl_neigh_set_family(neighbour.get(), AF_BRIDGE);
    rtnl_neigh_set_ifindex(neighbour.get(), static_cast<int>(bridge.ifIndex));
    rtnl_neigh_set_lladdr(neighbour.get(), address.get());
    rtnl_neigh_set_flags(neighbour.get(), NTF_SELF);
    rtnl_neigh_set_state(neighbour.get(), NUD_PERMANENT);
    if (entry.vlan != 0) rtnl_neigh_set_vlan(neighbour.get(), entry.vlan);
    return request(socket.get(), neighbour.get());
  }

  static rt::String failure(const char* what, const BridgeEntry& entry, int result) {
    return "the static entry of " + rt::toText(entry.mac) + " in VLAN " + rt::toText(entry.vlan) +
           " " + what + ": " + nl_geterror(result);
  }
};

}  // namespace

std::unique_ptr<BridgeKernel> kernelBridges() { return std::make_unique<NetlinkBridges>(); }

}  // namespace host
