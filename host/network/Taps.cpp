#include "host/network/Taps.h"

#include <fcntl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netlink/addr.h>
#include <netlink/cache.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>

#include "host/base/TapNode.h"
#include "host/guests/GuestProcess.h"
#include "host/guests/ProcessText.h"
#include "runtime/base/Exception.h"
#include "runtime/base/Release.h"
#include "runtime/base/Text.h"

namespace host {

namespace {

using Socket = std::unique_ptr<nl_sock, rt::Release<nl_socket_free>>;
using Message = std::unique_ptr<nl_msg, rt::Release<nlmsg_free>>;

constexpr char macvtap[] = "macvtap";
// A list during which devices came or went has gaps.
constexpr int attempts = 10;
// The loop waits for it.
constexpr std::chrono::milliseconds patience{250};

void require(int result) {
  if (result < 0)
    throw rt::Exception(rt::String("the kernel's macvtap devices cannot be listed: ") +
                        nl_geterror(result));
}

// Asks for devices of that kind only: a switch has thousands of others.
void ask(nl_sock* socket) {
  const Message message(nlmsg_alloc_simple(RTM_GETLINK, NLM_F_DUMP));
  const ifinfomsg all{};
  nlattr* info = nullptr;
  if (!message || nlmsg_append(message.get(), const_cast<ifinfomsg*>(&all), sizeof all, 0) < 0 ||
      !(info = nla_nest_start(message.get(), IFLA_LINKINFO)) ||
      nla_put_string(message.get(), IFLA_INFO_KIND, macvtap) < 0)
    throw rt::Exception("there is no memory for a netlink message");
  nla_nest_end(message.get(), info);
  require(nl_send_auto(socket, message.get()));
}

std::optional<rt::EthAddr> addressOf(rtnl_link* link) {
  nl_addr* const address = rtnl_link_get_addr(link);
  char text[32] = "";
  return address ? rt::EthAddr::fromText(nl_addr2str(address, text, sizeof text)) : std::nullopt;
}

// A kernel that has no macvtap device yet may list all there are.
void take(nl_object* object, void* taps) {
  auto* const link = reinterpret_cast<rtnl_link*>(object);
  const char* const kind = rtnl_link_get_type(link);
  if (!kind || std::string_view(kind) != macvtap) return;
  if (const auto mac = addressOf(link))
    static_cast<std::vector<Tap>*>(taps)->push_back(
        {.name = rtnl_link_get_name(link),
         .mac = *mac,
         .lower = static_cast<uint32_t>(rtnl_link_get_link(link)),
         .isUp = (rtnl_link_get_flags(link) & IFF_UP) != 0,
         .index = static_cast<uint32_t>(rtnl_link_get_ifindex(link)),
         .node = 0});
}

int parse(nl_msg* message, void* taps) { return nl_msg_parse(message, take, taps); }

// Whether it can be read or written by: the kernel shows that in the modes of the link. Whoever may
// see a node can name it by a descriptor (O_PATH), and has not opened its device.
bool isOpen(const char* descriptor) {
  struct stat link {};
  return lstat(descriptor, &link) == 0 && (link.st_mode & (S_IRUSR | S_IWUSR)) != 0;
}

using Moment = std::chrono::steady_clock::time_point;

// Asks no file system that may not answer: a process may have any file open. Returns whether it
// came to the end in time.
bool addOpenNodes(const std::string& process, Nodes& held, Moment last = Moment::max()) {
  std::error_code gone;
  for (std::filesystem::directory_iterator at(process + "/fd", gone), end; !gone && at != end;
       at.increment(gone)) {
    if (last != Moment::max() && std::chrono::steady_clock::now() > last) return false;
    struct statx file {};
    if (statx(AT_FDCWD, at->path().c_str(), AT_STATX_DONT_SYNC, STATX_TYPE, &file) == 0 &&
        S_ISCHR(file.stx_mode) && isOpen(at->path().c_str()))
      held.insert(makedev(file.stx_rdev_major, file.stx_rdev_minor));
  }
  return true;
}

// The number that stands behind the name there; 0: none does.
uint32_t numberIn(const std::string& status, std::string_view name) {
  const size_t at = status.find(name);
  if (at == std::string::npos) return 0;
  uint32_t number = 0;
  std::istringstream(status.substr(at + name.size())) >> number;
  return number;
}

// A shim, or its QEMU, whose shim may have been killed; or a QEMU without one.
bool isGuests(const std::string& process, const guest::UserRange& users) {
  const std::string status = textOf(process, "/status");
  const uint32_t user = numberIn(status, "\nUid:");
  const uint32_t parent = numberIn(status, "\nPPid:");
  const auto self = static_cast<uint32_t>(getpid());
  return parent == self || numberIn(status, "\nTgid:") == self ||
         (user >= users.first && user <= users.last) || !guestOf(process).empty() ||
         !guestOf(directoryOf(static_cast<int32_t>(parent))).empty();
}

}  // namespace

std::vector<Tap> taps() {
  const Socket socket(nl_socket_alloc());
  if (!socket) throw rt::Exception("there is no memory for a netlink socket");
  require(nl_connect(socket.get(), NETLINK_ROUTE));
  std::vector<Tap> result;
  nl_socket_modify_cb(socket.get(), NL_CB_VALID, NL_CB_CUSTOM, parse, &result);
  int outcome = -NLE_DUMP_INTR;
  for (int i = 0; i < attempts && outcome == -NLE_DUMP_INTR; ++i) {
    result.clear();
    ask(socket.get());
    outcome = nl_recvmsgs_default(socket.get());
  }
  require(outcome);
  for (Tap& tap : result) tap.node = tapNode(tap.name, tap.index);
  return result;
}

Nodes nodesHeldBy(int32_t pid) {
  Nodes held;
  const std::string process = directoryOf(pid);
  addOpenNodes(process, held);
  std::istringstream children(
      textOf(process, ("/task/" + std::to_string(pid) + "/children").c_str()));
  for (int32_t child = 0; children >> child;) addOpenNodes(directoryOf(child), held);
  return held;
}

std::optional<Nodes> nodesOfOthers(const guest::UserRange& users) {
  const Moment last = std::chrono::steady_clock::now() + patience;
  Nodes others;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
    if (!rt::fromText<int32_t>(entry.path().filename().string())) continue;
    Nodes held;
    if (!addOpenNodes(entry.path().string(), held, last)) return std::nullopt;
    if (!held.empty() && !isGuests(entry.path().string(), users)) others.merge(held);
  }
  return others;
}

}  // namespace host
