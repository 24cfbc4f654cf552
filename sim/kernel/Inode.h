// What stands in the tree of files.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/kernel/File.h"
#include "sim/kernel/FileLocks.h"
#include "sim/kernel/Process.h"

namespace sim {

class InotifyFile;
class UnixDatagram;
struct PipeState;
class UnixSocket;
class Inode;
using InodePtr = std::shared_ptr<Inode>;

// One file, directory, link, socket or device.
//
// A regular file's bytes are what processes see. What of them would be there after the power failed
// is kept apart, from the first write on that was not synced.
class Inode : public std::enable_shared_from_this<Inode> {
 public:
  Inode(unsigned fileMode, dev_t fileDevice);
  Inode(const Inode&) = delete;
  virtual ~Inode() = default;

  unsigned type() const { return mode & S_IFMT; }
  bool isDirectory() const { return type() == S_IFDIR; }
  bool isRegular() const { return type() == S_IFREG; }
  struct stat facts() const;

  // A directory's entries; what a kernel makes up, as /proc, has its own.
  virtual InodePtr child(const std::string& entry);
  virtual std::vector<std::string> entries();
  // What a file reads as when it is opened: null: its bytes.
  std::function<std::string()> madeUp;
  std::function<void(std::string_view)> written;  // to what is made up
  // Opens what is no regular file; null: by its type.
  std::function<FilePtr()> open;

  const ino_t number;
  const dev_t device;
  unsigned mode;
  uid_t user = 0;
  gid_t group = 0;
  nlink_t links = 0;
  unsigned users = 0;    // that have it open, or are bound to it
  dev_t represents = 0;  // of a device's node
  timespec changedAt{};

  std::string bytes;
  std::string target;         // of a link
  std::weak_ptr<Inode> jump;  // where a link of the kernel's leads, whatever its text
  std::map<std::string, InodePtr> children;
  std::weak_ptr<Inode> parent;  // of a directory
  std::weak_ptr<Inode> home;    // the directory that it was put into last
  std::string homeEntry;        // and its name there
  std::weak_ptr<UnixSocket> listener;
  std::weak_ptr<UnixDatagram> datagrams;
  std::shared_ptr<PipeState> fifo;
  Program program;  // null: cannot be run
  // All of it is in one piece, where processes share it as memory; grows in place.
  std::vector<std::unique_ptr<char[]>> sharedMemory;

  FileLocks locks;
  struct Watch {
    InotifyFile* listener;
    int number;
    uint32_t mask;
  };
  std::vector<Watch> watches;

  // What would be left of its bytes, and of its entries, were the power to fail.
  std::optional<std::string> durable;
  std::optional<std::map<std::string, InodePtr>> durableChildren;

 private:
  static ino_t nextNumber();
};

}  // namespace sim
