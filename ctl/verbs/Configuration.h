// The configuration of all VMs, as it was read, and how one VM's is changed.
#pragma once

#include <functional>
#include <map>
#include <string_view>
#include <vector>

#include "ctl/line/Fields.h"
#include "ctl/verbs/Images.h"
#include "ctl/view/OwnRows.h"
#include "ctl/view/VmRows.h"
#include "model/ConfigIndex.h"

namespace ctl {

struct Changed {
  Vm::VmConfig::Ptr before;
  Vm::VmConfig::Ptr after;
  rt::String formatBefore;  // of the disk image; empty: nobody has said
  rt::String formatAfter;
  model::VmOwn ownBefore;
  model::VmOwn ownAfter;
};

// Whether the problem is of a field that could not be read: that has its default now, which says
// nothing.
bool isOfUnread(const rt::Problem& problem, const std::vector<rt::Problem>& unread);

// Of a VM whose row cannot be read, and so not be changed.
Refusal unreadable(const VmRow& row);

// Read at first, and again when somebody else wrote meanwhile; so many VMs can be changed
// at the price of one reading. A clash that two writers make at the same moment is not seen here:
// the daemon refuses the newcomer.
class Configuration {
 public:
  // Whether it writes, or only looks whether it could.
  enum class Mode : uint8_t { write, tell };
  explicit Configuration(Context& context, Mode mode = Mode::write);

  // Writes to the records, and adds to `problems` what it refuses. That of the image is empty at
  // first: what it is left without is not said.
  using Change = std::function<void(const VmRecords& records, std::vector<rt::Problem>& problems)>;
  // Adds what is to be written with it.
  using Beside = std::function<void(statedb::Transaction& transaction)>;

  // Makes, or changes, the VM in one transaction, and returns what was written. Refuses when
  // anything is wrong with the outcome, with all there is; nothing was written then.
  Changed add(const rt::String& name, const Change& change);
  Changed change(const rt::String& name, const Change& change, const Beside& beside = {});

  // An address that no card has, also none of the VM as it is now.
  rt::EthAddr freshMac(const Vm::VmConfig& vm) const;

  Mode mode() const { return mode_; }
  // By name, as they were read last, without status. `config` is null where it cannot be read.
  const std::map<rt::String, VmRow>& rows() const { return rows_; }
  // Those that can be read.
  std::map<rt::String, Vm::VmConfig::Ptr> configs() const;
  // The names of all VMs that can be read, and of those that are enabled.
  std::vector<rt::String> names() const;
  std::vector<rt::String> enabledNames() const;

  // Tries again, on rows read anew, when a commit meets what others wrote; refuses in the end.
  void retry(const std::function<void()>& attempt);

 private:
  void read();
  VmRow row(const rt::String& name) const;
  void require(const Vm::VmConfig& vm, std::vector<rt::Problem> problems);
  void commit(Changed& changed, const VmRow& known, const rt::String& format, const Beside& beside);

  Context& context_;
  const Mode mode_;
  std::map<rt::String, VmRow> rows_;
  std::optional<model::ConfigIndex> index_;  // of those that can be read
};

}  // namespace ctl
