#include "statedb/RowWriter.h"

#include <algorithm>

#include "runtime/base/Check.h"
#include "statedb/Requests.h"

namespace statedb {

RowWriter::RowWriter(StateDb& db, std::vector<rt::String> tables)
    : db_(db), tables_(std::move(tables)), half_(db.halfOf(tables_.at(0))) {
  for (const rt::String& table : tables_)
    rt::check(db.halfOf(table) == half_, "one half of the database is written");
}

void RowWriter::rowIs(const rt::String& table, const rt::String& key, const rt::String& doc) {
  rt::check(std::find(tables_.begin(), tables_.end(), table) != tables_.end(), "a table of ours");
  if (!fits({table, key, doc})) return rowDel(table, key);
  const Name name(table, key);
  const auto [row, isNew] = rows_.try_emplace(name, doc);
  if (!isNew && row->second == doc) return;
  row->second = doc;
  news_.insert(name);
}

void RowWriter::rowDel(const rt::String& table, const rt::String& key) {
  const Name name(table, key);
  if (rows_.erase(name) > 0) news_.insert(name);
}

void RowWriter::flush() {
  if (!compared_) compare();
  if (news_.empty()) return;
  Transaction transaction;
  for (const Name& name : news_) {
    const auto row = rows_.find(name);
    if (row == rows_.end())
      transaction.del(name.first, name.second);
    else
      transaction.put(name.first, name.second, row->second);
  }
  db_.store(half_).commit(transaction);
  news_.clear();
}

void RowWriter::reopen() {
  db_.close(half_);
  compared_ = false;
}

void RowWriter::compare() {
  std::set<Name> news;
  for (const auto& [name, doc] : rows_) news.insert(name);
  for (const Record& record : db_.store(half_).snapshot(tables_).records) {
    const Name name(record.table, record.key);
    const auto row = rows_.find(name);
    if (row != rows_.end() && row->second == record.doc)
      news.erase(name);
    else
      news.insert(name);
  }
  news_ = std::move(news);
  compared_ = true;
}

}  // namespace statedb
