// All that the host itself has to say, shown in the database.
#pragma once

#include "model/StatusRecords.h"
#include "model/Tables.h"
#include "model/VmCard.h"

namespace host {

// The root of the host's records.
class HostStatus final : public rt::EntityOf<HostStatus> {
 public:
  template <class T>
  using Records = rt::Collection<rt::String, rt::Ptr<T>>;

  const Records<model::DaemonStatus>& daemons() const { return daemon_; }
  model::DaemonStatus::Ptr daemonIs(const rt::String& name) {
    return instantiate<&HostStatus::daemon>(daemon_, name, name);
  }
  model::DaemonStatus::Ptr daemon(const rt::String& name) const { return daemon_.get(name); }

  const Records<model::VmProcess>& vmProcesses() const { return vmProcess_; }
  model::VmProcess::Ptr vmProcess(const rt::String& name) const { return vmProcess_.get(name); }
  model::VmProcess::Ptr vmProcessIs(const rt::String& name) {
    return instantiate<&HostStatus::vmProcess>(vmProcess_, name, name);
  }
  void vmProcessDel(const rt::String& name) { remove<&HostStatus::vmProcess>(vmProcess_, name); }

  const Records<model::VmProblem>& vmProblems() const { return vmProblem_; }
  model::VmProblem::Ptr vmProblem(const rt::String& name) const { return vmProblem_.get(name); }
  model::VmProblem::Ptr vmProblemIs(const rt::String& name) {
    return instantiate<&HostStatus::vmProblem>(vmProblem_, name, name);
  }
  void vmProblemDel(const rt::String& name) { remove<&HostStatus::vmProblem>(vmProblem_, name); }

  const Records<model::VmCard>& vmCards() const { return vmCard_; }
  model::VmCard::Ptr vmCard(const rt::String& key) const { return vmCard_.get(key); }
  model::VmCard::Ptr vmCardIs(const rt::String& key) {
    return instantiate<&HostStatus::vmCard>(vmCard_, key, key);
  }
  void vmCardDel(const rt::String& key) { remove<&HostStatus::vmCard>(vmCard_, key); }

  const Records<model::InterfaceStatus>& interfaceStatuses() const { return interfaceStatus_; }
  model::InterfaceStatus::Ptr interfaceStatus(const rt::String& id) const {
    return interfaceStatus_.get(id);
  }
  model::InterfaceStatus::Ptr interfaceStatusIs(const rt::String& id) {
    return instantiate<&HostStatus::interfaceStatus>(interfaceStatus_, id, id);
  }
  void interfaceStatusDel(const rt::String& id) {
    remove<&HostStatus::interfaceStatus>(interfaceStatus_, id);
  }

  const Records<model::FdbEntry>& fdbEntries() const { return fdb_; }
  model::FdbEntry::Ptr fdb(const rt::String& key) const { return fdb_.get(key); }
  model::FdbEntry::Ptr fdbIs(const rt::String& key) {
    return instantiate<&HostStatus::fdb>(fdb_, key, key);
  }
  void fdbDel(const rt::String& key) { remove<&HostStatus::fdb>(fdb_, key); }

  static constexpr std::string_view typeName = "host::HostStatus";
  using Attributes = rt::AttributeTable<
      rt::CollectionAttribute<model::table::daemon, &HostStatus::daemon, &HostStatus::daemons>,
      rt::CollectionAttribute<model::table::vmProcess, &HostStatus::vmProcess,
                              &HostStatus::vmProcesses>,
      rt::CollectionAttribute<model::table::vmProblem, &HostStatus::vmProblem,
                              &HostStatus::vmProblems>,
      rt::CollectionAttribute<model::table::vmCard, &HostStatus::vmCard, &HostStatus::vmCards>,
      rt::CollectionAttribute<model::table::interfaceStatus, &HostStatus::interfaceStatus,
                              &HostStatus::interfaceStatuses>,
      rt::CollectionAttribute<model::table::fdb, &HostStatus::fdb, &HostStatus::fdbEntries>>;

 private:
  Records<model::DaemonStatus> daemon_;
  Records<model::VmProcess> vmProcess_;
  Records<model::VmProblem> vmProblem_;
  Records<model::VmCard> vmCard_;
  Records<model::InterfaceStatus> interfaceStatus_;
  Records<model::FdbEntry> fdb_;
};

}  // namespace host
