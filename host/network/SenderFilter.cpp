#include "host/network/SenderFilter.h"

#include <arpa/inet.h>
#include <linux/bpf.h>
#include <linux/if_ether.h>
#include <linux/pkt_cls.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

#include "runtime/base/Descriptor.h"
#include "runtime/base/Release.h"

namespace host {

namespace {

using Socket = std::unique_ptr<nl_sock, rt::Release<nl_socket_free>>;
using Message = std::unique_ptr<nl_msg, rt::Release<nlmsg_free>>;

// Ours among the filters of a device.
constexpr uint32_t priority = 100;
constexpr uint32_t handle = 1;
constexpr char name[] = "vmagent-sender";

constexpr bpf_insn instruction(int code, uint8_t to, uint8_t from, int16_t offset, int32_t value) {
  return {.code = static_cast<uint8_t>(code),
          .dst_reg = static_cast<uint8_t>(to & 0xF),
          .src_reg = static_cast<uint8_t>(from & 0xF),
          .off = offset,
          .imm = value};
}

// The frame is the program's argument. Its bytes 6 to 11 are copied below the top of the stack, and
// compared.
std::array<bpf_insn, 14> programFor(rt::EthAddr sender) {
  constexpr int32_t senderAt = ETH_ALEN;
  constexpr int16_t copyAt = -8;
  constexpr uint8_t result = BPF_REG_0, second = BPF_REG_2, third = BPF_REG_3, fourth = BPF_REG_4,
                    stack = BPF_REG_10;
  constexpr int move = BPF_ALU64 | BPF_MOV, add = BPF_ALU64 | BPF_ADD,
                differs = BPF_JMP32 | BPF_JNE | BPF_K;
  int32_t begin = 0;
  uint16_t end = 0;
  std::memcpy(&begin, sender.bytes().data(), sizeof begin);
  std::memcpy(&end, sender.bytes().data() + sizeof begin, sizeof end);
  return {
      instruction(move | BPF_K, second, 0, 0, senderAt),
      instruction(move | BPF_X, third, stack, 0, 0),
      instruction(add | BPF_K, third, 0, 0, copyAt),
      instruction(move | BPF_K, fourth, 0, 0, ETH_ALEN),
      instruction(BPF_JMP | BPF_CALL, 0, 0, 0, BPF_FUNC_skb_load_bytes),
      instruction(differs, result, 0, 6, 0),
      instruction(BPF_LDX | BPF_MEM | BPF_W, second, stack, copyAt, 0),
      instruction(differs, second, 0, 4, begin),
      instruction(BPF_LDX | BPF_MEM | BPF_H, second, stack, copyAt + 4, 0),
      instruction(differs, second, 0, 2, end),
      // Whoever else filters decides then.
      instruction(move | BPF_K, result, 0, 0, TC_ACT_UNSPEC),
      instruction(BPF_JMP | BPF_EXIT, 0, 0, 0, 0),
      instruction(move | BPF_K, result, 0, 0, TC_ACT_SHOT),
      instruction(BPF_JMP | BPF_EXIT, 0, 0, 0, 0),
  };
}

rt::Descriptor loaded(rt::EthAddr sender) {
  const auto program = programFor(sender);
  bpf_attr attributes;
  std::memset(&attributes, 0, sizeof attributes);
  attributes.prog_type = BPF_PROG_TYPE_SCHED_CLS;
  attributes.insn_cnt = static_cast<uint32_t>(program.size());
  attributes.insns = reinterpret_cast<uint64_t>(program.data());
  attributes.license = reinterpret_cast<uint64_t>("");
  return rt::Descriptor(
      static_cast<int>(syscall(SYS_bpf, BPF_PROG_LOAD, &attributes, sizeof attributes)));
}

Message request(int type, int flags, uint32_t device, uint32_t parent, uint32_t own, uint32_t info,
                const char* kind) {
  Message message(nlmsg_alloc_simple(type, NLM_F_CREATE | flags));
  tcmsg place{};
  place.tcm_ifindex = static_cast<int>(device);
  place.tcm_parent = parent;
  place.tcm_handle = own;
  place.tcm_info = info;
  const bool isWhole = message && nlmsg_append(message.get(), &place, sizeof place, 0) == 0 &&
                       nla_put_string(message.get(), TCA_KIND, kind) == 0;
  return isWhole ? std::move(message) : nullptr;
}

bool putProgram(nl_msg* message, int program) {
  nlattr* const options = nla_nest_start(message, TCA_OPTIONS);
  const bool isWhole = options &&
                       nla_put_u32(message, TCA_BPF_FD, static_cast<uint32_t>(program)) == 0 &&
                       nla_put_string(message, TCA_BPF_NAME, name) == 0 &&
                       nla_put_u32(message, TCA_BPF_FLAGS, TCA_BPF_FLAG_ACT_DIRECT) == 0;
  if (isWhole) nla_nest_end(message, options);
  return isWhole;
}

// An error of libnl; 0: the kernel has done it.
int send(nl_sock* socket, Message message) {
  // nl_send_sync() frees the message.
  return message ? nl_send_sync(socket, message.release()) : -NLE_NOMEM;
}

}  // namespace

rt::String KernelSenderFilter::set(uint32_t device, rt::EthAddr sender) {
  const rt::Descriptor program = loaded(sender);
  if (!program) return rt::String("the kernel takes no program for it: ") + std::strerror(errno);
  const Socket socket(nl_socket_alloc());
  if (!socket || nl_connect(socket.get(), NETLINK_ROUTE) < 0)
    return "there is no netlink socket for it";
  const int place = send(socket.get(), request(RTM_NEWQDISC, NLM_F_EXCL, device, TC_H_CLSACT,
                                               TC_H_MAKE(TC_H_CLSACT, 0), 0, "clsact"));
  if (place < 0 && place != -NLE_EXIST)
    return rt::String("the kernel has no clsact for it: ") + nl_geterror(place);
  Message filter = request(RTM_NEWTFILTER, 0, device, TC_H_MAKE(TC_H_CLSACT, TC_H_MIN_EGRESS),
                           handle, TC_H_MAKE(priority << 16, htons(ETH_P_ALL)), "bpf");
  if (filter && !putProgram(filter.get(), program.number())) filter.reset();
  const int outcome = send(socket.get(), std::move(filter));
  return outcome < 0 ? rt::String("the kernel has no cls_bpf for it: ") + nl_geterror(outcome)
                     : rt::String();
}

}  // namespace host
