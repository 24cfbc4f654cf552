#include "statedb/Requests.h"

#include <set>
#include <string_view>
#include <tuple>

#include "runtime/base/Text.h"

namespace statedb {

namespace {

rt::String nameOf(const rt::String& table, const rt::String& key) {
  return "record '" + key + "' of table '" + table + "'";
}

const char* nameOf(Half half) { return half == Half::config ? "configuration" : "status"; }

bool isName(std::string_view text) {
  return !text.empty() && text.find('\0') == std::string_view::npos;
}

void requireTableName(const rt::String& table) {
  if (!isName(table))
    throw Error(Trouble::invalid, "a table's name must not be empty or hold a NUL byte");
}

std::vector<rt::String> tablesOf(const Transaction& transaction) {
  std::vector<rt::String> tables;
  for (const auto& guard : transaction.guards()) tables.push_back(guard.table);
  for (const auto& write : transaction.writes()) tables.push_back(write.record.table);
  return tables;
}

rt::String sizeOf(std::string_view text, size_t most) {
  return " has " + rt::toText(text.size()) + " bytes: it must have at most " + rt::toText(most);
}

// What is longer was not written by us, or can be removed.
Error tooLong(const Record& record) {
  for (const rt::String* const name : {&record.table, &record.key})
    if (name->size() > longestName)
      return {Trouble::invalid,
              "the name '" + name->substr(0, 32) + "...'" + sizeOf(*name, longestName)};
  return {Trouble::invalid, "the document for " + nameOf(record.table, record.key) +
                                sizeOf(record.doc, longestDocument)};
}

}  // namespace

bool fits(const Record& record) {
  return record.table.size() <= longestName && record.key.size() <= longestName &&
         record.doc.size() <= longestDocument;
}

void requireSoundName(const rt::String& table, const rt::String& key) {
  requireTableName(table);
  if (!isName(key))
    throw Error(Trouble::invalid,
                "a key of table '" + table + "' must not be empty or hold a NUL byte");
}

void requireTables(const std::vector<rt::String>& tables, Half half, IsStatus isStatus) {
  for (const rt::String& table : tables) {
    requireTableName(table);
    if (isStatus && halfOf(std::string_view(table), isStatus) != half)
      throw Error(Trouble::invalid, "table '" + table + "' is none of the " +
                                        rt::String(nameOf(half)) + " tables: ask the other store");
  }
}

void requireSound(const Transaction& transaction, Half half, IsStatus isStatus) {
  for (const auto& guard : transaction.guards()) requireSoundName(guard.table, guard.key);
  std::set<std::tuple<std::string_view, std::string_view>> written;
  for (const Change& write : transaction.writes()) {
    const Record& record = write.record;
    requireSoundName(record.table, record.key);
    if (write.op == Op::put && !fits(record)) throw tooLong(record);
    if (!written.emplace(record.table, record.key).second)
      throw Error(Trouble::invalid, nameOf(record.table, record.key) +
                                        " is written twice in one transaction: write it once");
  }
  requireTables(tablesOf(transaction), half, isStatus);
}

Half halfOf(std::string_view table, IsStatus isStatus) {
  return isStatus(table) ? Half::status : Half::config;
}

Half halfOf(const std::vector<rt::String>& tables, IsStatus isStatus) {
  if (tables.empty()) throw Error(Trouble::invalid, "a request must name a table");
  const Half half = halfOf(std::string_view(tables.front()), isStatus);
  for (const rt::String& table : tables) {
    if (halfOf(std::string_view(table), isStatus) != half)
      throw Error(Trouble::invalid, "tables '" + tables.front() + "' and '" + table +
                                        "' are of different stores: make two requests");
  }
  return half;
}

Half halfOf(const Transaction& transaction, IsStatus isStatus) {
  return halfOf(tablesOf(transaction), isStatus);
}

Error notJson(const rt::String& table, const rt::String& key) {
  return {Trouble::invalid,
          "the document for " + nameOf(table, key) + " is not JSON: nothing was written"};
}

ConflictError conflict(const Transaction::Guard& guard, uint64_t found) {
  const char* how = found == 0 ? " was removed" : guard.revision == 0 ? " exists" : " was changed";
  return {guard.table, guard.key,
          nameOf(guard.table, guard.key) + how +
              " meanwhile: nothing was written; look at it and try again"};
}

}  // namespace statedb
