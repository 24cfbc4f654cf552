#include "ctl/line/Context.h"

#include <cerrno>

#include "ctl/line/Json.h"

namespace ctl {

namespace {

constexpr int mostAttempts = 5;

// What `read` reads; nothing while the status is not set up.
template <class Result>
Result unlessMissing(const std::function<Result()>& read) {
  try {
    return read();
  } catch (const statedb::Error& error) {
    if (error.trouble() != statedb::Trouble::missing) throw;
  }
  return {};
}

}  // namespace

Context::Context(World& world, Directories directories, Format format)
    : world_(world),
      directories_(std::move(directories)),
      format_(format),
      db_(world.openDb(directories_)) {}

void Context::complain(const Refusal& refusal) {
  for (const rt::String& sentence : refusal.sentences()) complain(sentence);
}

const model::ImageFacts& Context::imageFacts(const rt::String& path) {
  const auto [found, isNew] = images_.try_emplace(path);
  if (!isNew) return found->second;
  if (looked_ >= model::imagePatience) return found->second = model::unreadable(ETIMEDOUT);
  const rt::Seconds begin = world_.now();
  found->second = world_.imageFacts(path);
  looked_ = looked_ + (world_.now() - begin);
  return found->second;
}

void Context::printJson(const rt::String& compact) { world_.out << indented(compact); }

void Context::print(const Table& table) { world_.out << table.text(style()); }

TableStyle Context::style() const {
  TableStyle style;
  if (world_.outIsTerminal) style.columns = world_.columns;
  style.colours = world_.outIsTerminal && world_.environment("NO_COLOR").value_or("").empty();
  return style;
}

statedb::Snapshot Context::status(const std::vector<rt::String>& tables) {
  return unlessMissing<statedb::Snapshot>([&] { return db_.snapshot(tables); });
}

std::optional<statedb::Record> Context::status(const rt::String& table, const rt::String& key) {
  return unlessMissing<std::optional<statedb::Record>>([&] { return db_.record(table, key); });
}

rt::String jsonHead(bool isStale) {
  return isStale ? R"({"version":1,"stale":true,)" : R"({"version":1,)";
}

Exit forEach(Context& context, const std::vector<rt::String>& names,
             const std::function<void(const rt::String& name)>& action) {
  Exit exit = Exit::done;
  for (const rt::String& name : names) {
    try {
      action(name);
    } catch (const Refusal& refusal) {
      context.complain(refusal);
      if (exit == Exit::done) exit = refusal.exit();
    }
  }
  return exit;
}

void retried(const std::function<void()>& attempt) {
  for (int i = 1;; ++i) {
    try {
      return attempt();
    } catch (const statedb::ConflictError& conflict) {
      if (i == mostAttempts) throw Refusal(Exit::conflict, conflict.what());
    }
  }
}

}  // namespace ctl
