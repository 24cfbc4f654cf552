// Waiting until a virtual machine is as it was asked to be.
#pragma once

#include <functional>

#include "ctl/view/VmRows.h"
#include "runtime/base/Descriptor.h"

namespace ctl {

struct Goal {
  std::function<bool(const VmRow& row)> isReached;
  // Whether the daemon brings it about: then what it has said before it heard of all that was asked
  // for until now does not count.
  bool needsDaemon = true;
  // A VM that is gone from the configuration will not get there.
  bool needsConfiguration = true;
  // When it will not get there by itself, whatever is waited for; none: that is not known. With it,
  // a VM whose start is refused will not get there either.
  std::function<bool(const VmRow& row)> isLost = {};
};

// Follows both halves of the database from its construction on, so that nothing is missed.
class Waiter {
 public:
  // To be made after what is waited for was asked for. `patience`: for all that is waited for
  // together.
  Waiter(Context& context, rt::Seconds patience);
  Waiter(const Waiter&) = delete;

  // Returns when it is so; refuses with Exit::timedOut, and says what was so at the end, or with
  // Exit::failed as soon as it is lost. What the daemon finds wrong meanwhile is told once, for it
  // may yet be mended. On a terminal a line tells what is so.
  void until(const rt::String& name, const Goal& goal);

 private:
  void silence();
  bool daemonHasHeard();
  rt::Seconds passed() const { return context_.world().now() - begin_; }
  void tellProblem(const VmRow& row);
  void tellProgress(const VmRow& row);
  void clearProgress();
  void tellAbsence();
  rt::String progressOf(const VmRow& row) const;
  bool isLost(const Goal& goal, const VmRow& row);
  Refusal timedOut(const VmRow& row) const;
  Refusal lost(const VmRow& row) const;

  Context& context_;
  const rt::Seconds begin_;
  const statedb::Cursor asked_;  // the configuration as it was then
  const rt::Seconds patience_;
  const rt::Descriptor status_;  // rings when something of that half may have changed
  const rt::Descriptor config_;
  std::optional<rt::String> oldProblem_;  // as it was when the wait for this VM began
  rt::String toldProblem_;
  bool toldAbsence_ = false;
  bool hasProgress_ = false;
  std::optional<rt::Seconds> refusedAt_;  // since when its start is refused
};

// "enabled is true, state is 'Starting', process is running".
rt::String whatIsSo(const VmRow& row);

}  // namespace ctl
