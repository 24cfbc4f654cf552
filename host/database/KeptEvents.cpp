#include "host/database/KeptEvents.h"

#include <algorithm>

#include "host/database/History.h"
#include "runtime/base/Text.h"
#include "runtime/entity/EntityOf.h"
#include "statedb/EntityDocument.h"

namespace host {

// The head of the file. Not in an anonymous namespace, for which g++ has no attributes.
class KeptHead final : public rt::EntityOf<KeptHead> {
 public:
  uint64_t version() const { return version_; }
  void versionIs(uint64_t value) { assign<&KeptHead::version>(version_, value); }
  const rt::String& numbers() const { return numbers_; }
  void numbersIs(const rt::String& value) { assign<&KeptHead::numbers>(numbers_, value); }
  uint64_t dropped() const { return dropped_; }
  void droppedIs(uint64_t value) { assign<&KeptHead::dropped>(dropped_, value); }
  uint64_t lostTo() const { return lostTo_; }
  void lostToIs(uint64_t value) { assign<&KeptHead::lostTo>(lostTo_, value); }
  const rt::String& gone() const { return gone_; }  // a row's key; empty: none
  void goneIs(const rt::String& value) { assign<&KeptHead::gone>(gone_, value); }
  bool ended() const { return ended_; }
  void endedIs(bool value) { assign<&KeptHead::ended>(ended_, value); }

  static constexpr std::string_view typeName = "host::KeptHead";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"version", &KeptHead::version, &KeptHead::versionIs>,
                         rt::Attribute<"numbers", &KeptHead::numbers, &KeptHead::numbersIs>,
                         rt::Attribute<"dropped", &KeptHead::dropped, &KeptHead::droppedIs>,
                         rt::Attribute<"lostTo", &KeptHead::lostTo, &KeptHead::lostToIs>,
                         rt::Attribute<"gone", &KeptHead::gone, &KeptHead::goneIs>,
                         rt::Attribute<"ended", &KeptHead::ended, &KeptHead::endedIs>>;

 private:
  uint64_t version_ = 0;
  rt::String numbers_;
  uint64_t dropped_ = 0;
  uint64_t lostTo_ = 0;
  rt::String gone_;
  bool ended_ = false;
};

namespace {

constexpr uint64_t version = 1;
constexpr std::string_view headBegins = "{\"version\":";
// More than all that is told between two writes.
constexpr uint64_t gap = 100'000;

rt::String keyOf(const model::Event& row) { return History::keyOf(row.id()); }

// The lines of a file, taken apart.
class Lines {
 public:
  // Returns what is wrong with it; empty: nothing.
  rt::String take(std::string_view line) {
    if (line.starts_with(headBegins)) return takeHead(line);
    const auto row = rt::make<model::Event>("");
    if (!hasHead_ || !statedb::fill(*row, line).empty() || row->id() == 0) return "is no event";
    auto keyed = rt::make<model::Event>(keyOf(*row));
    statedb::fillKnown(*keyed, line);
    rows_.insert_or_assign(keyed->key(), keyed);
    return {};
  }
  bool hasHead() const { return hasHead_; }
  EventsBefore result() {
    EventsBefore all{last_->numbers(), {}, last_->dropped(), last_->lostTo()};
    for (auto& [key, row] : rows_) all.rows.push_back(std::move(row));
    if (!last_->ended()) all.lostTo = lastSeq(all) + gap;
    return all;
  }
  static uint64_t lastSeq(const EventsBefore& events) {
    uint64_t last = events.lostTo;
    for (const auto& row : events.rows) last = std::max(last, row->seq());
    return last;
  }

 private:
  rt::String takeHead(std::string_view line) {
    auto head = rt::make<KeptHead>();
    statedb::fillKnown(*head, line);
    if (head->version() != version) return "is of version " + rt::toText(head->version());
    if (!statedb::fill(*head, line).empty() || head->numbers().empty()) return "is no head";
    if (!head->gone().empty()) rows_.erase(head->gone());
    last_ = std::move(head);
    hasHead_ = true;
    return {};
  }

  bool hasHead_ = false;
  rt::Ptr<KeptHead> last_;
  std::map<rt::String, model::Event::Ptr> rows_;  // by key
};

model::Event::Ptr numberedAnew(const model::Event& row, uint64_t ids, uint64_t seqs) {
  auto anew = rt::make<model::Event>(History::keyOf(row.id() + ids));
  statedb::fillKnown(*anew, statedb::documentOf(row));
  anew->idIs(row.id() + ids);
  anew->seqIs(row.seq() + seqs);
  return anew;
}

}  // namespace

std::optional<EventsBefore> KeptEvents::read(std::string_view text, rt::String& why) {
  Lines lines;
  size_t number = 0;
  for (size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
    ++number;
    const rt::String wrong = lines.take(text.substr(0, end));
    if (!wrong.empty()) {
      why = "line " + rt::toText(number) + " " + wrong;
      return std::nullopt;
    }
    text.remove_prefix(end + 1);
  }
  if (lines.hasHead()) return lines.result();
  why = "it has no head";
  return std::nullopt;
}

void KeptEvents::rowIs(const rt::String& key, const rt::String& doc) {
  rows_.insert_or_assign(key, doc);
  news_.insert(key);
}

void KeptEvents::rowDel(const rt::String& key) {
  rows_.erase(key);
  news_.insert(key);
}

void KeptEvents::droppedIs(uint64_t count, uint64_t seq) {
  dropped_ = count;
  lostTo_ = seq;
}

rt::String KeptEvents::head(const rt::String& gone) const {
  const auto head = rt::make<KeptHead>();
  head->versionIs(version);
  head->numbersIs(numbers_);
  head->droppedIs(dropped_);
  head->lostToIs(lostTo_);
  head->goneIs(gone);
  head->endedIs(hasEnded_);
  return statedb::documentOf(*head) + "\n";
}

KeptEvents::Part KeptEvents::next(bool mustBeWhole) {
  Part part{head({}).str(), false};
  for (const rt::String& key : news_) {
    const auto row = rows_.find(key);
    part.text += (row == rows_.end() ? head(key) : row->second + "\n").str();
  }
  news_.clear();
  part.isWhole = mustBeWhole || bytes_ + part.text.size() > mostBytes;
  if (part.isWhole) {
    part.text = head({}).str();
    for (const auto& [key, doc] : rows_) part.text += (doc + "\n").str();
    bytes_ = 0;
  }
  bytes_ += part.text.size();
  return part;
}

EventsBefore joined(EventsBefore before, std::optional<EventsBefore> kept) {
  if (!kept || (before.numbers == kept->numbers && !before.rows.empty())) return before;
  // Runs are told by when they began in their boot.
  for (const auto& row : kept->rows) {
    row->runIs(0);
    row->nIs(0);
  }
  if (before.rows.empty()) return std::move(*kept);
  uint64_t ids = 0;
  std::set<rt::String> onDisk;
  for (const auto& row : kept->rows) {
    ids = std::max(ids, row->id());
    onDisk.insert(statedb::documentOf(*row));
  }
  const uint64_t seqs = Lines::lastSeq(*kept);
  for (const auto& row : before.rows)
    if (!onDisk.contains(statedb::documentOf(*row)))
      kept->rows.push_back(numberedAnew(*row, ids, seqs));
  kept->dropped += before.dropped;
  if (before.lostTo != 0) kept->lostTo = before.lostTo + seqs;
  return std::move(*kept);
}

}  // namespace host
