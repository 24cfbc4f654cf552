#include <fcntl.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/route/link.h>
#include <netlink/route/rtnl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "host/base/TapNode.h"
#include "host/service/PrivateDev.h"
#include "runtime/base/Descriptor.h"
#include "runtime/base/Exception.h"

namespace host {

namespace {

struct Closing {
  void operator()(nl_sock* socket) const { nl_socket_free(socket); }
};

std::string nodeOf(int ifIndex) { return "/dev/tap" + std::to_string(ifIndex); }

void makeNode(int ifIndex, const rt::String& device) {
  const dev_t number = tapNode(device, static_cast<uint32_t>(ifIndex));
  if (number == 0) return;
  struct stat known {};
  if (stat(nodeOf(ifIndex).c_str(), &known) == 0 && known.st_rdev == number) return;
  // Under a name of its own first: whoever finds the node finds the right one.
  const std::string draft = nodeOf(ifIndex) + ".new";
  unlink(draft.c_str());
  if (mknod(draft.c_str(), S_IFCHR | 0600, number) == 0)
    rename(draft.c_str(), nodeOf(ifIndex).c_str());
}

// Called by libnl: nothing may be thrown.
void handleLink(nl_object* object, void* /*unused*/) {
  auto* const link = reinterpret_cast<rtnl_link*>(object);
  const char* const kind = rtnl_link_get_type(link);
  if (!kind || std::string_view(kind) != "macvtap") return;
  const int ifIndex = rtnl_link_get_ifindex(link);
  try {
    if (nl_object_get_msgtype(object) == RTM_DELLINK)
      unlink(nodeOf(ifIndex).c_str());
    else
      makeNode(ifIndex, rtnl_link_get_name(link));
  } catch (...) {  // no memory: the agent says that the node is missing
  }
}

int handleMessage(nl_msg* message, void* /*unused*/) {
  nl_msg_parse(message, handleLink, nullptr);
  return NL_OK;
}

}  // namespace

struct TapNodeMaker::State {
  std::unique_ptr<nl_sock, Closing> socket{nl_socket_alloc()};
  const rt::Descriptor stop{eventfd(0, EFD_CLOEXEC)};

  void run() const {
    pollfd ready[] = {{nl_socket_get_fd(socket.get()), POLLIN, 0}, {stop.number(), POLLIN, 0}};
    while (true) {
      if (poll(ready, 2, -1) < 0) continue;
      if (ready[1].revents != 0) return;
      // What was lost in a flood is asked for again.
      if (nl_recvmsgs_default(socket.get()) < 0) askForAll();
    }
  }
  void askForAll() const {
    rtgenmsg all{};
    nl_send_simple(socket.get(), RTM_GETLINK, NLM_F_DUMP, &all, sizeof all);
  }
};

TapNodeMaker::TapNodeMaker() : state_(std::make_unique<State>()) {
  nl_sock* const socket = state_->socket.get();
  nl_socket_disable_seq_check(socket);
  nl_socket_modify_cb(socket, NL_CB_VALID, NL_CB_CUSTOM, handleMessage, nullptr);
  if (const int result = nl_connect(socket, NETLINK_ROUTE); result < 0)
    throw rt::Exception(rt::String("the kernel's network devices cannot be followed: ") +
                        nl_geterror(result));
  fcntl(nl_socket_get_fd(socket), F_SETFD, FD_CLOEXEC);
  if (const int result = nl_socket_add_membership(socket, RTNLGRP_LINK); result < 0)
    throw rt::Exception(rt::String("the kernel's network devices cannot be followed: ") +
                        nl_geterror(result));
  state_->askForAll();
  thread_ = std::thread([this] { state_->run(); });
}

TapNodeMaker::~TapNodeMaker() {
  (void)eventfd_write(state_->stop.number(), 1);
  thread_.join();
}

}  // namespace host
