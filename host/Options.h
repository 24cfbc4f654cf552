// The daemon's command line.
#pragma once

#include <optional>
#include <span>

#include "runtime/base/String.h"
#include "runtime/base/Trace.h"

namespace host {

struct Options {
  rt::String stateDir = "/var/lib/vmagent";
  rt::String runDir = "/run/vmagent";
  rt::TraceLevels traceLevels = rt::TraceHandle::defaultLevels;
};

// What the command line asks for: to run, or to print a text and end.
struct CommandLine {
  enum class Wish : uint8_t { run, print, usageError };
  Wish wish = Wish::run;
  Options options;
  rt::String text;  // to print: on standard output, or on standard error for an error
};

// Pure. `words` without the program's name; an environment's value that is null is not set.
struct Environment {
  const char* stateDir = nullptr;  // VMAGENT_STATE_DIR
  const char* runDir = nullptr;    // VMAGENT_RUN_DIR
  const char* trace = nullptr;     // VMAGENT_TRACE
};
CommandLine readCommandLine(std::span<const char* const> words, const Environment& environment);

}  // namespace host
