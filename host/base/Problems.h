// What is wrong with each VM, from all who can tell.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <vector>

#include "host/base/HostStatus.h"
#include "model/ProblemSource.h"
#include "runtime/base/Problem.h"

namespace host {

using model::ProblemSource;

// All of them, on one line.
rt::String textOf(const std::vector<rt::Problem>& problems);

// Keeps one problem a source and VM, and shows the weightiest as the VM's record.
class Problems {
 public:
  // Is told of each VM's weightiest problem; empty: there is none.
  using Listener =
      std::function<void(const rt::String& vm, const rt::String& text, ProblemSource source)>;
  // `now`: the time of day, in seconds since 1970.
  Problems(HostStatus::Ptr status, std::function<uint64_t()> now);
  void listenerIs(Listener listener) { listener_ = std::move(listener); }

  // An empty text: none.
  void problemIs(const rt::String& vm, ProblemSource source, const rt::String& text);
  void vmDel(const rt::String& vm);

 private:
  struct Entry {
    rt::String text;
    uint64_t since = 0;
  };
  using Entries = std::array<Entry, model::problemSources.size()>;

  void show(const rt::String& vm, const Entries& entries);

  const HostStatus::Ptr status_;
  const std::function<uint64_t()> now_;
  Listener listener_ = [](const auto&, const auto&, const auto&) {};
  std::map<rt::String, Entries> vms_;
};

}  // namespace host
