// An operator's program: what an operator asks for is written, and read, by a process of his own.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/kernel/Machine.h"
#include "sim/world/Command.h"

namespace statedb {
class StateDb;
class Transaction;
}  // namespace statedb

namespace sim {

// Keeps the database open between two tasks, as a user interface would.
class Operator {
 public:
  Operator();
  Operator(const Operator&) = delete;
  ~Operator();

  // Installs it; to be called once, before the first task.
  void begin(Machine& machine);

  using Task = std::function<void(statedb::StateDb&)>;
  // Does it in the operator's process, and returns when it is done, or its time is over. What it
  // throws is what is returned, in words; empty: all went well.
  std::string run(Task task, Duration time = std::chrono::seconds(60));
  // Does not wait.
  void ask(Task task);

  // vmctl, with its name, over the database that is open; not for what waits for changes.
  CommandEnd vmctl(const std::vector<std::string>& words, Duration time);

  // Rows by "table/key".
  std::string put(const std::string& table, const std::string& key, const std::string& document);
  std::string remove(const std::string& table, const std::string& key);
  std::map<std::string, std::string> rows(const std::vector<std::string>& tables);
  // The same; nothing when they cannot be read.
  std::optional<std::map<std::string, std::string>> readRows(
      const std::vector<std::string>& tables);
  std::optional<std::string> row(const std::string& table, const std::string& key);

  // Its files may be others by now.
  void reopen();

 private:
  int work();

  struct Order {
    Task task;
    bool done = false;
    std::string failure;
  };

  std::shared_ptr<Process> process_;
  std::vector<std::shared_ptr<Order>> waiting_;
  WaitQueue asked_;
  bool reopens_ = false;
};

}  // namespace sim
