// What the host itself has to say of VMs, interfaces and addresses: records beside the agent's.
#pragma once

#include "model/Processors.h"
#include "model/VmProcess.h"
#include "runtime/entity/EntityOf.h"

namespace model {

// How far the daemon has come. Written by the daemon.
class DaemonStatus final : public rt::EntityOf<DaemonStatus> {
 public:
  explicit DaemonStatus(rt::String name) : name_(std::move(name)) {}

  const rt::String& name() const { return name_; }

  // The moment of the configuration that the daemon goes by, or a later one: what the other records
  // say is not older.
  const rt::String& configStore() const { return configStore_; }
  void configStoreIs(const rt::String& id) { assign<&DaemonStatus::configStore>(configStore_, id); }
  uint64_t configSequence() const { return configSequence_; }
  void configSequenceIs(uint64_t sequence) {
    assign<&DaemonStatus::configSequence>(configSequence_, sequence);
  }
  const rt::String& configHistory() const { return configHistory_; }
  void configHistoryIs(const rt::String& history) {
    assign<&DaemonStatus::configHistory>(configHistory_, history);
  }

  // The control group of all guests; empty: they have none, and nothing bounds them.
  const rt::String& guestsGroup() const { return guestsGroup_; }
  void guestsGroupIs(const rt::String& path) {
    assign<&DaemonStatus::guestsGroup>(guestsGroup_, path);
  }
  // Why they have none, or why nothing bounds them now; empty: all is well.
  const rt::String& guestsTrouble() const { return guestsTrouble_; }
  void guestsTroubleIs(const rt::String& text) {
    assign<&DaemonStatus::guestsTrouble>(guestsTrouble_, text);
  }
  // Mebibytes that guests may have together, that stay the machine's, and that are given to those
  // that there are.
  uint64_t memoryCap() const { return memoryCap_; }
  void memoryCapIs(uint64_t mebibytes) { assign<&DaemonStatus::memoryCap>(memoryCap_, mebibytes); }
  uint64_t memoryReserve() const { return memoryReserve_; }
  void memoryReserveIs(uint64_t mebibytes) {
    assign<&DaemonStatus::memoryReserve>(memoryReserve_, mebibytes);
  }
  uint64_t memoryGiven() const { return memoryGiven_; }
  void memoryGivenIs(uint64_t mebibytes) {
    assign<&DaemonStatus::memoryGiven>(memoryGiven_, mebibytes);
  }
  // Processors that guests may have together; "0": all.
  const Processors& guestsCpu() const { return guestsCpu_; }
  void guestsCpuIs(const Processors& processors) {
    assign<&DaemonStatus::guestsCpu>(guestsCpu_, processors);
  }
  // Whether guests' processors are emulated.
  bool emulates() const { return emulates_; }
  void emulatesIs(bool emulates) { assign<&DaemonStatus::emulates>(emulates_, emulates); }

  // The daemon itself: its process, its version, and when it began, in seconds since 1970.
  int32_t pid() const { return pid_; }
  void pidIs(int32_t pid) { assign<&DaemonStatus::pid>(pid_, pid); }
  const rt::String& version() const { return version_; }
  void versionIs(const rt::String& version) { assign<&DaemonStatus::version>(version_, version); }
  uint64_t startedAt() const { return startedAt_; }
  void startedAtIs(uint64_t time) { assign<&DaemonStatus::startedAt>(startedAt_, time); }

  // How many events are not kept any more, and the newest seq among them.
  uint64_t eventsDropped() const { return eventsDropped_; }
  void eventsDroppedIs(uint64_t count) {
    assign<&DaemonStatus::eventsDropped>(eventsDropped_, count);
  }
  uint64_t eventsLostTo() const { return eventsLostTo_; }
  void eventsLostToIs(uint64_t seq) { assign<&DaemonStatus::eventsLostTo>(eventsLostTo_, seq); }

