#include "host/network/InterfaceNames.h"

#include "host/base/Problems.h"
#include "model/VmConfigCheck.h"
#include "runtime/base/FirstException.h"
#include "statedb/EntityDocument.h"

namespace host {

namespace {

std::vector<rt::Problem> problemsOf(const rt::String& id, const rt::String& device) {
  std::vector<rt::Problem> problems;
  if (const auto right = model::intfNameRight(id)) problems.push_back({"interface", id, *right});
  const bool isDevice =
      !device.empty() && device.size() <= model::longestIntfName && device != "." &&
      device != ".." &&
      device.str().find_first_of(std::string_view("/: \t\n\0", 6)) == std::string::npos;
  if (!isDevice)
    problems.push_back({"deviceName", device, "must be a kernel device's name, 1 to 15 bytes"});
  return problems;
}

}  // namespace

InterfaceNames::InterfaceNames(Interface::AllIntfStatusLocalDir::Ptr localDir,
                               HostStatus::Ptr status,
                               Interface::DeviceIntfStatusDir::PtrConst present,
                               Withdrawing withdrawing, std::function<uint64_t()> now,
                               std::map<rt::String, Before> before)
    : localDir_(std::move(localDir)),
      status_(std::move(status)),
      withdrawing_(std::move(withdrawing)),
      now_(std::move(now)),
      before_(std::move(before)),
      present_(*this, std::move(present)) {
  handleInitialized();
}

void InterfaceNames::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
}

void InterfaceNames::rowIs(const rt::String& id, const std::optional<rt::String>& doc) {
  refused_.erase(id);
  if (doc) {
    const auto row = rt::make<Interface::IntfStatus>(rt::IntfId(id));
    const auto check = [&](const rt::Entity& read) {
      return problemsOf(id, static_cast<const Interface::IntfStatus&>(read).deviceName());
    };
    const auto problems = statedb::fill(*row, *doc, {.switchAttribute = {}, .check = check});
    if (problems.empty())
      configured_[id] = row->deviceName();
    else
      refused_[id] = textOf(problems);
  } else {
    configured_.erase(id);
  }
  update(id);
}

void InterfaceNames::deviceIs(const rt::String& device) {
  if (devices_.insert(device).second) update(device);
}

void InterfaceNames::deviceDel(const rt::String& device) {
  if (devices_.erase(device) > 0) update(device);
}

void InterfaceNames::carrierIs(const rt::String& device, bool hasCarrier) {
  const bool isNews = hasCarrier ? carriers_.insert(device).second : carriers_.erase(device) > 0;
  if (isNews) deviceIsTold(device);
}

void InterfaceNames::deviceIsTold(const rt::String& device) {
  handlePresent(rt::IntfId(device));
  for (const auto& [id, name] : configured_)
    if (name == device) handlePresent(rt::IntfId(id));
}

void InterfaceNames::deviceLeaves(const rt::String& device) {
  for (const auto& [id, present] : present_->intfStatusAndDeviceNames())
    if (present.deviceName == device) withdrawing_(id.name());
}

void InterfaceNames::flap(const rt::String& id) {
  const rt::IntfId intfId(id);
  const auto local = localDir_->intfStatusLocal(intfId);
  if (!local) return;
  rt::FirstException failures;
  isFlapping_ = true;  // nothing of it is so, and nothing is shown
  failures.run([&] { localDir_->intfStatusLocalDel(intfId); });
  failures.run([&] { localDir_->intfStatusLocalIs(intfId, *local); });
  isFlapping_ = false;
  failures.run([&] { handlePresent(intfId); });
  failures.rethrow();
}

void InterfaceNames::update(const rt::String& id) {
  const rt::IntfId intfId(id);
  const auto row = configured_.find(id);
  const auto refused = refused_.find(id);
  rt::String device;
  if (row != configured_.end())
    device = row->second;
  else if (devices_.contains(id))
    device = id;
  show(id, device, refused == refused_.end() ? rt::String() : refused->second);
  // Last: whoever hears of it may throw.
  rt::FirstException failures;
  const auto before = present_->intfStatusAndDeviceName(intfId);
  if (before && before->deviceName != device) failures.run([&] { withdrawing_(id); });
  failures.run([&] {
    if (device.empty())
      localDir_->intfStatusLocalDel(intfId);
    else
      localDir_->intfStatusLocalIs(intfId, {device, rt::NamespaceName::defaultNamespace()});
  });
  failures.rethrow();
}

void InterfaceNames::show(const rt::String& id, const rt::String& device,
                          const rt::String& problem) {
  if (device.empty() && problem.empty()) return status_->interfaceStatusDel(id);
  const auto record = status_->interfaceStatusIs(id);
  record->deviceNameIs(device);
  record->problemIs(problem);
  handlePresent(rt::IntfId(id));
}

void InterfaceNames::handlePresent(const rt::IntfId& id) {
  if (isFlapping_) return;
  if (const auto record = status_->interfaceStatus(id.name())) {
    const bool isPresent = present_->intfStatusAndDeviceNameHas(id);
    const bool hasCarrier = isPresent && carriers_.contains(record->deviceName());
    const bool isSame = record->present() == isPresent && record->carrier() == hasCarrier;
    if (isSame && record->since() != 0) return;
    record->presentIs(isPresent);
    record->carrierIs(hasCarrier);
    record->sinceIs(sinceOf(*record));
  }
  listener_(id.name());
}

// Of what was so already when the daemon came, the time is the earlier daemon's.
uint64_t InterfaceNames::sinceOf(const model::InterfaceStatus& record) const {
  const auto known = before_.find(record.intfId());
  const bool wasSo = known != before_.end() && known->second.since != 0 &&
                     known->second.present == record.present() &&
                     known->second.carrier == record.carrier();
  return wasSo ? known->second.since : now_();
}

}  // namespace host
