#include "host/network/Taps.h"

#include <netlink/addr.h>
#include <netlink/cache.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <string_view>

#include "runtime/base/Exception.h"

namespace host {

namespace {

void require(int result) {
  if (result < 0)
    throw rt::Exception(rt::String("the kernel's network devices cannot be listed: ") +
                        nl_geterror(result));
}

std::optional<rt::EthAddr> addressOf(rtnl_link* link) {
  nl_addr* const address = rtnl_link_get_addr(link);
  char text[32] = "";
  return address ? rt::EthAddr::fromText(nl_addr2str(address, text, sizeof text)) : std::nullopt;
}

}  // namespace

std::vector<Tap> taps() {
  const std::unique_ptr<nl_sock, void (*)(nl_sock*)> socket(nl_socket_alloc(), nl_socket_free);
  if (!socket) throw rt::Exception("there is no memory for a netlink socket");
  require(nl_connect(socket.get(), NETLINK_ROUTE));
  nl_cache* found = nullptr;
  require(rtnl_link_alloc_cache(socket.get(), AF_UNSPEC, &found));
  const std::unique_ptr<nl_cache, void (*)(nl_cache*)> cache(found, nl_cache_free);
  std::vector<Tap> result;
  for (nl_object* at = nl_cache_get_first(found); at; at = nl_cache_get_next(at)) {
    auto* const link = reinterpret_cast<rtnl_link*>(at);
    const char* const kind = rtnl_link_get_type(link);
    if (!kind || std::string_view(kind) != "macvtap") continue;
    if (const auto mac = addressOf(link)) result.push_back({rtnl_link_get_name(link), *mac});
  }
  return result;
}

}  // namespace host
