#include "host/network/KernelLinks.h"

#include "runtime/base/FirstException.h"

namespace host {

KernelLinks::KernelLinks(KernelNetInfo::Status::Ptr status, InterfaceNames::Ptr names,
                         LinkRecords::MacvtapSink macvtap, std::function<void()> heard)
    : records_(std::move(status), std::move(names), std::move(macvtap)),
      heard_(std::move(heard)),
      descriptor_(*this, rt::make<rt::FileDescriptor>("kernel links")) {
  handleInitialized();
}

void KernelLinks::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  descriptor_->descriptorIs(source_.descriptor());
  descriptor_->notifyOnReadableIs(true);
  handleReadable();
}

void KernelLinks::handleReadable() {
  rt::FirstException failures;
  failures.run([&] { records_.linksAre(source_.read()); });
  heard_();
  failures.rethrow();
}

}  // namespace host
