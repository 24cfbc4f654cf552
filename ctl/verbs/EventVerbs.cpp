#include "ctl/verbs/EventVerbs.h"

#include <unistd.h>

#include <algorithm>
#include <map>

#include "ctl/line/Json.h"
#include "ctl/line/Moments.h"
#include "ctl/view/EventView.h"
#include "ctl/view/VmRows.h"
#include "model/Tables.h"
#include "runtime/base/Descriptor.h"
#include "runtime/base/Text.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

// A row that goes on growing is shown again so often at most.
constexpr rt::Seconds pauseOfARow(10);

struct Wish {
  rt::String vm;       // empty: all
  uint64_t since = 0;  // seconds since 1970
  std::optional<uint64_t> after;
  rt::String store;            // that `after` is of; empty: this one
  std::optional<size_t> tail;  // so many at first; nothing: all
};

// "SEQ" or "STORE:SEQ".
void takeAfter(const rt::String& text, Wish& wish) {
  const size_t colon = text.str().find(':');
  const bool hasStore = colon != std::string::npos;
  if (hasStore) wish.store = text.substr(0, colon);
  wish.after = rt::fromText<uint64_t>(hasStore ? rt::String(text.str().substr(colon + 1)) : text);
  if (!wish.after || (hasStore && wish.store.empty()))
    throw Refusal(Exit::usage,
                  "--after: '" + text + "' is refused: must be the seq of an event, or STORE:SEQ");
}

// When the machine was booted, in seconds since 1970; 0: nobody says.
uint64_t bootedAt(const Machine& machine) {
  const std::string text = machine.text("/proc/stat").value_or("").str();
  constexpr std::string_view mark = "\nbtime ";
  const size_t at = text.find(mark);
  if (at == std::string::npos) return 0;
  const size_t begin = at + mark.size();
  return rt::fromText<uint64_t>(rt::String(text.substr(begin, text.find('\n', begin) - begin)))
      .value_or(0);
}

Wish wishOf(Context& context, const Arguments& arguments) {
  Wish wish;
  if (const auto since = arguments.value("since"))
    wish.since = momentOf(*since, context.world().timeOfDay(), bootedAt(context.world().machine));
  if (const auto after = arguments.value("after")) takeAfter(*after, wish);
  wish.tail = arguments.tail();
  return wish;
}

model::Event::Ptr eventOf(const statedb::Record& record) {
  auto event = rt::make<model::Event>(record.key);
  statedb::fillKnown(*event, record.doc);
  return event;
}

class Events {
 public:
  Events(Context& context, Wish wish)
      : context_(context),
        wish_(std::move(wish)),
        isJson_(context.format() == Format::json),
        table_(eventTable(wish_.vm.empty())) {}

  // All that there is of what is wished for; how many rows that were.
  size_t all() {
    const statedb::Snapshot now = context_.status({model::table::event, model::table::daemon});
    cursor_ = now.cursor;
    const auto daemon = rt::make<model::DaemonStatus>("");
    std::vector<model::Event::Ptr> events;
    for (const statedb::Record& record : now.records) {
      if (record.table == model::table::daemon)
        statedb::fillKnown(*daemon, record.doc);
      else if (auto event = eventOf(record); isWished(*event))
        events.push_back(std::move(event));
      if (record.table == model::table::event) newest_ = std::max(newest_, eventOf(record)->seq());
    }
    store_ = daemon->eventsStore().empty() ? now.cursor.storeId : daemon->eventsStore();
    tellLoss(*daemon);
    std::sort(events.begin(), events.end(),
              [](const auto& a, const auto& b) { return a->seq() < b->seq(); });
    if (wish_.after && !isLost_)
      std::erase_if(events, [&](const auto& event) { return event->seq() <= *wish_.after; });
    if (wish_.tail && events.size() > *wish_.tail)
      events.erase(events.begin(), events.end() - static_cast<std::ptrdiff_t>(*wish_.tail));
    for (const model::Event::Ptr& event : events) show(*event);
    flush();
    if (!isJson_ && !wish_.after && !wish_.tail && daemon->eventsDropped() > 0)
      context_.tell(rt::toText(daemon->eventsDropped()) + " older events are not kept");
    return events.size();
  }
  void synced() {
    if (!isJson_) return;
    head() << R"("op":"synced"})" << '\n';
    flush();
  }
  // What has come since; all of it where the database is another.
  void some() {
    const statedb::Changes changes = context_.db().store(statedb::Half::status).changes(*cursor_);
    if (changes.resume != statedb::Resume::resumed) {
      wish_.after = newest_;
      wish_.tail.reset();
      wish_.store = store_;
      isLost_ = false;
      all();
      return;
    }
    cursor_ = changes.cursor;
    for (const statedb::Change& change : changes.changes) {
      const bool isEvent =
          change.record.table == model::table::event && change.op == statedb::Op::put;
      if (!isEvent) continue;
      const auto event = eventOf(change.record);
      if (event->seq() <= newest_) continue;  // written anew by another daemon
      newest_ = event->seq();
      if (isWished(*event) && isDue(*event)) show(*event);
    }
    flush();
  }

