#include "host/StatusOfBefore.h"

#include "model/StatusRecords.h"
#include "model/Tables.h"
#include "statedb/EntityDocument.h"

namespace host {

StatusOfBefore statusOfBefore(statedb::StateDb& db) {
  StatusOfBefore all;
  const auto before = rt::make<model::DaemonStatus>(model::daemonKey);
  if (const auto record = db.record(model::table::daemon, before->name())) {
    // That of a later version has more.
    statedb::fillKnown(*before, record->doc);
    all.configuration = {before->configStore(), before->configSequence(), before->configHistory()};
    all.events.numbers = before->eventsStore();
    all.events.dropped = before->eventsDropped();
    all.events.lostTo = before->eventsLostTo();
  }
  for (const auto& record : db.snapshot({model::table::vmProcess}).records) {
    const auto process = rt::make<model::VmProcess>(record.key);
    statedb::fillKnown(*process, record.doc);
    all.restartsDone[record.key] = process->restarts();
    all.states[record.key] = {process->actual(),
                              process->since(),
                              {.starts = process->starts(),
                               .ends = model::endCountsFrom(process->ends()),
                               .startedRun = process->startedRun(),
                               .endedRun = process->endedRun()}};
  }
  for (const auto& record : db.snapshot({model::table::interfaceStatus}).records) {
    const auto interface = rt::make<model::InterfaceStatus>(record.key);
    statedb::fillKnown(*interface, record.doc);
    all.interfaces[record.key] = {interface->present(), interface->carrier(), interface->since()};
  }
  for (const auto& record : db.snapshot({model::table::vmCard}).records) {
    const auto card = rt::make<model::VmCard>(record.key);
    statedb::fillKnown(*card, record.doc);
    all.cards[record.key] = {card->link(), card->since()};
  }
  const statedb::Snapshot events = db.snapshot({model::table::event});
  all.store = events.cursor.storeId;
  if (all.events.numbers.empty()) all.events.numbers = all.store;
  for (const auto& record : events.records) {
    const auto event = rt::make<model::Event>(record.key);
    statedb::fillKnown(*event, record.doc);
    if (event->id() != 0) all.events.rows.push_back(event);
  }
  return all;
}

std::set<BridgeEntry> bridgeEntriesOfBefore(statedb::StateDb& db, const rt::String& bridge) {
  std::set<BridgeEntry> entries;
  for (const auto& row : db.snapshot({model::table::fdb}).records) {
    const auto record = rt::make<model::FdbEntry>(row.key);
    const auto entry = bridgeEntryFromKey(row.key);
    if (!entry || !statedb::fill(*record, row.doc).empty() || record->bridge() != bridge) continue;
    entries.insert(*entry);
    entries.insert({entry->mac, 0});
  }
  return entries;
}

}  // namespace host
