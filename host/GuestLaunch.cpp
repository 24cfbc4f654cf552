#include "host/GuestLaunch.h"

#include "guest/Variables.h"
#include "guest/VmFiles.h"
#include "host/guests/GuestMark.h"
#include "host/service/PrivateDev.h"
#include "runtime/base/Exception.h"
#include "runtime/base/Text.h"

namespace host {

namespace {

std::unique_ptr<ShimMount> enterNamespaces(const Options& options) {
  std::unique_ptr<ShimMount> mount;
  const rt::String shim = shimOf(options);
  if (!shim.empty()) mount = std::make_unique<ShimMount>(shim);
  if (needsPrivateDev()) enterPrivateDev();
  return mount;
}

// What the shims that the agent starts are told.
ChildEnvironment::Values childEnvironment(const Options& options) {
  auto values = keptEnvironment();
  if (options.shim == "off") return values;
  values.insert(values.end(), {{guest::variable::qemu, guest::realQemuPath},
                               {guest::variable::runDir, options.runDir},
                               {guest::variable::accel, options.accel},
                               {guest::variable::vncListen, options.vncListen},
                               {guest::variable::stopTimeout, options.stopTimeout},
                               {guest::variable::guestUsers, options.guestUsers},
                               {guest::variable::qemuReads, options.qemuReads}});
  return values;
}

}  // namespace

rt::String shimOf(const Options& options) {
  if (options.shim == "off") return {};
  if (options.shim != "auto") return options.shim;
  rt::String shim = installedShim();
  if (shim.empty())
    throw rt::Exception(
        "there is no vmagent-shim beside this program; install it, or name one with --shim");
  return shim;
}

GuestLaunch::GuestLaunch(const Options& options)
    : shim_(enterNamespaces(options)),
      environment_(childEnvironment(options)),
      listener_(guest::startingMonitor) {}

void GuestLaunch::before(const VmStart& start) {
  auto variables = variablesOf(start.row);
  variables.emplace_back(guest::variable::imageFormat, start.imageFormat);
  variables.emplace_back(guest::variable::group, start.group);
  if (shim_) {
    shim_->restore();
    listener_.open(guest::monitorOf(start.vm));
    variables.emplace_back(guest::variable::listener, rt::toText(listener_.number()));
  }
  environment_.extraIs(variables);
}

void GuestLaunch::ended(const rt::String& vm) { listener_.close(guest::monitorOf(vm)); }

}  // namespace host
