// The tree of files.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "sim/kernel/Inode.h"

namespace sim {

// What a file system as a whole may want of.
struct Volume {
  bool readOnly = false;
  bool isMemory = false;   // empty after the power has failed
  size_t room = SIZE_MAX;  // bytes that may still be written
};

// Where a path leads.
struct Found {
  Result error = 0;
  InodePtr directory;
  std::string name;  // in that directory
  InodePtr inode;    // null: nothing of that name
};

enum class LastLink { followed, kept };

class FileSystem {
 public:
  FileSystem();
  FileSystem(const FileSystem&) = delete;

  const InodePtr& root() const { return root_; }
  // A path of a process whose directory is `from`. Only the last part may be missing. `top`: what
  // stands for "/".
  Found find(std::string_view path, const InodePtr& from, LastLink lastLink = LastLink::followed,
             const InodePtr& top = nullptr);

  // What the calls of these names do; EEXIST and the like are told.
  Result make(const Found& where, unsigned mode, InodePtr* made = nullptr);
  Result put(const Found& where, const InodePtr& inode);  // a further name
  Result remove(const Found& what);
  Result removeDirectory(const Found& what);
  Result rename(const Found& from, const Found& to);
  // Cuts or lengthens.
  Result resize(Inode& inode, size_t size);
  Result write(Inode& inode, size_t at, std::string_view bytes);

  // For who makes the world: absolute paths that must be as expected.
  InodePtr at(std::string_view path);                                 // null: nothing there
  InodePtr directoryAt(std::string_view path, unsigned mode = 0755);  // made with all before it
  InodePtr fileAt(std::string_view path, std::string_view bytes, unsigned mode = 0644);
  InodePtr linkAt(std::string_view path, std::string_view target);
  void removeAt(std::string_view path);  // with all below
  void put(std::string_view path, const InodePtr& inode);

  Volume& volume(dev_t device) { return volumes_[device]; }
  ino_t nextInodeNumber() { return ++lastInode_; }

  // It has a name, or a user, less.
  void handleUnused(Inode& inode);
  // Tells who watches of what became of a file: it and its directory.
  void tell(Inode& inode, uint32_t event);
  // The same of a directory's entry.
  void tellEntry(Inode& directory, const std::string& entry, uint32_t event, uint32_t cookie = 0);

 private:
  Result requireWritable(const Inode& inode) const;
  void unlinkInode(const InodePtr& inode);

  InodePtr root_;
  std::map<dev_t, Volume> volumes_;
  ino_t lastInode_ = 1;
  uint32_t lastCookie_ = 0;
};

}  // namespace sim
