#include "ctl/verbs/WatchVerbs.h"

#include <unistd.h>

#include <map>
#include <set>

#include "ctl/line/Json.h"
#include "ctl/view/VmView.h"
#include "model/Tables.h"
#include "runtime/base/Descriptor.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

// One half of the database, followed from its construction on.
class Follower {
 public:
  // `anyTable`: one of that half.
  Follower(statedb::StateDb& db, rt::String anyTable)
      : store_(db.store(anyTable)),
        anyTable_(std::move(anyTable)),
        bell_(store_.wakeUp()),
        cursor_(store_.snapshot({anyTable_}).cursor) {}
  Follower(const Follower&) = delete;

  int bell() const { return bell_.number(); }
  const statedb::Cursor& cursor() const { return cursor_; }
  // Adds the VMs of which something may have changed; false: it may be any.
  bool take(std::set<rt::String>& names) {
    const statedb::Changes changes = store_.changes(cursor_);
    if (changes.resume != statedb::Resume::resumed) {
      cursor_ = store_.snapshot({anyTable_}).cursor;
      return false;
    }
    cursor_ = changes.cursor;
    for (const statedb::Change& change : changes.changes) {
      const statedb::Record& record = change.record;
      if (model::isOfVms(record.table)) names.insert(record.key);
      if (record.table == model::table::vmCard) names.insert(model::vmOfCard(record.key.str()));
    }
    return true;
  }

 private:
  statedb::Store& store_;
  const rt::String anyTable_;
  const rt::Descriptor bell_;
  statedb::Cursor cursor_;
};

rt::String textOf(const std::vector<Cell>& cells) {
  rt::String text;
  for (const Cell& cell : cells) (text += cell.text) += '\n';
  return text;
}

// Prints each VM when it is not as it was printed last.
class Watch {
 public:
  explicit Watch(Context& context)
      : context_(context),
        isJson_(context.format() == Format::json),
        table_(vmTable(context.format())) {}

  // The moment of the status that is shown from now on.
  void momentIs(const statedb::Cursor& moment) { at_ = moment; }
  void all() {
    std::set<rt::String> gone;
    for (const auto& [name, json] : printed_) gone.insert(name);
    for (const VmRow& row : allVms(context_)) {
      gone.erase(row.name);
      put(row);
    }
    for (const rt::String& name : gone) del(name);
    flush();
  }
  void some(const std::set<rt::String>& names) {
    for (const rt::String& name : names) {
      const VmRow row = vmNamed(context_, name);
      if (row.exists() || row.isUnknown() || row.isLeaving())
        put(row);
      else
        del(name);
    }
    flush();
  }
  void synced() { say("synced"); }
  // It goes on, though there was nothing to show.
  void beat() { say("beat"); }

 private:
  void say(const char* op) {
    if (isJson_) context_.world().out << head() << R"("op":")" << op << "\"}\n";
    flush();
  }
  void put(const VmRow& row) {
    const Telling telling = tellingFor(context_, false);
    // That time passes is no change.
    const Telling always{.isNarrow = telling.isNarrow};
    const rt::String text =
        isJson_ ? "{" + vmJson(row) + "}" : textOf(vmCells(row, context_.format(), always));
    rt::String& last = printed_[row.name];
    if (last == text) return;
    last = text;
    if (isJson_)
      line("put", text);
    else
      table_.row(vmCells(row, context_.format(), telling));
  }
  void del(const rt::String& name) {
    if (printed_.erase(name) == 0) return;
    if (isJson_)
      line("delete", R"({"name":)" + quoted(name) + "}");
    else
      table_.row(goneCells(name, context_.format()));
  }
  void line(const char* op, const rt::String& vm) {
    context_.world().out << head() << R"("op":")" << op << R"(","vm":)" << onTerminal(vm) << "}\n";
  }
  // `seq`: of the status, at that moment or before.
  rt::String head() const {
    return jsonHead(!context_.daemonRuns()) + R"("at":)" +
           rt::toText(context_.world().timeOfDay()) + R"(,"store":)" + quoted(at_.storeId) +
           R"(,"seq":)" + rt::toText(at_.sequence) + ",";
  }
  void flush() {
    if (!isJson_) context_.world().out << table_.takeText(context_.style());
    context_.world().out.flush();
  }

  Context& context_;
  const bool isJson_;
  Table table_;
  std::map<rt::String, rt::String> printed_;
  statedb::Cursor at_;
};

}  // namespace

Exit watchVms(Context& context, const Arguments& arguments) {
  const auto beat = arguments.beat();
  statedb::StateDb& db = context.db();
  Follower config(db, model::table::vmConfig);
  Follower status(db, model::table::vmStatus);
  const int bells[] = {config.bell(), status.bell()};
  bool wasStale = complainOfStaleness(context);
  Watch watch(context);
  watch.momentIs(status.cursor());
  watch.all();
  watch.synced();
  while (context.world().out) {
    const rt::Seconds before = context.world().now();
    context.world().waitWhileRead(bells, beat.value_or(rt::Seconds::infinity()));
    if (!context.world().out) break;
    if (!wasStale) wasStale = complainOfStaleness(context);
    wasStale = wasStale && !context.daemonRuns();
    std::set<rt::String> names;
    const bool knowsConfig = config.take(names);
    const bool knowsStatus = status.take(names);
    watch.momentIs(status.cursor());
    if (knowsConfig && knowsStatus)
      watch.some(names);
    else
      watch.all();
    if (beat && context.world().now() - before >= *beat) watch.beat();
  }
  return Exit::failed;
}

}  // namespace ctl
