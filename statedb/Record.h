// What the state database holds, and what it tells of.
#pragma once

#include <compare>
#include <cstdint>
#include <vector>

#include "runtime/base/String.h"

namespace statedb {

// In bytes. Whoever reads a record holds it in memory, and shows its name in a line.
inline constexpr size_t longestName = 255;
inline constexpr size_t longestDocument = 1024 * 1024;

// A JSON text of any kind under a key in a table. Names, of tables and keys, are not empty and hold
// no NUL byte; the database gives them no meaning.
struct Record {
  rt::String table;
  rt::String key;
  rt::String doc;
  // Grows with every change of the record and is never used again, also not after the record was
  // removed and made anew. Comparable for equality only; 0 stands for "no such record".
  uint64_t revision = 0;
  // The revision that it had when it was made: so a record that was removed and made anew is known
  // for another one, though nobody looked in between.
  uint64_t created = 0;

  friend bool operator==(const Record&, const Record&) = default;
};

// Which record of its name one is, for good: where it was made.
struct Origin {
  // A store has one from its making on, and so do its copies, which go on by themselves.
  rt::String history;
  uint64_t created = 0;  // the record's

  friend bool operator==(const Origin&, const Origin&) = default;
};

// A moment in a store's history. A store that was made anew, or replaced by a copy, has another id.
struct Cursor {
  rt::String storeId;
  uint64_t sequence = 0;  // grows with every change, not always by one
  rt::String history;     // as in Origin

  friend bool operator==(const Cursor&, const Cursor&) = default;
};

// Some tables as they were at the cursor, in order of table and key.
struct Snapshot {
  std::vector<Record> records;
  Cursor cursor;
};

enum class Op : uint8_t { put, del };

// How a change is known.
enum class Proof : uint8_t {
  history,     // it happened in the store's history
  comparison,  // two stores differ: nobody need have removed what only the first has
};

// Who made a change, as he says, in 64 characters at most: nothing of it is proof, not its time
// either. What another program than ours has written has a time only.
struct Author {
  rt::String who;   // the name of a user
  rt::String via;   // the program, and its verb
  uint64_t at = 0;  // ms since 1970; 0: nobody knows
};

// What became of a record. Of a removed one, only table and key are set.
struct Change {
  Op op = Op::put;
  Record record;
  Proof proof = Proof::history;  // a store tells no other
  Author author{};               // of the last change

  friend bool operator==(const Change& a, const Change& b) {
    return a.op == b.op && a.record == b.record && a.proof == b.proof;
  }
};

enum class Resume : uint8_t {
  resumed,     // `changes` is all there was
  trimmed,     // the log no longer reaches back to the cursor: take a snapshot and compare
  otherStore,  // the cursor is of another store, or of its future: likewise
};

// What happened between two moments, in all tables of a store. Coalesced: each record is named
// once, as it is at `cursor`, in order of its last change; so one that came and went is a `del` of
// a record never heard of, and one changed and changed back is a `put` of what was known. Never
// part of a transaction. A snapshot with the changes since applied is the snapshot at `cursor`.
struct Changes {
  Resume resume = Resume::resumed;
  std::vector<Change> changes;
  Cursor cursor;  // to go on from; the one asked with unless `resumed`
};

}  // namespace statedb
