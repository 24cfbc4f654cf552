// What vmctl asks of the machine it runs on. A test answers instead.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <span>

#include "ctl/machine/Archive.h"
#include "ctl/machine/ConsoleSession.h"
#include "ctl/machine/EditedFile.h"
#include "ctl/machine/Machine.h"
#include "ctl/machine/NewFile.h"
#include "ctl/machine/Screen.h"
#include "ctl/machine/ShimCall.h"
#include "model/DiskImage.h"
#include "model/VmConfigCheck.h"
#include "runtime/base/Seconds.h"
#include "statedb/StateDb.h"

namespace ctl {

struct Directories {
  rt::String state;
  rt::String run;
};

struct World {
  std::function<statedb::StateDb(const Directories&)> openDb;
  // Whether a daemon serves that run directory now.
  std::function<bool(const rt::String& runDir)> ownerIsAlive;
  std::function<std::optional<rt::String>(const char* name)> environment;
  // Of a clock that only goes forward.
  std::function<rt::Seconds()> now;
  std::function<uint64_t()> timeOfDay;    // seconds since 1970
  std::function<uint64_t()> timeOfDayMs;  // milliseconds since 1970
  std::function<uint32_t()> chance;       // any number, which nobody can foretell
  // Returns when one of the descriptors is readable, or the time is over.
  std::function<void(std::span<const int> descriptors, rt::Seconds time)> waitReadable;
  // The same, and also when nobody reads `out` any more, which is bad then.
  std::function<void(std::span<const int> descriptors, rt::Seconds time)> waitWhileRead;
  std::function<model::ImageFacts(const rt::String& path)> imageFacts;
  // Absolute, or empty when it is not known.
  std::function<rt::String()> workingDirectory;
  // A whole file, or with "-" all of standard input; throws rt::ErrnoException.
  std::function<rt::String(const rt::String& path)> readFile;
  std::function<std::unique_ptr<EditedFile>(const rt::String& name)> makeEditedFile;
  // Gives a pty the terminal that standard input is.
  std::function<ConsoleEnd(const rt::String& pty)> holdConsole;
  // The same with the socket that a guest's console is shown on.
  std::function<ConsoleEnd(const rt::String& socket)> joinConsole;
  // Shows on it what comes from there.
  std::function<ConsoleEnd(const rt::String& socket)> viewConsole;
  // The screen of the terminal that standard input and `out` are.
  std::function<std::unique_ptr<Screen>()> takeScreen;
  std::function<ShimAnswer(const ShimCall& call)> askShim;
  // Who runs this: the one who logged in, if that is known, and not whom he has become since.
  std::function<rt::String()> userName;
  // Makes the file, or what is in it, that; throws rt::ErrnoException.
  std::function<void(const rt::String& path, const rt::String& bytes)> writeFile;
  // Puts a file of these bytes there, whole or not at all.
  std::function<void(const FilePlace& place, std::string_view bytes)> putFile;
  // The head of a question of HTTP on standard input, as far as it came within the time.
  std::function<rt::String(rt::Seconds time)> readHead;
  // See ConfigBackup.h.
  std::function<void(const rt::String& stateDir, const FilePlace& place)> backUpConfig;
  std::function<statedb::Snapshot(const rt::String& file)> readConfigBackup;
  // See Archive.h.
  std::function<void(const std::vector<PackedFile>& files, const rt::String& directory,
                     const FilePlace& place)>
      pack;
  const Machine& machine;
  model::MachineLimits limits;

  std::ostream& out;  // data
  std::ostream& err;  // talk
  bool inIsTerminal = false;
  bool outIsTerminal = false;
  bool errIsTerminal = false;
  size_t columns = 80;  // of the terminal that `out` is
};

}  // namespace ctl
