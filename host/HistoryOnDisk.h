// The table of events, kept over a reboot.
#pragma once

#include "host/base/KeptFile.h"
#include "host/database/KeptEvents.h"

namespace host {

// Reads what is on disk, and writes there what the table has. Owned by the daemon.
class HistoryOnDisk {
 public:
  // `directory` outlives it.
  HistoryOnDisk(const KeptDirectory& directory, const rt::Clock::Ptr& clock);
  HistoryOnDisk(const HistoryOnDisk&) = delete;

  // What goes on, of what an earlier daemon left on disk and in the database. To be called first. A
  // file that is damaged is put aside.
  EventsBefore takeUp(EventsBefore before);

  void rowIs(const rt::String& key, const rt::String& doc);
  void rowDel(const rt::String& key);
  void droppedIs(uint64_t count, uint64_t seq);
  // No event comes any more.
  void finish(rt::Seconds atMost);

 private:
  const KeptDirectory& directory_;
  KeptEvents events_;
  const rt::Ptr<KeptFile> file_;
};

}  // namespace host
