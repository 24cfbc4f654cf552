// What descriptors stand for.
#pragma once

#include <poll.h>

#include <cerrno>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "sim/kernel/WaitQueue.h"

namespace sim {

class Inode;
class Process;

// Results are as the kernel's: 0 or more, or -errno.
using Result = long;

// An open file. Descriptors of several processes may stand for one; it is closed when none does any
// more, and no socket holds one on its way.
class File {
 public:
  File() = default;
  File(const File&) = delete;
  virtual ~File() = default;

  // At most `size` bytes; -EAGAIN: nothing yet.
  virtual Result read(char* to, size_t size);
  virtual Result write(const char* from, size_t size);
  // POLLIN, POLLOUT and so on, as it is now.
  virtual short ready() const { return POLLIN | POLLOUT; }
  // What tells when ready() may have changed.
  virtual void queues(std::vector<WaitQueue*>& all) { all.push_back(&changed); }
  // Whether epoll takes it.
  virtual bool canBeWatched() const { return true; }
  // What lies in the tree of files; null for all else.
  virtual std::shared_ptr<Inode> inode() const { return nullptr; }
  // As a link in /proc/PID/fd reads.
  virtual std::string text() const = 0;
  virtual unsigned mode() const;  // as stat() tells

  bool nonBlocking() const { return (flags & nonBlockingFlag) != 0; }

  int flags = 0;  // O_RDWR, O_NONBLOCK and so on
  WaitQueue changed;

 private:
  static const int nonBlockingFlag;
};

using FilePtr = std::shared_ptr<File>;

// A process' descriptors.
class Descriptors {
 public:
  struct Slot {
    FilePtr file;
    bool closedByExec = false;
  };

  // The lowest free number from `least` on; -EMFILE.
  int add(FilePtr file, bool closedByExec, int least = 0);
  // Null for none.
  const FilePtr& file(int number) const;
  Slot* slot(int number);
  // Returns what it stood for.
  FilePtr take(int number);
  void set(int number, FilePtr file, bool closedByExec);
  std::vector<int> numbers() const;
  size_t count() const;

  int limit = 1024;

 private:
  std::vector<Slot> slots_;
};

}  // namespace sim
