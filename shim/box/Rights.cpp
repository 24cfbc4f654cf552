#include "shim/box/Rights.h"

#include <grp.h>
#include <linux/capability.h>
#include <linux/securebits.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "shim/base/Failure.h"

namespace shim {

namespace {

constexpr int wordBits = 32;

void require(bool done, const char* what) {
  if (!done) throw failureOf(std::string("rights could not be given up: ") + what);
}

// What no program that is run from now on can have. The kernel may know more capabilities than we
// do; it says which is the last.
void limitRights(std::initializer_list<int> kept) {
  const auto isKept = [&](int each) {
    return std::find(kept.begin(), kept.end(), each) != kept.end();
  };
  for (int each = 0; isKept(each) || prctl(PR_CAPBSET_DROP, each, 0, 0, 0) == 0; ++each) continue;
  require(errno == EINVAL, "bounding set");
  require(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "new privileges");
}

// Nothing is inheritable, and so nothing ambient.
void giveUpRights(std::initializer_list<int> kept) {
  uint32_t words[_LINUX_CAPABILITY_U32S_3] = {};
  for (const int each : kept) words[each / wordBits] |= 1U << (each % wordBits);
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct own[_LINUX_CAPABILITY_U32S_3] = {};
  require(syscall(SYS_capget, &header, own) == 0, "capget");
  for (int i = 0; i < _LINUX_CAPABILITY_U32S_3; ++i) {
    own[i].permitted &= words[i];
    own[i].effective = own[i].permitted;
    own[i].inheritable = 0;
  }
  require(syscall(SYS_capset, &header, own) == 0, "capset");
}

}  // namespace

void keepOnlyRights(std::initializer_list<int> capabilities) {
  limitRights(capabilities);
  giveUpRights(capabilities);
}

// In this order: each step takes a right that a later one takes away.
void becomeUser(unsigned user) {
  constexpr unsigned noRoot = SECBIT_NOROOT | SECBIT_NOROOT_LOCKED | SECBIT_KEEP_CAPS_LOCKED |
                              SECBIT_NO_CAP_AMBIENT_RAISE | SECBIT_NO_CAP_AMBIENT_RAISE_LOCKED;
  require(setgroups(0, nullptr) == 0, "groups");
  require(prctl(PR_SET_SECUREBITS, noRoot, 0, 0, 0) == 0, "secure bits");
  limitRights({});
  require(setresgid(user, user, user) == 0, "group");
  require(setresuid(user, user, user) == 0, "user");
  giveUpRights({});
}

}  // namespace shim
