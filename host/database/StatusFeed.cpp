#include "host/database/StatusFeed.h"

#include "host/base/Report.h"

namespace host {

namespace {

std::vector<rt::String> tablesOf(const std::vector<StatusFeed::Source>& sources,
                                 std::vector<rt::String> tables) {
  for (const auto& source : sources) tables.emplace_back(source.table);
  return tables;
}

}  // namespace

StatusFeed::StatusFeed(statedb::StateDb& db, const std::vector<Source>& sources,
                       const std::vector<rt::String>& tables, rt::Clock::Ptr clock)
    : writer_(db, tablesOf(sources, tables)), clock_(*this, std::move(clock)) {
  for (const auto& [root, table] : sources)
    rows_.push_back(rt::make<statedb::EntityRows>(root, table, table));
  handleInitialized();
}

void StatusFeed::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
}

void StatusFeed::pass() {
  for (const auto& rows : rows_) rows->update(writer_);
  if (waiting_ || !writer_.hasNews()) return;
  try {
    writer_.flush();
    if (!trouble_.empty()) report("status: written again");
    trouble_ = {};
  } catch (const statedb::Error& error) {
    if (trouble_ != error.what()) report(rt::String("status: ") + error.what());
    trouble_ = error.what();
    if (error.trouble() != statedb::Trouble::locked) writer_.reopen();
    waiting_ = true;
    clock_.timeMinIs(clock_.notifier()->now() + retryInterval);
  }
}

}  // namespace host
