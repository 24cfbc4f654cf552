#include "host/database/History.h"

#include <algorithm>
#include <iterator>

#include "runtime/base/Format.h"
#include "runtime/base/VisibleText.h"
#include "statedb/EntityDocument.h"

namespace host {

namespace {

namespace kind = model::eventKind;

// More than any daemon tells of, and twelve digits still after as many again.
constexpr uint64_t mostSeq = 100'000'000'000;
constexpr size_t longestWord = 255;
// Of a VM, whose end is not told again: a file of its shim's has fewer.
constexpr size_t mostRuns = 64;

bool isOurs(const model::Event& row) {
  const bool isNumbered = row.id() > 0 && row.id() <= mostSeq && row.seq() > 0 &&
                          row.seq() <= mostSeq && row.key() == History::keyOf(row.id());
  const rt::String* const words[] = {&row.vm(),      &row.kind(), &row.reason(), &row.severity(),
                                     &row.subject(), &row.by(),   &row.via()};
  return isNumbered && row.text().size() <= model::longestEventText &&
         std::all_of(std::begin(words), std::end(words),
                     [](const rt::String* word) { return word->size() <= longestWord; });
}

bool standsAlone(const rt::String& kind) {
  return kind == kind::config || kind == kind::state || kind == kind::end;
}

rt::String commonOf(const model::Event& event) {
  return event.kind() + " " + event.reason() + " " + event.subject();
}

// Not within a character.
rt::String cut(const rt::String& text) {
  if (text.size() <= model::longestEventText) return text;
  constexpr std::string_view mark = "…";
  size_t end = model::longestEventText - mark.size();
  const auto isInside = [&](size_t at) {
    return (static_cast<unsigned char>(text.str()[at]) & 0xc0U) == 0x80U;
  };
  while (end > 0 && isInside(end)) --end;
  return text.substr(0, end) + mark;
}

}  // namespace

rt::String History::keyOf(uint64_t id) { return rt::format("%012ju", static_cast<uintmax_t>(id)); }

void History::rowsAre(const std::vector<model::Event::Ptr>& rows, uint64_t dropped,
                      uint64_t droppedSeq) {
  dropped_ = dropped;
  droppedSeq_ = lastSeq_ = droppedSeq <= mostSeq ? droppedSeq : 0;
  std::vector<model::Event::Ptr> ours;
  std::copy_if(rows.begin(), rows.end(), std::back_inserter(ours),
               [](const model::Event::Ptr& row) { return isOurs(*row); });
  std::sort(ours.begin(), ours.end(),
            [](const auto& a, const auto& b) { return a->seq() > b->seq(); });
  if (ours.size() > mostRows) {
    dropped_ += ours.size() - mostRows;
    droppedSeq_ = std::max(droppedSeq_, ours[mostRows]->seq());
    ours.resize(mostRows);
  }
  for (auto row = ours.rbegin(); row != ours.rend(); ++row) takeUp(**row);
  sink_.droppedIs(dropped_, droppedSeq_);
}

void History::takeUp(const model::Event& row) {
  lastSeq_ = std::max(lastSeq_, row.seq());
  lastId_ = std::max(lastId_, row.id());
  note(row);
  write(row);
}

// An end is told by who judges it, with the run and no line of it.
bool History::isKnown(const model::Event& event) const {
  if (event.run() == 0) return false;
  if (event.kind() == kind::end) {
    const auto ended = endedRuns_.find(event.vm());
    return ended != endedRuns_.end() && ended->second.contains(event.run());
  }
  const auto told = told_.find(event.vm());
  if (told == told_.end() || event.run() > told->second.run) return false;
  return event.run() < told->second.run || event.n() <= told->second.n;
}

void History::note(const model::Event& event) {
  if (event.run() == 0) return;
  if (event.kind() == kind::end) {
    std::set<uint64_t>& runs = endedRuns_[event.vm()];
    runs.insert(event.run());
    if (runs.size() > mostRuns) runs.erase(runs.begin());
    return;
  }
  Told& told = told_[event.vm()];
  if (event.run() > told.run) told = {event.run(), 0};
  if (event.run() == told.run) told.n = std::max(told.n, event.n());
}

void History::add(const model::Event::Ptr& event) {
  if (isKnown(*event)) return;
  note(*event);
  event->textIs(cut(event->text()));
  event->seqIs(++lastSeq_);
  const bool isAlone = standsAlone(event->kind());
  // What comes behind a change of state is another story.
  if (isAlone) open_.erase(event->vm());
  if (!isAlone && merge(*event)) return;
  event->idIs(++lastId_);
  event->firstIs(event->at());
  event->countIs(1);
  if (!isAlone) open_[event->vm()][commonOf(*event)] = event;
  write(*event);
  makeRoom();
}

bool History::merge(const model::Event& event) {
  const auto vm = open_.find(event.vm());
  if (vm == open_.end()) return false;
  std::erase_if(vm->second,
                [&](const auto& each) { return event.at() > each.second->at() + mergedWithin; });
  const auto found = vm->second.find(commonOf(event));
  if (found == vm->second.end()) return false;
  model::Event& row = *found->second;
  if (!rows_.contains(row.id())) return false;
  ids_[row.vm()].erase(row.seq());
  row.seqIs(event.seq());
  row.atIs(std::max(row.at(), event.at()));
  row.countIs(row.count() + 1);
  row.textIs(event.text());
  row.severityIs(event.severity());
  row.byIs(event.by());
  row.runIs(event.run());
  row.nIs(event.n());
  write(row);
  return true;
}

void History::write(const model::Event& event) {
  rows_[event.id()] = {event.vm(), event.seq()};
  ids_[event.vm()][event.seq()] = event.id();
  sink_.rowIs(keyOf(event.id()), statedb::documentOf(event));
}

void History::makeRoom() {
  while (rows_.size() > mostRows) {
    const auto most = std::max_element(ids_.begin(), ids_.end(), [](const auto& a, const auto& b) {
      return a.second.size() < b.second.size();
    });
    const auto oldest = most->second.begin();
    droppedSeq_ = std::max(droppedSeq_, oldest->first);
    sink_.rowDel(keyOf(oldest->second));
    rows_.erase(oldest->second);
    most->second.erase(oldest);
    if (most->second.empty()) ids_.erase(most);
    sink_.droppedIs(++dropped_, droppedSeq_);
  }
}

}  // namespace host
