// The kernel's network devices, followed.
#pragma once

#include <functional>
#include <memory>

#include "host/network/LinkRecords.h"
#include "runtime/loop/FileDescriptor.h"

namespace host {

// Where the devices come from: rtnetlink, by libnl's cache.
class KernelLinkSource {
 public:
  KernelLinkSource();  // throws Exception when the kernel does not answer
  KernelLinkSource(const KernelLinkSource&) = delete;
  ~KernelLinkSource();

  // Readable: read() may find changes. A new one, the caller's to close.
  int descriptor() const;
  // All devices there are now. What was lost, because the kernel told faster than we listened, is
  // asked for anew.
  KernelLinkTable read();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Keeps the records of the kernel's devices up to date.
class KernelLinks final : public rt::StateMachineOf<KernelLinks> {
 public:
  // `heard` is called after the kernel told of any device, also of one that is no interface.
  KernelLinks(KernelNetInfo::Status::Ptr status, InterfaceNames::Ptr names,
              LinkRecords::MacvtapSink macvtap, std::function<void()> heard);

  static constexpr std::string_view typeName = "host::KernelLinks";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &KernelLinks::initialized>>;

 private:
  void handleInitialized();
  void handleReadable();

  KernelLinkSource source_;
  LinkRecords records_;
  const std::function<void()> heard_;

  rt::Reactor<KernelLinks, rt::FileDescriptor,
              rt::On<&rt::FileDescriptor::readable, &KernelLinks::handleReadable>>
      descriptor_;
};

}  // namespace host
