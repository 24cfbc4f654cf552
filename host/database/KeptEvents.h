// The table of events, as it is kept on disk.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "model/Event.h"

namespace host {

// What a daemon leaves of events for the next.
struct EventsBefore {
  rt::String numbers;  // whose they are: the id of the store that they began in
  std::vector<model::Event::Ptr> rows;
  uint64_t dropped = 0;
  uint64_t lostTo = 0;
};

// The file "events", which has one JSON object a line: heads, and the rows behind their first.
//
//   {"version":1,"numbers":TEXT,"dropped":N,"lostTo":N,"gone":ID,"ended":BOOL}
//
// is a head: of them the last counts, and ID is a row that is no more. A row is an event's
// document; of those of one id, the last counts. Owned by the daemon; written by a KeptFile.
class KeptEvents {
 public:
  static constexpr const char* fileName = "events";
  // Beyond that it is written anew.
  static constexpr size_t mostBytes = 2 * 1024 * 1024;
  // A row and a head for each of the table's, once more than that.
  static constexpr size_t mostRead = 2 * mostBytes;

  // Takes up what stands in the file: nothing when that is damaged. `why`: what is wrong with it.
  // A last line without its end was being written when the power failed, and is left out. Numbers
  // that a reader may have seen and nobody has any more are given to no other event.
  static std::optional<EventsBefore> read(std::string_view text, rt::String& why);

  void numbersAre(const rt::String& numbers) { numbers_ = numbers; }
  void rowIs(const rt::String& key, const rt::String& doc);
  void rowDel(const rt::String& key);
  void droppedIs(uint64_t count, uint64_t seq);
  // All are told: none comes behind.
  void ended() { hasEnded_ = true; }

  struct Part {
    std::string text;
    bool isWhole;
  };
  // What has changed since the last call; all there is when that is little more.
  Part next(bool mustBeWhole);

 private:
  rt::String head(const rt::String& gone) const;

  rt::String numbers_;
  std::map<rt::String, rt::String> rows_;  // their documents, by key
  std::set<rt::String> news_;              // keys
  uint64_t dropped_ = 0;
  uint64_t lostTo_ = 0;
  bool hasEnded_ = false;
  size_t bytes_ = 0;  // in the file
};

// Puts what an earlier daemon has left in the database, `before`, behind what was `kept` on disk:
// the same numbers go on, so that who has read up to one reads on from there. Pure.
//
//   before           | kept   | what goes on
//   -----------------+--------+-------------------------------------------------------------
//   any              | none   | before
//   none             | any    | kept: the machine was booted, and no run goes on
//   of kept's numbers| any    | before, which is what is on disk, and later
//   of others        | any    | kept, and before's rows behind it under numbers of kept's, but for
//                    |        | those that are on disk: a daemon that kept none had taken them up
EventsBefore joined(EventsBefore before, std::optional<EventsBefore> kept);

}  // namespace host
