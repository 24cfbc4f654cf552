#include "sim/world/Operator.h"

#include <sys/wait.h>

#include "model/Tables.h"
#include "runtime/base/Exception.h"
#include "sim/kernel/InodeFile.h"
#include "sim/world/Installation.h"
#include "sim/world/LastingVmctl.h"
#include "statedb/sqlite/SqliteDb.h"

namespace sim {

namespace {

constexpr const char* path = "/usr/bin/operator";

std::vector<rt::String> textsOf(const std::vector<std::string>& texts) {
  return {texts.begin(), texts.end()};
}

std::unique_ptr<statedb::StateDb> openDatabase() {
  return std::make_unique<statedb::StateDb>(
      statedb::sqlite::openDb({.stateDir = stateDirectory,
                               .runDir = runDirectory,
                               .isStatus = model::isStatus,
                               .role = statedb::sqlite::Role::client}));
}

}  // namespace

Operator::Operator() = default;
Operator::~Operator() = default;

void Operator::begin(Machine& machine) {
  machine.files.fileAt(path, "program", 0755)->program = [this](int, char**) { return work(); };
  process_ =
      machine.processes.sharedOf(machine.processes.spawn(path, {"operator"}, usualEnvironment()));
}

int Operator::work() {
  std::unique_ptr<statedb::StateDb> database;
  while (true) {
    if (waiting_.empty()) {
      machine().scheduler.sleep({&asked_}, never, "operator");
      continue;
    }
    const auto order = waiting_.front();
    waiting_.erase(waiting_.begin());
    if (std::exchange(reopens_, false)) database.reset();
    try {
      if (!database) database = openDatabase();
      order->task(*database);
    } catch (const statedb::Error& error) {
      order->failure = error.what();
      database.reset();
    } catch (const std::exception& error) {
      order->failure = error.what();
    }
    order->done = true;
  }
}

void Operator::ask(Task task) {
  waiting_.push_back(std::make_shared<Order>(Order{std::move(task), false, {}}));
  asked_.wake();
}

std::string Operator::run(Task task, Duration time) {
  ask(std::move(task));
  const auto order = waiting_.back();
  machine().scheduler.runUntil([&] { return order->done; }, machine().now() + time);
  return order->done ? order->failure : "it takes too long";
}

CommandEnd Operator::vmctl(const std::vector<std::string>& words, Duration time) {
  // Not on the stack: an operator who waits too long is left with it.
  const auto said = std::make_shared<CommandWords>();
  CommandEnd end;
  end.began = machine().now();
  const std::string failure = run(
      [said, words](statedb::StateDb& database) {
        *said = runVmctl({words.begin() + 1, words.end()}, database);
      },
      time);
  if (said->hasFailed) reopen();
  end.inTime = failure.empty();
  end.waitStatus = W_EXITCODE(said->status, 0);
  end.output = said->output;
  return end;
}

std::string Operator::put(const std::string& table, const std::string& key,
                          const std::string& document) {
  return run([&](statedb::StateDb& database) {
    statedb::Transaction transaction;
    transaction.put(rt::String(table), rt::String(key), rt::String(document));
    database.commit(transaction);
  });
}

std::string Operator::remove(const std::string& table, const std::string& key) {
  return run([&](statedb::StateDb& database) {
    statedb::Transaction transaction;
    transaction.del(rt::String(table), rt::String(key));
    database.commit(transaction);
  });
}

std::map<std::string, std::string> Operator::rows(const std::vector<std::string>& tables) {
  return readRows(tables).value_or(std::map<std::string, std::string>());
}

std::optional<std::map<std::string, std::string>> Operator::readRows(
    const std::vector<std::string>& tables) {
  std::map<std::string, std::string> found;
  const std::string failure = run([&](statedb::StateDb& database) {
    for (const auto& record : database.snapshot(textsOf(tables)).records)
      found[record.table.str() + "/" + record.key.str()] = record.doc.str();
  });
  if (!failure.empty()) return std::nullopt;
  return found;
}

std::optional<std::string> Operator::row(const std::string& table, const std::string& key) {
  std::optional<std::string> found;
  run([&](statedb::StateDb& database) {
    if (const auto record = database.record(rt::String(table), rt::String(key)))
      found = record->doc.str();
  });
  return found;
}

void Operator::reopen() { reopens_ = true; }

}  // namespace sim
