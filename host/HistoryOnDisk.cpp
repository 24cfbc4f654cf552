#include "host/HistoryOnDisk.h"

#include <utility>

namespace host {

HistoryOnDisk::HistoryOnDisk(const KeptDirectory& directory, const rt::Clock::Ptr& clock)
    : directory_(directory),
      file_(rt::make<KeptFile>(
          directory, KeptEvents::fileName,
          [this](bool mustBeWhole) {
            auto [text, isWhole] = events_.next(mustBeWhole);
            return KeptFile::Part{std::move(text), isWhole};
          },
          clock)) {}

EventsBefore HistoryOnDisk::takeUp(EventsBefore before) {
  std::optional<EventsBefore> kept;
  if (const auto text = directory_.read(KeptEvents::fileName, KeptEvents::mostRead)) {
    rt::String why;
    kept = KeptEvents::read(*text, why);
    if (!kept) directory_.putAside(KeptEvents::fileName, why);
  }
  EventsBefore all = joined(std::move(before), std::move(kept));
  events_.numbersAre(all.numbers);
  return all;
}

void HistoryOnDisk::rowIs(const rt::String& key, const rt::String& doc) {
  events_.rowIs(key, doc);
  file_->changed();
}

void HistoryOnDisk::rowDel(const rt::String& key) {
  events_.rowDel(key);
  file_->changed();
}

void HistoryOnDisk::droppedIs(uint64_t count, uint64_t seq) {
  events_.droppedIs(count, seq);
  file_->changed();
}

void HistoryOnDisk::finish(rt::Seconds atMost) {
  events_.ended();
  file_->changed();
  file_->finish(atMost);
}

}  // namespace host
