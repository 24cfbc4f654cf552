// Status, as it goes to the database.
#pragma once

#include <vector>

#include "runtime/loop/Clock.h"
#include "statedb/EntityRows.h"

namespace host {

// Shows collections of records as tables. What cannot be written now is kept, tried again every
// second and reported once.
class StatusFeed final : public rt::StateMachineOf<StatusFeed> {
 public:
  // A collection of the root, under the name of its table.
  struct Source {
    rt::Ptr<const rt::Entity> root;
    const char* table;
  };
  // `tables`: those whose rows are handed in by rowIs().
  StatusFeed(statedb::StateDb& db, const std::vector<Source>& sources,
             const std::vector<rt::String>& tables, rt::Clock::Ptr clock);

  // A row of one of those tables, to be written by the next pass.
  void rowIs(const rt::String& table, const rt::String& key, const rt::String& doc) {
    writer_.rowIs(table, key, doc);
  }
  void rowDel(const rt::String& table, const rt::String& key) { writer_.rowDel(table, key); }

  // Once a pass of the loop: writes what changed, in one transaction.
  void pass();

  static constexpr rt::Seconds retryInterval{1};

  static constexpr std::string_view typeName = "host::StatusFeed";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &StatusFeed::initialized>>;

 private:
  void handleInitialized();
  void handleClock() { waiting_ = false; }

  statedb::RowWriter writer_;
  std::vector<rt::Ptr<statedb::EntityRows>> rows_;
  rt::String trouble_;    // the last that was reported; empty when all is well
  bool waiting_ = false;  // for the next try

  rt::ClockReactor<StatusFeed, &StatusFeed::handleClock> clock_;
};

}  // namespace host
