#include "host/network/KernelLinks.h"

namespace host {

KernelLinks::KernelLinks(KernelNetInfo::Status::Ptr status, InterfaceNames::Ptr names)
    : records_(std::move(status), std::move(names)),
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

void KernelLinks::handleReadable() { records_.linksAre(source_.read()); }

}  // namespace host
