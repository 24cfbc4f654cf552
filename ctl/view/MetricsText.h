// What is so of all VMs, in the text format of Prometheus. Pure.
#pragma once

#include <map>

#include "ctl/view/GuestLoad.h"
#include "ctl/view/VmRows.h"

namespace ctl {

struct MetricsFacts {
  rt::String version;  // of vmctl
  bool daemonRuns = false;
  model::DaemonStatus::Ptr daemon;          // null: it has said nothing
  std::vector<VmRow> vms;                   // by name
  std::map<rt::String, GuestFacts> guests;  // of those that have a process
};

// No name of a family or a label, once released, is changed or left out.
rt::String metricsText(const MetricsFacts& facts);

// As the value of a label: between quotes. Bytes that are no UTF-8 become U+FFFD.
rt::String labelValue(std::string_view text);

}  // namespace ctl
