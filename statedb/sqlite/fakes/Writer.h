// The writing program as a child of a test.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <optional>

#include "statedb/sqlite/SqliteDb.h"

namespace statedb::sqlite {

// Killed when it ends. Not forked by hand: a copy of this process would hold its databases open.
class Writer {
 public:
  Writer(const char* what, const rt::String& file);
  Writer(const Writer&) = delete;
  ~Writer() {
    kill();
    close(in_);
    close(out_);
  }

  // The next number it says; none when it has ended.
  std::optional<uint64_t> heard() const {
    uint64_t number = 0;
    if (read(out_, &number, sizeof number) != sizeof number) return std::nullopt;
    return number;
  }
  // Everything of it is closed when this returns.
  void kill() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = -1;
  }

 private:
  pid_t process_ = -1;
  int in_ = -1;
  int out_ = -1;
};

}  // namespace statedb::sqlite