  // Whose the events' numbers are: the id of the store that they began in.
  const rt::String& eventsStore() const { return eventsStore_; }
  void eventsStoreIs(const rt::String& id) { assign<&DaemonStatus::eventsStore>(eventsStore_, id); }

  static constexpr std::string_view typeName = "model::DaemonStatus";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"name", &DaemonStatus::name>,
      rt::Attribute<"configStore", &DaemonStatus::configStore, &DaemonStatus::configStoreIs>,
      rt::Attribute<"configSequence", &DaemonStatus::configSequence,
                    &DaemonStatus::configSequenceIs>,
      rt::Attribute<"configHistory", &DaemonStatus::configHistory, &DaemonStatus::configHistoryIs>,
      rt::Attribute<"guestsGroup", &DaemonStatus::guestsGroup, &DaemonStatus::guestsGroupIs>,
      rt::Attribute<"guestsTrouble", &DaemonStatus::guestsTrouble, &DaemonStatus::guestsTroubleIs>,
      rt::Attribute<"memoryCap", &DaemonStatus::memoryCap, &DaemonStatus::memoryCapIs>,
      rt::Attribute<"memoryReserve", &DaemonStatus::memoryReserve, &DaemonStatus::memoryReserveIs>,
      rt::Attribute<"memoryGiven", &DaemonStatus::memoryGiven, &DaemonStatus::memoryGivenIs>,
      rt::Attribute<"guestsCpu", &DaemonStatus::guestsCpu, &DaemonStatus::guestsCpuIs>,
      rt::Attribute<"emulates", &DaemonStatus::emulates, &DaemonStatus::emulatesIs>,
      rt::Attribute<"pid", &DaemonStatus::pid, &DaemonStatus::pidIs>,
      rt::Attribute<"version", &DaemonStatus::version, &DaemonStatus::versionIs>,
      rt::Attribute<"startedAt", &DaemonStatus::startedAt, &DaemonStatus::startedAtIs>,
      rt::Attribute<"eventsDropped", &DaemonStatus::eventsDropped, &DaemonStatus::eventsDroppedIs>,
      rt::Attribute<"eventsLostTo", &DaemonStatus::eventsLostTo, &DaemonStatus::eventsLostToIs>,
      rt::Attribute<"eventsStore", &DaemonStatus::eventsStore, &DaemonStatus::eventsStoreIs>>;

 private:
  const rt::String name_;
  rt::String configStore_;
  uint64_t configSequence_ = 0;
  rt::String configHistory_;
  rt::String guestsGroup_;
  rt::String guestsTrouble_;
  uint64_t memoryCap_ = 0;
  uint64_t memoryReserve_ = 0;
  uint64_t memoryGiven_ = 0;
  Processors guestsCpu_;
  bool emulates_ = false;
  int32_t pid_ = 0;
  rt::String version_;
  uint64_t startedAt_ = 0;
  uint64_t eventsDropped_ = 0;
  uint64_t eventsLostTo_ = 0;
  rt::String eventsStore_;
};

// The one thing to look at first when a VM is not as it was asked to be. Written by Problems.
class VmProblem final : public rt::EntityOf<VmProblem> {
 public:
  explicit VmProblem(rt::String name) : name_(std::move(name)) {}

  const rt::String& name() const { return name_; }

  const rt::String& problem() const { return problem_; }
  void problemIs(const rt::String& text) { assign<&VmProblem::problem>(problem_, text); }

  uint64_t since() const { return since_; }  // seconds since 1970
  void sinceIs(uint64_t time) { assign<&VmProblem::since>(since_, time); }

  // One of problemSources, see ProblemSource.h.
  const rt::String& source() const { return source_; }
  void sourceIs(const rt::String& source) { assign<&VmProblem::source>(source_, source); }

