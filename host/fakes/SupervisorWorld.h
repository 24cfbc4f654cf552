// Everything around the supervisor, as a test wants it.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/fakes/FakeAgent.h"
#include "host/fakes/FakeGuestProcesses.h"
#include "host/fakes/FakeShims.h"
#include "host/guests/VmSupervisor.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/loop/ActivityManager.h"

namespace host::fakes {

// A row of a VM, in whole.
struct Row {
  bool enabled = true;
  rt::String diskImage = "/images/web.iso";
  int memory = 256;
  int vncPort = 0;

  rt::String doc() const;
};
inline const Row on{.enabled = true};
inline const Row off{.enabled = false};

// Remembers what it was told of VMs' cards, and what the agent had made of the VM by then:
// "before off: web1 is on", "off: web1 is off", "off: web1 is gone".
class FakeCards final : public VmCards {
 public:
  // `effects`: where it writes whose guest was taken up, "took up web1", between what others do.
  FakeCards(Vm::Status::PtrConst status, std::vector<std::string>& effects)
      : status_(std::move(status)), effects_(effects) {}

  void switchingOff(const rt::String& vm) override { tell("before off: ", vm); }
  void switchedOff(const rt::String& vm) override { tell("off: ", vm); }
  void changed(const rt::String& vm) override { changed_.insert(vm); }
  void tookUp(const rt::String& vm) override;
  void guestLeaves(const rt::String& vm, int32_t pid) override;
  void guestLeft(const rt::String& vm) override { leaving.erase(vm); }

  std::function<void(const rt::String& vm)> takingUp;  // sees what is so then
  std::vector<int32_t> noted;                          // processes whose devices were
  std::map<rt::String, std::set<int32_t>> leaving;     // processes whose devices are known, by VM

  // Those that changed since the last call.
  std::set<rt::String> takeChanged() { return std::exchange(changed_, {}); }
  std::vector<std::string> take() { return std::exchange(told_, {}); }

 private:
  void tell(const char* what, const rt::String& vm);

  const Vm::Status::PtrConst status_;
  std::vector<std::string>& effects_;
  std::vector<std::string> told_;
  std::set<rt::String> changed_;
};

// Disk images that are there unless a test says otherwise.
class FakeImages final : public ImageJudge {
 public:
  std::set<rt::String> missing;
  std::set<rt::String> unseen;  // nobody can tell what is there yet
  rt::String note;              // on each that is fit
  std::vector<ImageQuestion> questions;
  std::map<rt::String, rt::String> held;     // by VM
  std::map<rt::String, rt::String> formats;  // by VM: what the operator says now

  ImageVerdict judge(const ImageQuestion& question) override;
  rt::String format(const rt::String& vm, const rt::String& path) const override;
  void release(const rt::String& vm) override { held.erase(vm); }
};

// Remembers which starts are prepared, and which guests have ended.
class FakeAroundStart final : public AroundStart {
 public:
  std::function<void(const VmStart&)> preparing;  // may throw
  bool isPrepared = false;                        // and not cleared up yet
  std::vector<rt::String> endings;

  void before(const VmStart& start) override {
    if (preparing) preparing(start);
    isPrepared = true;
  }
  void after() override { isPrepared = false; }
  void ended(const rt::String& vm) override { endings.push_back(vm); }
};

// Guests that go on though the agent's process has ended, as a test says. Remembers what was asked
// of them: "end web1".
class FakeGoingGuests final : public GoingGuests {
 public:
  std::function<void(const rt::String& vm)> deciding;  // what becomes of one
  std::set<rt::String> there;                          // VMs that have such a guest
  std::vector<std::string> told;

  bool decideOn(const rt::String& vm) override { return tell("decide on ", vm, deciding); }
  bool end(const rt::String& vm) override { return tell("end ", vm, {}); }

