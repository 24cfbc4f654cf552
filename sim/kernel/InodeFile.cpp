#include "sim/kernel/InodeFile.h"

#include <fcntl.h>
#include <sys/inotify.h>

#include <algorithm>
#include <cstring>

#include "sim/kernel/Machine.h"

namespace sim {

InodeFile::InodeFile(InodePtr opened, std::string path)
    : inode_(std::move(opened)), path_(std::move(path)) {
  ++inode_->users;
  if (inode_->madeUp) madeUp_ = inode_->madeUp();
}

InodeFile::~InodeFile() {
  inode_->locks.drop(*this);
  const bool couldWrite = (flags & O_ACCMODE) != O_RDONLY;
  if ((flags & O_PATH) == 0)
    machine().files.tell(*inode_, couldWrite ? IN_CLOSE_WRITE : IN_CLOSE_NOWRITE);
  --inode_->users;
  machine().files.handleUnused(*inode_);
}

Result InodeFile::read(char* to, size_t size) {
  if (inode_->isDirectory()) return -EISDIR;
  const Result count = readAt(to, size, place_);
  if (count > 0) place_ += count;
  return count;
}

Result InodeFile::readAt(char* to, size_t size, off_t at) const {
  if (inode_->isDirectory()) return -EISDIR;
  if (at < 0) return -EINVAL;
  const std::string& all = content();
  const auto from = std::min(static_cast<size_t>(at), all.size());
  const size_t count = std::min(size, all.size() - from);
  std::memcpy(to, all.data() + from, count);
  return static_cast<Result>(count);
}

Result InodeFile::write(const char* from, size_t size) {
  if ((flags & O_APPEND) != 0) place_ = static_cast<off_t>(inode_->bytes.size());
  const Result count = writeAt(from, size, place_);
  if (count > 0) place_ += count;
  return count;
}

Result InodeFile::writeAt(const char* from, size_t size, off_t at) const {
  if (at < 0) return -EINVAL;
  if ((flags & O_APPEND) != 0) at = static_cast<off_t>(inode_->bytes.size());
  if (madeUp_) {
    if (inode_->written) inode_->written({from, size});
    return static_cast<Result>(size);
  }
  return machine().files.write(*inode_, static_cast<size_t>(at), {from, size});
}

Result InodeFile::seek(off_t offset, int whence) {
  if (whence == SEEK_CUR) offset += place_;
  if (whence == SEEK_END) offset += static_cast<off_t>(content().size());
  if (whence > SEEK_END || offset < 0) return -EINVAL;
  place_ = offset;
  nextEntry = 0;
  return place_;
}

Result Device::read(char* to, size_t size) {
  if (kind_ == Kind::null) return 0;
  std::memset(to, 0, size);
  return static_cast<Result>(size);
}

}  // namespace sim
