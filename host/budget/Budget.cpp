#include "host/budget/Budget.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "guest/GroupName.h"
#include "guest/GroupText.h"
#include "host/base/Report.h"

namespace host {

namespace {

constexpr rt::Seconds pause{60};

}  // namespace

Budget::Budget(Tools tools, Settings settings, model::DaemonStatus::Ptr status)
    : tools_(std::move(tools)), settings_(std::move(settings)), status_(std::move(status)) {
  takeEarlier();
  show();
}

void Budget::takeEarlier() {
  for (const rt::String& name : tools_.files.directories(settings_.group)) {
    const auto known = guest::groupFrom(name);
    if (!known) continue;
    Group group{settings_.group + "/" + name, known->need, true};
    if (isRemoved(group)) continue;
    // It may have been given more since.
    const uint64_t bound =
        model::mebibytesIn(tools_.files.read(group.path + "/memory.max").value_or("").str());
    const uint64_t reserve = tools_.rows.limits(known->vm)->memoryReserve();
    group.need = std::max(group.need, bound - std::min(bound, reserve));
    groups_[known->vm] = group;
  }
}

rt::String Budget::reserve(const Vm::VmConfig& vm) {
  const rt::String& name = vm.name();
  const uint64_t need = model::memoryNeed(vm, settings_.processor);
  if (groups_.contains(name) && !remove(name)) return reserveMore(name, need);
  const Group group{settings_.group + "/" + guest::groupNameOf(name, need), need};
  if (const auto refusal = model::refusalOf(limitOf(name, group), room())) {
    waiting_.insert(name);
    return "memory: " + *refusal;
  }
  if (rt::String trouble = make(name, group); !trouble.empty()) return trouble;
  waiting_.erase(name);
  groups_[name] = group;
  show();
  return {};
}

// For one whose guest before is still there.
rt::String Budget::reserveMore(const rt::String& vm, uint64_t need) {
  Group& group = groups_[vm];
  const uint64_t more = need - std::min(need, group.need);
  if (const auto refusal = more > 0 ? model::refusalOf(more, room()) : std::nullopt) {
    waiting_.insert(vm);
    return "memory: " + *refusal;
  }
  group.need += more;
  group.isLeaving = false;
  group.hasLived = false;  // the one before is not the one who is awaited
  bound(vm, group);
  waiting_.erase(vm);
  show();
  return {};
}

rt::String Budget::groupOf(const rt::String& vm) const {
  const auto group = groups_.find(vm);
  return group == groups_.end() ? rt::String() : group->second.path;
}

void Budget::ended(const rt::String& vm) {
  const auto group = groups_.find(vm);
  if (group == groups_.end()) return;
  group->second.isLeaving = true;
  look();
  const auto left = groups_.find(vm);
  if (left == groups_.end()) return;
  tools_.watch(left->second.path);
  // What a QEMU that was killed with its shim has made is nobody's. (Not on an older kernel.)
  if (!tools_.isKept(vm)) (void)tools_.files.write(left->second.path + "/cgroup.kill", "1");
  look();  // it may have ended before it was watched
}

void Budget::release(const rt::String& vm) { waiting_.erase(vm); }

void Budget::limitsAre(const rt::String& vm) {
  if (const auto group = groups_.find(vm); group != groups_.end()) bound(vm, group->second);
  if (waiting_.contains(vm)) tools_.again(rt::String(vm));
  show();
}

void Budget::look() {
  std::vector<rt::String> leaving;
  for (const auto& [vm, group] : groups_)
    if (group.isLeaving || group.hasLived) leaving.push_back(vm);
  bool hasRoom = false;
  for (const rt::String& vm : leaving) hasRoom = remove(vm) || hasRoom;
  if (!hasRoom) return;
  show();
  tellWaiting();
}

void Budget::pass(rt::Seconds now) {
  if (now < next_) return;
  next_ = now + pause;
  const rt::String trouble = renewGuestsGroup(tools_.files, settings_.group, settings_.share);
  if (status_->guestsTrouble() != trouble && !trouble.empty()) report("guests: " + trouble);
  status_->guestsTroubleIs(trouble);
  for (auto& [vm, group] : groups_) {
    group.hasLived = group.hasLived || isPopulated(group);
    bound(vm, group);
  }
  look();
}

model::Room Budget::room() const {
  const auto touched = tools_.files.read(settings_.group + "/memory.current");
  const auto meminfo = tools_.files.read("/proc/meminfo");
  return {.cap = settings_.share.memory,
          .given = given(),
          .touched = touched ? model::mebibytesIn(touched->str()) : 0,
          .reserve = settings_.reserve,
          .available = meminfo ? model::availableIn(meminfo->str()) : std::nullopt};
}

uint64_t Budget::limitOf(const rt::String& vm, const Group& group) const {
  return group.need + tools_.rows.limits(vm)->memoryReserve();
}

uint64_t Budget::given() const {
  uint64_t sum = 0;
  for (const auto& [vm, group] : groups_) sum += limitOf(vm, group);
  return sum;
}

bool Budget::isPopulated(const Group& group) const {
  const auto events = tools_.files.read(group.path + "/cgroup.events");
  return events && guest::numberOf(events->str(), "populated") != 0;
}

// The kernel removes none that has a process, so it is the one to be asked.
bool Budget::isRemoved(const Group& group) {
  const int error = tools_.files.removeDirectory(group.path);
  return error == 0 || error == ENOENT;
}

// With its bounds, before there is anybody in it: one that is bound later keeps what it has by
// then.
rt::String Budget::make(const rt::String& vm, const Group& group) {
  (void)tools_.files.removeDirectory(group.path);
  int error = tools_.files.makeDirectory(group.path);
  if (error == 0) {
    bound(vm, group);
    const auto limit = tools_.files.read(group.path + "/memory.max");
    if (limit && model::mebibytesIn(limit->str()) == limitOf(vm, group)) return {};
    error = ENOTSUP;
  }
  (void)tools_.files.removeDirectory(group.path);
  return "its control group " + group.path + " could not be made: " + std::strerror(error);
}

// A guest that has more than it is to have from now on would be ended: that waits.
void Budget::bound(const rt::String& vm, const Group& group) {
  for (const auto& [file, text] : valuesOf(*tools_.rows.limits(vm), limitOf(vm, group))) {
    const rt::String path = group.path + "/" + file;
    const auto now = tools_.files.read(path);
    if (!now || *now == text + "\n") continue;
    const auto current = tools_.files.read(group.path + "/memory.current");
    const bool isTooMuch =
        file == "memory.max" && current && model::mebibytesIn(current->str()) >= limitOf(vm, group);
    if (!isTooMuch) (void)tools_.files.write(path, text);
  }
}

// Returns whether it is gone.
bool Budget::remove(const rt::String& vm) {
  const auto group = groups_.find(vm);
  if (!isRemoved(group->second)) return false;
  groups_.erase(group);
  return true;
}

void Budget::tellWaiting() {
  for (const rt::String& vm : std::set(waiting_)) tools_.again(vm);
}

void Budget::show() { status_->memoryGivenIs(given()); }

}  // namespace host
