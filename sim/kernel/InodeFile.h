// Files of the tree that are open.
#pragma once

#include "sim/kernel/Inode.h"

namespace sim {

// A file, a directory, or with O_PATH anything: something in the tree, and a place in it.
class InodeFile final : public File {
 public:
  // `path`: as it was opened, for people.
  InodeFile(InodePtr opened, std::string path);
  ~InodeFile() override;

  Result read(char* to, size_t size) override;
  Result write(const char* from, size_t size) override;
  Result readAt(char* to, size_t size, off_t at) const;
  Result writeAt(const char* from, size_t size, off_t at) const;
  Result seek(off_t offset, int whence);
  bool canBeWatched() const override { return false; }
  InodePtr inode() const override { return inode_; }
  std::string text() const override { return path_; }
  unsigned mode() const override { return inode_->mode; }

  // A directory's entries, read one by one.
  std::vector<std::string> entries;
  size_t nextEntry = 0;

 private:
  const std::string& content() const { return madeUp_ ? *madeUp_ : inode_->bytes; }

  const InodePtr inode_;
  const std::string path_;
  std::optional<std::string> madeUp_;  // of what a kernel makes up: as it was when opened
  off_t place_ = 0;
};

// /dev/null, /dev/zero and the like.
class Device final : public File {
 public:
  enum class Kind { null, zero };
  Device(Kind kind, InodePtr node) : kind_(kind), node_(std::move(node)) {}

  Result read(char* to, size_t size) override;
  Result write(const char* /*from*/, size_t size) override { return static_cast<Result>(size); }
  InodePtr inode() const override { return node_; }
  std::string text() const override { return kind_ == Kind::null ? "/dev/null" : "/dev/zero"; }
  unsigned mode() const override { return node_->mode; }

 private:
  const Kind kind_;
  const InodePtr node_;
};

}  // namespace sim