 private:
  bool tell(const char* what, const rt::String& vm,
            const std::function<void(const rt::String& vm)>& made) {
    if (!there.contains(vm)) return false;
    told.push_back(what + vm.str());
    if (made) made(vm);
    return true;
  }
};

// Has room for all but those that a test says, and remembers who has ended.
class FakeBudget final : public GuestBudget {
 public:
  std::map<rt::String, rt::String> refusals;  // by VM
  std::map<rt::String, uint32_t> kept;        // the memory of the VM that was started
  std::vector<rt::String> endings;

  rt::String reserve(const Vm::VmConfig& vm) override {
    if (const auto found = refusals.find(vm.name()); found != refusals.end()) return found->second;
    kept[vm.name()] = vm.memory();
    return {};
  }
  rt::String groupOf(const rt::String& vm) const override {
    return kept.contains(vm) ? "/groups/" + vm : rt::String();
  }
  void ended(const rt::String& vm) override {
    kept.erase(vm);
    endings.push_back(vm);
  }
  void release(const rt::String& /*vm*/) override {}
};

// A fake agent on its records, rows that are judged as the daemon judges them, a clock that stands
// at 1000 s, and a loop that turns when told.
class SupervisorWorld {
 public:
  explicit SupervisorWorld(std::map<rt::String, uint64_t> restartsDone = {},
                           rt::Seconds stopPatience = rt::Seconds(0));

  const rt::Ptr<rt::fakes::ManualClock> clock = rt::make<rt::fakes::ManualClock>();
  rt::ActivityManager manager{clock};
  TraceLog traceLog{0, {}};
  Fortune fortune;
  FakeImages images;
  OwnRows own{model::MachineLimits{.memory = 8192}};
  FakeBudget budget;
  FakeShims shims{fortune.effects};
  const Vm::Config::Ptr config = rt::make<Vm::Config>();
  const Vm::Status::Ptr status = rt::make<Vm::Status>();
  const HostStatus::Ptr hostStatus = rt::make<HostStatus>();
  Problems problems{hostStatus, [this] { return static_cast<uint64_t>(clock->now().value()); }};
  const FakeRoot::Ptr agent = fakeAgent(config, status, fortune);
  VmRows rows{model::MachineLimits{.memory = 8192}};
  FakeCards cards{status, fortune.effects};
  FakeGuestProcesses processes;
  WaitingGuests waiting;
  FakeGoingGuests going;
  StartOrder order;
  FakeAroundStart aroundStart;
  std::vector<std::string> told;  // of how VMs are: "state running", "end guest-panic"
  const VmStates::Ptr states;
  const KeeperTools tools;
  const VmSupervisor::Ptr supervisor;

  // What the configuration says now. A put of a row that is there keeps it the same VM.
  statedb::Change put(const rt::String& vm, const rt::String& doc);
  statedb::Change putNew(const rt::String& vm, const rt::String& doc);  // another VM
  static statedb::Change del(const rt::String& vm);
  // What a comparison with a store finds that took the place of the one before.
  static statedb::Change found(statedb::Change change);
  void apply(const std::vector<statedb::Change>& changes, const rt::String& history = "h1");

  // A change, and all that comes of it at once.
  void rowIs(const rt::String& vm, const Row& row);
  void rowDel(const rt::String& vm);
  void restartIs(const rt::String& vm, uint64_t number, bool ifEnded = false);
  // Passes of the loop until nothing is left to be done at once.
  void settle();
  void advance(double seconds);
  // A process of the VM ends, the oldest first; and all that comes of it at once.
  void exits(const rt::String& vm);
  void end(const rt::String& vm);

  // "running 100", "ending 100", "none 0" after a restart; empty where there is none and was none.
  std::string process(const rt::String& vm) const;
  // "agent: FAIL"; empty without a row.
  std::string problem(const rt::String& vm) const;

 private:
  std::map<rt::String, uint64_t> created_;
  uint64_t revision_ = 0;
};

}  // namespace host::fakes
