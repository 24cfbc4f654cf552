#include "host/network/RateLimit.h"

#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>

#include <algorithm>
#include <memory>

#include "runtime/base/Release.h"

namespace host {

namespace {

using Socket = std::unique_ptr<nl_sock, rt::Release<nl_socket_free>>;
using Message = std::unique_ptr<nl_msg, rt::Release<nlmsg_free>>;

// Ours among the queues of a device: another's has another, and is not removed.
constexpr uint32_t handle = TC_H_MAKE(0x766D0000U, 0U);
constexpr uint32_t bytesOfMegabit = 125'000;
// So much may come at once, in bytes: 10 ms of it, but a few long frames at least.
constexpr uint32_t leastBurst = 20'000;
constexpr uint32_t burstPart = 100;
// And so much may wait: 20 ms of it.
constexpr uint32_t queuePart = 50;

Message request(int type, int flags, uint32_t device) {
  Message message(nlmsg_alloc_simple(type, flags));
  tcmsg place{};
  place.tcm_ifindex = static_cast<int>(device);
  place.tcm_parent = TC_H_ROOT;
  place.tcm_handle = handle;
  const bool isWhole = message && nlmsg_append(message.get(), &place, sizeof place, 0) == 0 &&
                       nla_put_string(message.get(), TCA_KIND, "tbf") == 0;
  return isWhole ? std::move(message) : nullptr;
}

bool putRate(nl_msg* message, uint32_t megabits) {
  tc_tbf_qopt bucket{};
  bucket.rate.rate = megabits * bytesOfMegabit;
  const uint32_t burst = std::max(leastBurst, bucket.rate.rate / burstPart);
  bucket.limit = burst + bucket.rate.rate / queuePart;
  nlattr* const options = nla_nest_start(message, TCA_OPTIONS);
  const bool isWhole = options && nla_put(message, TCA_TBF_PARMS, sizeof bucket, &bucket) == 0 &&
                       nla_put_u32(message, TCA_TBF_BURST, burst) == 0;
  if (isWhole) nla_nest_end(message, options);
  return isWhole;
}

// An error of libnl; 0: the kernel has done it.
int send(nl_sock* socket, Message message) {
  // nl_send_sync() frees the message.
  return message ? nl_send_sync(socket, message.release()) : -NLE_NOMEM;
}

}  // namespace

rt::String KernelRateLimiter::set(uint32_t device, uint32_t megabits) {
  const Socket socket(nl_socket_alloc());
  if (!socket || nl_connect(socket.get(), NETLINK_ROUTE) < 0)
    return "there is no netlink socket for it";
  if (megabits == 0) {
    // What is not there needs not be removed.
    (void)send(socket.get(), request(RTM_DELQDISC, 0, device));
    return {};
  }
  Message limit = request(RTM_NEWQDISC, NLM_F_CREATE | NLM_F_REPLACE, device);
  if (limit && !putRate(limit.get(), megabits)) limit.reset();
  const int outcome = send(socket.get(), std::move(limit));
  return outcome < 0 ? rt::String("the kernel has no tbf for it: ") + nl_geterror(outcome)
                     : rt::String();
}

}  // namespace host
