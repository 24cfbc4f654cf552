// A log that is kept in two files: FILE and, when that has grown long, the older FILE.1.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "runtime/base/Descriptor.h"
#include "runtime/base/String.h"

namespace ctl {

// Reads what is in both, the older first, then what is added, over changes of files. Nothing comes
// twice. A file that is not there yet may come.
class LogFile {
 public:
  using Sink = std::function<void(std::string_view bytes)>;

  // Throws rt::ErrnoException when a file that is there cannot be opened.
  explicit LogFile(const rt::String& path);
  LogFile(const LogFile&) = delete;

  bool exists() const { return current_ || older_; }
  // All that is there and was not read yet.
  void read(const Sink& sink);

  // A descriptor that is readable once something may have been added; ours. Throws
  // rt::ErrnoException.
  int follow();
  // Silences it; false: its directory is gone, and nothing more will come.
  bool takeNews();

 private:
  void readOpen(const Sink& sink);
  bool isReplaced() const;

  const rt::String path_;
  rt::Descriptor current_;
  rt::Descriptor older_;
  rt::Descriptor inotify_;
};

// Makes guests' output fit for a terminal, chunk by chunk: as rt::visibleText(), with tabs and ends
// of lines; carriage returns are left out.
class TerminalText {
 public:
  rt::String of(std::string_view chunk);

 private:
  std::string pending_;  // the first bytes of a character
};

}  // namespace ctl