 private:
  bool isWished(const model::Event& event) const {
    return (wish_.vm.empty() || event.vm() == wish_.vm) && event.at() / 1000 >= wish_.since;
  }
  bool isDue(const model::Event& event) {
    const rt::Seconds now = context_.world().now();
    const auto [shown, isNew] = shown_.try_emplace(event.id(), now);
    if (!isNew && now - shown->second < pauseOfARow) return false;
    shown->second = now;
    std::erase_if(shown_, [&](const auto& each) { return now - each.second > pauseOfARow; });
    shown_[event.id()] = now;
    return true;
  }
  // What is after that is not all there, or is nothing of this table's: then all there is is shown.
  void tellLoss(const model::DaemonStatus& daemon) {
    isLost_ = false;
    if (!wish_.after) return;
    const uint64_t after = *wish_.after;
    if (!wish_.store.empty() && wish_.store != store_)
      return tellLost("other-store", "'" + wish_.store +
                                         "' is another database's number, and this one's are of '" +
                                         store_ + "': these are all events that are");
    if (after > newest_)
      return tellLost("not-yet", "no event has number " + rt::toText(after) +
                                     " yet: the newest is " + rt::toText(newest_) +
                                     ", and these are all that are");
    if (daemon.eventsLostTo() > after)
      tellLost("not-kept",
               "events behind " + rt::toText(after) + " are not all kept: these are all that are",
               daemon.eventsLostTo());
  }
  // `to`: the newest that is not kept; nothing: that is not the matter.
  void tellLost(const char* reason, const rt::String& text, std::optional<uint64_t> to = {}) {
    isLost_ = true;
    if (!isJson_) return context_.tell(text);
    head() << R"("op":"lost","reason":")" << reason << R"(","from":)"
           << (to ? rt::toText(*wish_.after + 1) : rt::String("null")) << R"(,"to":)"
           << (to ? rt::toText(*to) : rt::String("null")) << "}\n";
  }
  void show(const model::Event& event) {
    if (isJson_)
      head() << R"("op":"event","seq":)" << event.seq() << R"(,"event":)"
             << onTerminal(eventJson(event)) << "}\n";
    else
      table_.row(eventCells(event, wish_.vm.empty(), context_.world().timeOfDay()));
  }
  std::ostream& head() {
    return context_.world().out << R"({"version":1,"now":)" << context_.world().timeOfDay()
                                << R"(,"store":)" << quoted(store_) << ",";
  }
  void flush() {
    if (!isJson_) context_.world().out << table_.takeText(context_.style());
    context_.world().out.flush();
  }

  Context& context_;
  Wish wish_;
  const bool isJson_;
  Table table_;
  rt::String store_;
  std::optional<statedb::Cursor> cursor_;
  uint64_t newest_ = 0;
  bool isLost_ = false;
  std::map<uint64_t, rt::Seconds> shown_;  // by row
};

Exit run(Context& context, const Arguments& arguments, Wish wish) {
  // Who may not read at all is told that alone.
  if (!arguments.has("follow")) {
    Events events(context, std::move(wish));
    (void)events.all();
    complainOfStaleness(context);
    return Exit::done;
  }
  const rt::Descriptor bell(context.db().store(statedb::Half::status).wakeUp());
  const int bells[] = {bell.number()};
  Events events(context, std::move(wish));
  (void)events.all();
  complainOfStaleness(context);
  events.synced();
  while (context.world().out) {
    context.world().waitWhileRead(bells, rt::Seconds::infinity());
    if (context.world().out) events.some();
  }
  return Exit::failed;
}

}  // namespace

Exit showEvents(Context& context, const Arguments& arguments) {
  return run(context, arguments, wishOf(context, arguments));
}

Exit showHistory(Context& context, const Arguments& arguments) {
  Wish wish = wishOf(context, arguments);
  wish.vm = arguments.words().front();
  // One that was removed has a history, too.
  const VmRow row = vmNamed(context, wish.vm);
  const auto rows = context.status({model::table::event}).records;
  const bool isKnown = row.exists() || row.isUnknown() || row.isLeaving() ||
                       std::any_of(rows.begin(), rows.end(), [&](const statedb::Record& record) {
                         return eventOf(record)->vm() == wish.vm;
                       });
  if (!isKnown) (void)requiredVm(context, wish.vm);
  return run(context, arguments, std::move(wish));
}

}  // namespace ctl
