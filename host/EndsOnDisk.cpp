#include "host/EndsOnDisk.h"

#include "host/base/Times.h"

namespace host {

namespace {

constexpr const char* endsFile = "ends";
constexpr const char* runningFile = "running";
constexpr size_t mostRead = 16 * 1024 * 1024;  // a line of each VM that may be there

std::string taken(const KeptDirectory& directory, const char* name, EndBook& book,
                  rt::String (EndBook::*take)(std::string_view)) {
  const auto text = directory.read(name, mostRead);
  if (!text) return {};
  const rt::String wrong = (book.*take)(*text);
  if (wrong.empty()) return *text;
  directory.putAside(name, wrong);
  return {};
}

}  // namespace

EndsOnDisk::EndsOnDisk(const KeptDirectory& directory, const rt::Clock::Ptr& clock)
    : endsWritten_(taken(directory, endsFile, book_, &EndBook::takeEnds)),
      runningWritten_(taken(directory, runningFile, book_, &EndBook::takeRunning)),
      ends_(
          rt::make<KeptFile>(directory, endsFile, nextOf(&EndBook::endsText, endsWritten_), clock)),
      running_(rt::make<KeptFile>(directory, runningFile,
                                  nextOf(&EndBook::runningText, runningWritten_), clock)),
      news_(book_.bootIs(bootId(), bootedAt())) {
  if (news_.empty()) return;
  ends_->changed();
  running_->changed();
}

KeptFile::Next EndsOnDisk::nextOf(Text text, std::string& written) {
  return [this, text, &written](bool /*mustBeWhole*/) -> std::optional<KeptFile::Part> {
    std::string now = (book_.*text)();
    if (now == written) return std::nullopt;
    written = now;
    return KeptFile::Part{std::move(now)};
  };
}

void EndsOnDisk::runs(const rt::String& vm, uint64_t run, uint64_t startedAt) {
  book_.runs(vm, run, startedAt);
  running_->changed();
}

void EndsOnDisk::ended(const rt::String& vm, uint64_t run, const End& end, bool isWithAll) {
  book_.ended(vm, run, end, isWithAll);
  running_->changed();
  ends_->changed();
}

void EndsOnDisk::vmDel(const rt::String& vm) {
  book_.vmDel(vm);
  running_->changed();
  ends_->changed();
}

void EndsOnDisk::finish(rt::Seconds atMost) {
  ends_->finish(atMost);
  running_->finish(atMost);
}

}  // namespace host
