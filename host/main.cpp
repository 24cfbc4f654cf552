// vmagentd: runs the agent on the state database of one machine.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

#include "guest/Variables.h"
#include "host/Daemon.h"
#include "host/EndGuests.h"
#include "host/GuestLaunch.h"
#include "host/Plugin.h"
#include "host/base/LineOutput.h"
#include "host/base/Report.h"
#include "host/service/InheritedDescriptors.h"
#include "host/service/Signals.h"
#include "host/service/Supervision.h"
#include "runtime/base/Text.h"
#include "statedb/Error.h"

namespace {

enum ExitStatus {
  endedBySignal = 0,
  failed = 1,
  wrongUsage = 2,
  anotherRuns = 4,
  unusableDatabase = 6,  // until an operator has done something about it
};

host::Environment environment() {
  // NOLINTBEGIN(concurrency-mt-unsafe): there are no threads yet
  return {.stateDir = std::getenv(guest::variable::stateDir),
          .runDir = std::getenv(guest::variable::runDir),
          .trace = std::getenv(guest::variable::trace)};
  // NOLINTEND(concurrency-mt-unsafe)
}

// Tells those who started us; each once it can be told.
std::function<bool()> tellReady(host::LineOutput& standardError) {
  return [&standardError, line = false, manager = false]() mutable {
    line = line || standardError.write("vmagentd: ready\n");
    manager = manager || host::notifyReady();
    return line && manager;
  };
}

host::TraceRoad roadTo(host::LineOutput& standardError) {
  if (host::logsToJournal()) return {host::journalEntry, host::sendToJournal};
  return {host::lineOf, [&](std::string_view line) { return standardError.write(line); }};
}

int fail(const std::exception& error) {
  std::fprintf(stderr, "vmagentd: %s\n", error.what());
  const auto* const database = dynamic_cast<const statedb::Error*>(&error);
  switch (database ? database->trouble() : statedb::Trouble::failed) {
    case statedb::Trouble::locked:
      return anotherRuns;
    case statedb::Trouble::corrupt:
    case statedb::Trouble::newer:
    case statedb::Trouble::foreign:
      return unusableDatabase;
    default:
      return failed;
  }
}

int run(const host::Options& options) {
  host::prepareSignals();
  host::LineOutput standardError(STDERR_FILENO);
  host::TraceLog traces(options.traceLevels, roadTo(standardError));
  try {
    host::GuestLaunch launch(options);
    host::Daemon daemon(options, traces, launch);
    launch.removeLeftover();
    daemon.run(tellReady(standardError));
    return endedBySignal;
  } catch (const std::exception& error) {
    return fail(error);
  }
}

// Finds and loads what a start needs of ours, just as a start does, and does nothing with it.
int check(const host::Options& options) {
  try {
    const rt::String shim = host::shimOf(options);
    if (!shim.empty() && access(shim.charPtr(), X_OK) != 0)
      throw rt::ErrnoException(errno, "the shim " + shim + " cannot be executed");
    (void)host::loadAgent(host::agentModule);
    std::puts(shim.empty() ? "vmagentd: the agent loads"
                           : "vmagentd: the agent loads, and the shim is there");
    return 0;
  } catch (const std::exception& error) {
    return fail(error);
  }
}

// The machine goes down, or the programs are to be removed.
int endAllGuests(const host::Options& options) {
  host::LineOutput standardError(STDERR_FILENO);
  const host::TraceLog traces(options.traceLevels, roadTo(standardError));
  try {
    const auto left = host::endGuests(options);
    for (const host::GuestProcess& guest : left)
      host::report("VM " + guest.vm + ": its guest does not end (process " + rt::toText(guest.pid) +
                   ")");
    return left.empty() ? 0 : failed;
  } catch (const std::exception& error) {
    return fail(error);
  }
}

}  // namespace

int main(int argc, char** argv) {
  // What our starter left open is not meant for guests: a pipe of his that breaks would look to
  // their shims as if we had ended.
  host::keepInheritedDescriptors();
  const std::vector<const char*> words(argv + 1, argv + argc);
  const host::CommandLine line = host::readCommandLine(words, environment());
  switch (line.wish) {
    case host::CommandLine::Wish::run:
      return run(line.options);
    case host::CommandLine::Wish::check:
      return check(line.options);
    case host::CommandLine::Wish::endGuests:
      return endAllGuests(line.options);
    case host::CommandLine::Wish::print:
      std::fputs(line.text.charPtr(), stdout);
      return 0;
    case host::CommandLine::Wish::usageError:
      std::fputs(line.text.charPtr(), stderr);
      return wrongUsage;
  }
}
