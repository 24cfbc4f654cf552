// What was asked for, and what was done to whom: without it, nobody can say that something came of
// nothing.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "sim/base/Time.h"

namespace sim {

// Kept by who tells the story; read by the oracle. A VM that was never spoken of is calm and not
// wanted.
class Ledger {
 public:
  explicit Ledger(std::function<Time()> now) : now_(std::move(now)) {}

  // An operator has said what ends the guest that the VM has now.
  void askToEnd(const std::string& vm, const std::string& why);
  // Something else may end it.
  void mayEnd(const std::string& vm, const std::string& why);
  void mayEndAll(const std::string& why);
  // Something disturbs it, and not its life: what hangs on it may be out of order for a while.
  void touch(const std::string& vm) { of(vm).touched = now_(); }
  void touchAll() { allTouched_ = now_(); }
  // As long as it stands, no guest of the VM may be able to start; of no VM: of any.
  void troubleIs(const std::string& vm, const std::string& trouble, bool stands);
  // A call of the daemon's has failed: what it does just now may not come to anything.
  void startsMayFail(const std::string& why) { starts_ = Cause{now_(), why}; }
  // What stands in the way of a start.
  std::optional<std::string> troubleOf(const std::string& vm) const;
  // A guest with that card has ended while no daemon ran that could know. Its device stays until
  // a card of that address is configured.
  // Nor can it know of the monitor's socket of a guest whose shim is killed while its VM goes.
  void handleOrphan(const std::string& mac) { orphans_.insert(mac); }
  bool isOrphan(const std::string& mac) const { return orphans_.contains(mac); }
  // The daemon may end, by itself, within a minute.
  void daemonMayEnd(const std::string& why);

  // Why a guest of the VM that began then may end now; nothing: it may not.
  std::optional<std::string> causeOfEnd(const std::string& vm, Time began) const;
  // Whether an operator had it end while it was there.
  bool wasAskedToEnd(const std::string& vm, Time began) const;
  std::optional<std::string> causeOfDaemonsEnd() const;
  // Since when nothing was done to it.
  Duration calmFor(const std::string& vm) const;

  // Who was to take its guest up was killed before it could: the daemon takes the guest for ended.
  void handleLost(const std::string& vm);
  bool isLost(const std::string& vm) const;
  // One that is asked for again is taken up then.
  bool wasLost(const std::string& vm, Time began) const;

  // What the VM's row says, as far as it can be read; nothing: it says nothing that is valid.
  // By what began then.
  void wantedIs(const std::string& vm, std::optional<bool> wanted, Time began);
  void wantedIs(const std::string& vm, std::optional<bool> wanted) { wantedIs(vm, wanted, now_()); }
  std::optional<bool> wanted(const std::string& vm) const;
  Time wantedSince(const std::string& vm) const;

  // Its guest ended and nobody asked for that: it stays off until it is asked for again. A guest
  // that has shut down is no problem to anybody.
  void handleEnd(const std::string& vm, const std::string& why, bool isProblem);
  // What its QEMU said before it ended at its start: that is to be told, until something else
  // happens.
  void lastWordIs(const std::string& vm, const std::string& word);
  std::optional<std::string> lastWordOf(const std::string& vm) const;
  // So it was, by what began then: what has ended since may have been the answer.
  void handleAsked(const std::string& vm, Time began);
  void handleAskedAll();
  // Why the VM may be off although it is wanted.
  std::optional<std::string> standsBecause(const std::string& vm) const;
  bool standsWell(const std::string& vm) const;

 private:
  struct Cause {
    Time at;
    std::string why;
  };
  struct OfVm {
    Time touched{};
    std::optional<Time> asked;
    std::deque<Cause> causes;  // the last few
    std::optional<bool> wanted;
    Time wantedSince{};
    std::optional<std::string> stands;
    bool isProblem = false;
    Time standsSince{};
    bool isLost = false;
    Time lostSince{};
    std::optional<Cause> lastWord;
  };
  // A guest that began so long after what may end it had not heard of it yet.
  static constexpr Duration grace = std::chrono::seconds(3);

  OfVm& of(const std::string& vm) { return vms_[vm]; }
  const OfVm* find(const std::string& vm) const;

  const std::function<Time()> now_;
  std::map<std::string, OfVm> vms_;
  std::deque<Cause> causesOfAll_;
  std::set<std::pair<std::string, std::string>> troubles_;
  std::set<std::string> orphans_;
  std::optional<Cause> starts_;
  std::optional<Cause> daemon_;
  Time allTouched_{};
};

}  // namespace sim
