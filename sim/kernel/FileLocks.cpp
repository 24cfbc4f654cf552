#include "sim/kernel/FileLocks.h"

#include <sys/file.h>

#include <algorithm>

namespace sim {

std::optional<FileLocks::Range> FileLocks::conflict(const Range& wanted) const {
  for (const Range& each : ranges_) {
    const bool overlaps = each.begin < wanted.end && wanted.begin < each.end;
    const bool excludes = each.type == F_WRLCK || wanted.type == F_WRLCK;
    if (each.owner != wanted.owner && overlaps && excludes) return each;
  }
  return std::nullopt;
}

// What the owner had of that range is replaced.
void FileLocks::set(const Range& wanted) {
  std::vector<Range> kept;
  for (const Range& each : ranges_) {
    if (each.owner != wanted.owner || each.end <= wanted.begin || wanted.end <= each.begin) {
      kept.push_back(each);
      continue;
    }
    if (each.begin < wanted.begin)
      kept.push_back({each.begin, wanted.begin, each.type, each.owner});
    if (wanted.end < each.end) kept.push_back({wanted.end, each.end, each.type, each.owner});
  }
  if (wanted.type != F_UNLCK) kept.push_back(wanted);
  ranges_ = std::move(kept);
  freed.wake();
}

void FileLocks::drop(const Process& owner) {
  const size_t before = ranges_.size();
  std::erase_if(ranges_, [&](const Range& each) { return each.owner == &owner; });
  if (ranges_.size() != before) freed.wake();
}

bool FileLocks::take(const File& owner, int kind) {
  const auto excludes = [&](const Holder& each) {
    return each.file != &owner && (each.kind == LOCK_EX || kind == LOCK_EX);
  };
  if (std::any_of(holders_.begin(), holders_.end(), excludes)) return false;
  std::erase_if(holders_, [&](const Holder& each) { return each.file == &owner; });
  holders_.push_back({&owner, kind});
  return true;
}

void FileLocks::drop(const File& owner) {
  if (std::erase_if(holders_, [&](const Holder& each) { return each.file == &owner; }) > 0)
    freed.wake();
}

}  // namespace sim
