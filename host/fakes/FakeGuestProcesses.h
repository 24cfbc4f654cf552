// Guests' processes as a test wants them.
#pragma once

#include <algorithm>
#include <map>
#include <vector>

#include "host/guests/GuestProcesses.h"
#include "runtime/base/Text.h"

namespace host::fakes {

// They come and go as a test says; the name of process 7 is "guest7".
class FakeGuestProcesses final : public GuestProcesses {
 public:
  std::vector<GuestProcess> guests;
  std::map<int32_t, statedb::Origin> rows;  // by pid: what it shows of its row

  mutable std::vector<int32_t> killed;

  std::vector<GuestProcess> all() const override { return guests; }
  rt::String nameOf(int32_t pid) const override { return "guest" + rt::toText(pid); }
  std::optional<statedb::Origin> rowOf(const GuestProcess& guest) const override {
    const auto found = rows.find(guest.pid);
    return found == rows.end() ? std::nullopt : std::optional(found->second);
  }
  void kill(int32_t child) const override { killed.push_back(child); }
};

}  // namespace host::fakes
