// What has happened, for operators: a bounded table of events.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <vector>

#include "model/Event.h"

namespace host {

// Keeps the newest events as rows of the table "event", and merges what comes again and again.
// Owned by the daemon.
//
//   an event                                   | is
//   -------------------------------------------+--------------------------------------------------
//   that a shim told, and whose run and line   | known, and dropped: an earlier daemon has told it
//     are not behind what was told of the VM,  |
//     until the daemon has begun               |
//   with vm, kind, reason and subject in       | that row, with the newest time and text, counted,
//     common with one of the last minute, if   |   under a new seq
//     it is none of config, state and end, and |
//     the VM's state is the same since         |
//   any other                                  | a row of its own
//
// There are `mostRows` at most: the oldest of the VM that has most of them goes first.
class History {
 public:
  static constexpr size_t mostRows = 2'000;
  static constexpr uint64_t mergedWithin = 60'000;  // ms

  struct Sink {
    std::function<void(const rt::String& key, const rt::String& doc)> rowIs;
    std::function<void(const rt::String& key)> rowDel;
    // How many were ever dropped for want of room, and the newest seq among them.
    std::function<void(uint64_t count, uint64_t seq)> droppedIs;
  };

  // Of a row of that id: twelve digits.
  static rt::String keyOf(uint64_t id);

  explicit History(Sink sink) : sink_(std::move(sink)) {}
  History(const History&) = delete;

  // Takes up what an earlier daemon left: its rows, and what it had dropped. Before all else.
  // Others may have written there: what is none of ours is left out, and so is what nobody would
  // keep.
  void rowsAre(const std::vector<model::Event::Ptr>& rows, uint64_t dropped, uint64_t droppedSeq);

  // What shims tell from now on is new, whatever those rows say.
  void daemonHasBegun() { told_.clear(); }

  // Its seq, id, first and count are given here. What is longer than it may be is cut.
  void add(const model::Event::Ptr& event);

 private:
  // What a shim told of last.
  struct Told {
    uint64_t run = 0;
    uint64_t n = 0;
  };
  struct Row {
    rt::String vm;
    uint64_t seq = 0;
  };

  void takeUp(const model::Event& row);
  bool isKnown(const model::Event& event) const;
  void note(const model::Event& event);
  bool merge(const model::Event& event);
  void write(const model::Event& event);
  void makeRoom();

  const Sink sink_;
  uint64_t lastSeq_ = 0;
  uint64_t lastId_ = 0;
  uint64_t dropped_ = 0;
  uint64_t droppedSeq_ = 0;
  std::map<uint64_t, Row> rows_;                            // by id
  std::map<rt::String, std::map<uint64_t, uint64_t>> ids_;  // by VM, and seq
  std::map<rt::String, Told> told_;                         // by VM
  std::map<rt::String, std::set<uint64_t>> endedRuns_;      // by VM: whose end was told
  // Rows that others may merge into, by VM, and what they must have in common.
  std::map<rt::String, std::map<rt::String, model::Event::Ptr>> open_;
};

}  // namespace host
