#include "host/base/Problems.h"

#include <algorithm>

#include "runtime/base/Text.h"

namespace host {

namespace {

// In bytes, but for the last problem that is told: whoever reads that has enough to do.
constexpr size_t longestText = 1024;

}  // namespace

rt::String textOf(const std::vector<rt::Problem>& problems) {
  rt::String text;
  for (size_t i = 0; i < problems.size(); ++i) {
    if (text.size() >= longestText)
      return text + "; and " + rt::toText(problems.size() - i) + " more";
    if (i > 0) text += "; ";
    text += problems[i].text();
  }
  return text;
}

Problems::Problems(HostStatus::Ptr status, std::function<uint64_t()> now)
    : status_(std::move(status)), now_(std::move(now)) {}

void Problems::problemIs(const rt::String& vm, ProblemSource source, const rt::String& text) {
  const auto known = vms_.find(vm);
  if (known == vms_.end() && text.empty()) return;
  Entries& entries = known == vms_.end() ? vms_[vm] : known->second;
  Entry& entry = entries[static_cast<size_t>(source)];
  if (entry.text == text) return;
  entry = {text, now_()};
  show(vm, entries);
  const auto isNone = [](const Entry& each) { return each.text.empty(); };
  if (std::all_of(entries.begin(), entries.end(), isNone)) vms_.erase(vm);
}

void Problems::vmDel(const rt::String& vm) {
  vms_.erase(vm);
  status_->vmProblemDel(vm);
}

void Problems::show(const rt::String& vm, const Entries& entries) {
  for (size_t source = 0; source < entries.size(); ++source) {
    if (entries[source].text.empty()) continue;
    const auto record = status_->vmProblemIs(vm);
    record->problemIs(entries[source].text);
    record->sinceIs(entries[source].since);
    record->sourceIs(model::problemSources[source]);
    return listener_(vm, record->problem(), static_cast<ProblemSource>(source));
  }
  status_->vmProblemDel(vm);
  listener_(vm, {}, {});
}

}  // namespace host