  static constexpr std::string_view typeName = "model::VmProblem";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"name", &VmProblem::name>,
                         rt::Attribute<"problem", &VmProblem::problem, &VmProblem::problemIs>,
                         rt::Attribute<"since", &VmProblem::since, &VmProblem::sinceIs>,
                         rt::Attribute<"source", &VmProblem::source, &VmProblem::sourceIs>>;

 private:
  const rt::String name_;
  rt::String problem_;
  uint64_t since_ = 0;
  rt::String source_;
};

// An interface of the switch. Written by InterfaceNames.
class InterfaceStatus final : public rt::EntityOf<InterfaceStatus> {
 public:
  explicit InterfaceStatus(rt::String intfId) : intfId_(std::move(intfId)) {}

  const rt::String& intfId() const { return intfId_; }

  const rt::String& deviceName() const { return deviceName_; }
  void deviceNameIs(const rt::String& name) {
    assign<&InterfaceStatus::deviceName>(deviceName_, name);
  }
  bool present() const { return present_; }
  void presentIs(bool present) { assign<&InterfaceStatus::present>(present_, present); }
  // Whether the kernel says of the device that it has a line; of one that is not present: no.
  bool carrier() const { return carrier_; }
  void carrierIs(bool carrier) { assign<&InterfaceStatus::carrier>(carrier_, carrier); }
  // When either changed last, in seconds since 1970.
  uint64_t since() const { return since_; }
  void sinceIs(uint64_t time) { assign<&InterfaceStatus::since>(since_, time); }

  // Why the interface's row is refused; empty when it is not.
  const rt::String& problem() const { return problem_; }
  void problemIs(const rt::String& text) { assign<&InterfaceStatus::problem>(problem_, text); }

  static constexpr std::string_view typeName = "model::InterfaceStatus";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"intfId", &InterfaceStatus::intfId>,
      rt::Attribute<"deviceName", &InterfaceStatus::deviceName, &InterfaceStatus::deviceNameIs>,
      rt::Attribute<"present", &InterfaceStatus::present, &InterfaceStatus::presentIs>,
      rt::Attribute<"carrier", &InterfaceStatus::carrier, &InterfaceStatus::carrierIs>,
      rt::Attribute<"since", &InterfaceStatus::since, &InterfaceStatus::sinceIs>,
      rt::Attribute<"problem", &InterfaceStatus::problem, &InterfaceStatus::problemIs>>;

 private:
  const rt::String intfId_;
  rt::String deviceName_;
  bool present_ = false;
  bool carrier_ = false;
  uint64_t since_ = 0;
  rt::String problem_;
};

// A MAC address with a fixed place in a VLAN, under "VLAN/MAC". Written by FdbStatus.
class FdbEntry final : public rt::EntityOf<FdbEntry> {
 public:
  explicit FdbEntry(rt::String key) : key_(std::move(key)) {}

  const rt::String& key() const { return key_; }

  const rt::String& intf() const { return intf_; }
  void intfIs(const rt::String& intf) { assign<&FdbEntry::intf>(intf_, intf); }

  uint8_t entryType() const { return entryType_; }
  void entryTypeIs(uint8_t type) { assign<&FdbEntry::entryType>(entryType_, type); }

  // The kernel's bridge that we put it into; empty: none. Written by BridgeFdb.
  const rt::String& bridge() const { return bridge_; }
  void bridgeIs(const rt::String& name) { assign<&FdbEntry::bridge>(bridge_, name); }

  static constexpr std::string_view typeName = "model::FdbEntry";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"key", &FdbEntry::key>,
                         rt::Attribute<"intf", &FdbEntry::intf, &FdbEntry::intfIs>,
                         rt::Attribute<"entryType", &FdbEntry::entryType, &FdbEntry::entryTypeIs>,
                         rt::Attribute<"bridge", &FdbEntry::bridge, &FdbEntry::bridgeIs>>;

 private:
  const rt::String key_;
  rt::String intf_;
  uint8_t entryType_ = 0;
  rt::String bridge_;
};

}  // namespace model
