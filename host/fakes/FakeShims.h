// Shims that remember what they were told.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host/guests/Shims.h"
#include "runtime/base/Text.h"
#include "runtime/entity/Reactor.h"

namespace host::fakes {

// Every VM has one, but for those that are gone.
class FakeShims final : public Shims {
 public:
  struct Told {
    rt::String vm;
    statedb::Origin row;
  };

  // `effects`: where it writes whom it is to stop, "ask web1", between what others do there.
  // Outlives it.
  explicit FakeShims(std::vector<std::string>& effects) : effects_(effects) {}

  std::set<rt::String> gone;                             // VMs whose guest has no shim
  std::vector<Told> told;                                // which row a guest is of
  std::map<rt::String, rt::String> lastErrors;           // of each VM's QEMU
  std::function<void(const rt::String& vm)> catchingUp;  // tells what was not told yet
  std::set<rt::String> deadSockets;                      // VMs that have such

  std::vector<std::string> lines;    // "web1 MAC up", as they were told
  std::vector<rt::String> caughtUp;  // VMs whose events were to be told at once

  // What is wrong with the VM's guest now; empty: nothing.
  void problemIs(const rt::String& vm, const rt::String& problem) {
    problems_[vm] = problem;
    if (const auto sinks = sinks_.lock()) sinks->problem(vm, problem);
  }

  bool tellFormats() const override { return true; }
  bool askToStop(const rt::String& vm, std::optional<rt::Seconds> time) override {
    effects_.push_back("ask " + vm.str() +
                       (time ? " within " + rt::toText(*time).str() : std::string()));
    return isThere(vm);
  }
  void rowIs(const rt::String& vm, const statedb::Origin& row) override {
    told.push_back({vm, row});
  }
  bool lineIs(const rt::String& vm, rt::EthAddr card, bool isUp) override {
    if (!isThere(vm)) return false;
    lines.push_back(vm.str() + " " + card.text().str() + (isUp ? " up" : " down"));
    return true;
  }
  bool isThere(const rt::String& vm) const override { return !gone.contains(vm); }
  rt::String lastError(const rt::String& vm) const override { return in(lastErrors, vm); }
  void lastErrorDel(const rt::String& vm) override { lastErrors.erase(vm); }
  rt::String problem(const rt::String& vm) const override { return in(problems_, vm); }
  rt::Ptr<const rt::Entity> follow(Sinks sinks) override {
    for (const auto& [vm, problem] : problems_) sinks.problem(vm, problem);
    const auto follower = rt::make<Follower>(std::move(sinks));
    sinks_ = follower->sinks;
    return follower;
  }
  void catchUp(const rt::String& vm) override {
    caughtUp.push_back(vm);
    if (catchingUp) catchingUp(vm);
  }
  void removeDeadSockets(const rt::String& vm) override { deadSockets.erase(vm); }
  void removeDeadSocketsOfAllBut(const std::set<rt::String>& living) override {
    std::erase_if(deadSockets, [&](const rt::String& vm) { return !living.contains(vm); });
  }

 private:
  class Follower final : public rt::StateMachineOf<Follower> {
   public:
    explicit Follower(Sinks each) : sinks(std::make_shared<Sinks>(std::move(each))) {}

    const std::shared_ptr<Sinks> sinks;

    static constexpr std::string_view typeName = "host::fakes::FakeShims::Follower";
    using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &Follower::initialized>>;
  };

  static rt::String in(const std::map<rt::String, rt::String>& texts, const rt::String& vm) {
    const auto found = texts.find(vm);
    return found == texts.end() ? rt::String() : found->second;
  }

  std::vector<std::string>& effects_;
  std::map<rt::String, rt::String> problems_;
  std::weak_ptr<Sinks> sinks_;
};

}  // namespace host::fakes
