#include <fcntl.h>
#include <net/if.h>
#include <netlink/addr.h>
#include <netlink/cache.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>
#include <sys/socket.h>

#include <algorithm>
#include <map>
#include <string_view>

#include "host/network/KernelLinks.h"
#include "runtime/base/Exception.h"
#include "runtime/base/Release.h"

namespace host {

namespace {

using Socket = std::unique_ptr<nl_sock, rt::Release<nl_socket_free>>;
using Manager = std::unique_ptr<nl_cache_mngr, rt::Release<nl_cache_mngr_free>>;

// A burst of a thousand flaps fits.
constexpr int receiveBuffer = 1 << 20;
// One after the other; then the rest is for the next time.
constexpr int mostLosses = 10;

void require(int result, const char* what) {
  if (result < 0)
    throw rt::Exception(rt::String("the kernel's network devices cannot be followed: ") + what +
                        ": " + nl_geterror(result));
}

std::optional<rt::EthAddr> addressOf(rtnl_link* link) {
  const nl_addr* const address = rtnl_link_get_addr(link);
  rt::EthAddr::Bytes bytes{};
  if (!address || nl_addr_get_len(address) != bytes.size()) return std::nullopt;
  const auto* const found = static_cast<const uint8_t*>(nl_addr_get_binary_addr(address));
  std::copy_n(found, bytes.size(), bytes.begin());
  return rt::EthAddr(bytes);
}

KernelLink linkOf(rtnl_link* link) {
  const char* const kind = rtnl_link_get_type(link);
  const bool isTap = kind && std::string_view(kind) == "macvtap";
  const bool isLoopback = (rtnl_link_get_flags(link) & IFF_LOOPBACK) != 0;
  return {.name = rtnl_link_get_name(link),
          .canBeInterface = !isTap && !isLoopback,
          .macvtap = isTap ? addressOf(link) : std::nullopt,
          // Switched on, and its driver has found a line.
          .hasCarrier = (rtnl_link_get_flags(link) & IFF_RUNNING) != 0};
}

// A bridge tells of its ports in messages of its own family, without a kind; the bridge itself the
// library counts to that family, too.
bool isDevice(rtnl_link* link) {
  const bool isPortMessage =
      rtnl_link_get_family(link) != AF_UNSPEC && rtnl_link_get_type(link) == nullptr;
  return rtnl_link_get_name(link) && !isPortMessage;
}

}  // namespace

struct KernelLinkSource::State {
  Socket requests{nl_socket_alloc()};  // for asking anew
  Manager manager;
  nl_cache* cache = nullptr;               // the manager's
  std::map<uint32_t, uint32_t> deletions;  // by index, since a table was without it
  bool hasOlderNews = false;               // than the table: more was lost than was read at once
};

namespace {

uint32_t indexOf(rtnl_link* link) { return static_cast<uint32_t>(rtnl_link_get_ifindex(link)); }

// Counts the devices that go. In the table that is read then, another may have the index, and the
// name.
void heed(nl_cache* /*cache*/, nl_object* object, int action, void* deletions) {
  auto* const link = reinterpret_cast<rtnl_link*>(object);
  if (action == NL_ACT_DEL && isDevice(link))
    ++(*static_cast<std::map<uint32_t, uint32_t>*>(deletions))[indexOf(link)];
}

}  // namespace

KernelLinkSource::KernelLinkSource() : state_(std::make_unique<State>()) {
  if (!state_->requests) throw rt::Exception("there is no memory for a netlink socket");
  require(nl_connect(state_->requests.get(), NETLINK_ROUTE), "connect");
  nl_cache_mngr* manager = nullptr;
  require(nl_cache_mngr_alloc(nullptr, NETLINK_ROUTE, 0, &manager), "listen");
  state_->manager.reset(manager);
  require(nl_cache_mngr_add(manager, "route/link", heed, &state_->deletions, &state_->cache),
          "list");
  const int own = nl_cache_mngr_get_fd(manager);
  setsockopt(own, SOL_SOCKET, SO_RCVBUFFORCE, &receiveBuffer, sizeof receiveBuffer);
}

KernelLinkSource::~KernelLinkSource() = default;

int KernelLinkSource::descriptor() const {
  return fcntl(nl_cache_mngr_get_fd(state_->manager.get()), F_DUPFD_CLOEXEC, 0);
}

KernelLinkTable KernelLinkSource::read() {
  // What the kernel told before it lost some is older than a list, and would undo it: of a number
  // that another device has by now it may say that it is gone. So it is read first.
  int losses = 0;
  while (losses < mostLosses && nl_cache_mngr_data_ready(state_->manager.get()) < 0) ++losses;
  const bool isWhole = losses == 0 && !state_->hasOlderNews;
  state_->hasOlderNews = losses == mostLosses;
  if (!isWhole) require(nl_cache_refill(state_->requests.get(), state_->cache), "list again");
  KernelLinkTable links;
  for (nl_object* at = nl_cache_get_first(state_->cache); at; at = nl_cache_get_next(at)) {
    auto* const link = reinterpret_cast<rtnl_link*>(at);
    if (!isDevice(link)) continue;
    const uint32_t index = indexOf(link);
    links[index] = linkOf(link);
    if (const auto gone = state_->deletions.find(index); gone != state_->deletions.end())
      links[index].before = gone->second;
  }
  std::erase_if(state_->deletions, [&](const auto& gone) { return !links.contains(gone.first); });
  return links;
}

}  // namespace host
