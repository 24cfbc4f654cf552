// What every verb works with.
#pragma once

#include <map>

#include "ctl/line/Arguments.h"
#include "ctl/line/Exit.h"
#include "ctl/line/Table.h"
#include "ctl/machine/World.h"

namespace ctl {

enum class Format : uint8_t { table, wide, json, name };

class Context {
 public:
  Context(World& world, Directories directories, Format format);

  World& world() { return world_; }
  statedb::StateDb& db() { return db_; }
  Format format() const { return format_; }
  const Directories& directories() const { return directories_; }

  // A daemon keeps the status up to date. Looked up each time.
  bool daemonRuns() const { return world_.ownerIsAlive(directories_.run); }

  // A whole line for the operator: "web1: enabled", or, of trouble, "vmctl: web1: ...".
  void tell(const rt::String& line) { world_.err << visible(line) + "\n"; }
  void complain(const rt::String& line) { tell("vmctl: " + line); }
  void complain(const Refusal& refusal);

  // What is at the path: looked at once, and all such looks together take five seconds at most.
  const model::ImageFacts& imageFacts(const rt::String& path);

  // Writes one document over several lines.
  void printJson(const rt::String& compact);
  void print(const Table& table);
  TableStyle style() const;

  // A snapshot of status tables; an empty one when the daemon has not made them since the machine
  // was started.
  statedb::Snapshot status(const std::vector<rt::String>& tables);
  std::optional<statedb::Record> status(const rt::String& table, const rt::String& key);

 private:
  World& world_;
  const Directories directories_;
  const Format format_;
  statedb::StateDb db_;
  std::map<rt::String, model::ImageFacts> images_;  // by path
  rt::Seconds looked_;                              // for so long
};

// `{"version":1,` and, when no daemon keeps the status up to date, `"stale":true,`.
rt::String jsonHead(bool isStale);

// Does it for each name; one that is refused is complained of, and keeps none of the others from
// being done. The first refusal's exit.
Exit forEach(Context& context, const std::vector<rt::String>& names,
             const std::function<void(const rt::String& name)>& action);

// Tries again when others wrote what was read, a few times; then refuses with Exit::conflict.
void retried(const std::function<void()>& attempt);

}  // namespace ctl
