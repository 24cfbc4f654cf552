#include "sim/kernel/calls/FileCalls.h"

#include <sys/file.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "sim/kernel/InodeFile.h"
#include "sim/kernel/Pipe.h"
#include "sim/kernel/calls/Common.h"

namespace sim::sys {

namespace {

FileSystem& files() { return machine().files; }

InodePtr directoryOf(int from) {
  if (from == AT_FDCWD) return self().directory;
  const FilePtr file = fileOf(from);
  return file ? file->inode() : nullptr;
}

Found find(int from, const char* path, LastLink lastLink) {
  const InodePtr directory = directoryOf(from);
  if (!directory && path[0] != '/') return {-EBADF, {}, {}, {}};
  return files().find(path, directory, lastLink, self().root);
}

// A fifo: whoever opens one end waits for who opens the other.
Result openFifo(const InodePtr& inode, int flags) {
  if (!inode->fifo) inode->fifo = std::make_shared<PipeState>();
  const auto pipe = inode->fifo;
  const bool writes = (flags & O_ACCMODE) != O_RDONLY;
  const bool waits = (flags & O_NONBLOCK) == 0;
  if (writes && !waits && pipe->readers == 0) return -ENXIO;
  const auto end =
      std::make_shared<PipeEnd>(pipe, writes ? PipeEnd::Kind::writes : PipeEnd::Kind::reads, inode);
  end->flags |= flags & ~O_ACCMODE;
  pipe->changed.wake();
  while (waits && (writes ? pipe->readers : pipe->writers) == 0)
    if (sleepOn({end.get()}, never, "open") == Sleep::End::interrupted) return -EINTR;
  return addDescriptor(end, flags);
}

// What is opened by way of a descriptor is told as what that stands for.
std::string pathToTell(const char* path) {
  constexpr std::string_view descriptors = "/proc/self/fd/";
  if (!std::string_view(path).starts_with(descriptors)) return path;
  const FilePtr file = fileOf(std::atoi(path + descriptors.size()));
  return file ? file->text() : path;
}

Result openInode(const InodePtr& inode, const char* path, int flags) {
  const bool writes = (flags & O_ACCMODE) != O_RDONLY;
  FilePtr file;
  if ((flags & O_PATH) == 0) {
    if (inode->type() == S_IFIFO) return openFifo(inode, flags);
    if (inode->type() == S_IFSOCK) return -ENXIO;
    const bool wouldWrite = writes || (flags & (O_CREAT | O_TRUNC)) != 0;
    if (inode->isDirectory() && wouldWrite) return -EISDIR;
    if (writes && files().volume(inode->device).readOnly && inode->isRegular()) return -EROFS;
    if (inode->type() == S_IFCHR || inode->type() == S_IFBLK) {
      file = inode->open ? inode->open() : nullptr;
      if (!file) return -ENXIO;
    }
  }
  if (!file) file = std::make_shared<InodeFile>(inode, pathToTell(path));
  constexpr int notKept = O_CREAT | O_EXCL | O_TRUNC | O_NOCTTY | O_CLOEXEC;
  file->flags = flags & ~notKept;
  if ((flags & O_TRUNC) != 0 && inode->isRegular())
    if (const Result error = files().resize(*inode, 0)) return error;
  const Result number = addDescriptor(file, flags);
  if (number >= 0) files().tell(*inode, IN_OPEN);
  return number;
}

InodeFile* inodeFile(int number) { return dynamic_cast<InodeFile*>(fileOf(number).get()); }

}  // namespace

Result open(int from, const char* path, int flags, unsigned mode, bool inRoot) {
  const bool exclusive = (flags & O_CREAT) != 0 && (flags & O_EXCL) != 0;
  const bool kept = exclusive || (flags & O_NOFOLLOW) != 0;
  const LastLink lastLink = kept ? LastLink::kept : LastLink::followed;
  Found found = inRoot ? files().find(path, directoryOf(from), lastLink, directoryOf(from))
                       : find(from, path, lastLink);
  if (found.error) return found.error;
  if (!found.inode && (flags & O_CREAT) == 0) return -ENOENT;
  if (found.inode && exclusive) return -EEXIST;
  if (!found.inode) {
    if (static_cast<int>(self().descriptors.count()) >= self().descriptors.limit) return -EMFILE;
    const Result error =
        files().make(found, S_IFREG | (mode & 07777U & ~self().umask), &found.inode);
    if (error) return error;
    flags &= ~O_TRUNC;
  }
  if (found.inode->type() == S_IFLNK && (flags & O_PATH) == 0) return -ELOOP;
  if ((flags & O_DIRECTORY) != 0 && !found.inode->isDirectory()) return -ENOTDIR;
  return openInode(found.inode, path, flags);
}

Result close(int number) { return closeDescriptor(self(), number); }

Result read(int number, void* to, size_t size) {
  const FilePtr file = fileOf(number);
  if (!file || (file->flags & O_ACCMODE) == O_WRONLY || (file->flags & O_PATH) != 0) return -EBADF;
  return untilDone(file, !file->nonBlocking(), "read",
                   [&] { return file->read(static_cast<char*>(to), size); });
}

// All of it, where that can be waited for.
Result write(int number, const void* from, size_t size) {
  const FilePtr file = fileOf(number);
  if (!file || (file->flags & O_ACCMODE) == O_RDONLY) return -EBADF;
  const auto* const bytes = static_cast<const char*>(from);
  size_t written = 0;
  do {
    const Result count = untilDone(file, !file->nonBlocking(), "write",
                                   [&] { return file->write(bytes + written, size - written); });
    if (count < 0) return written > 0 ? static_cast<Result>(written) : brokenPipe(count, false);
    written += static_cast<size_t>(count);
    if (count == 0) break;
  } while (written < size && !file->nonBlocking() && !inodeFile(number));
  return static_cast<Result>(written);
}

Result readAt(int number, void* to, size_t size, off_t at) {
  const InodeFile* const file = inodeFile(number);
  if (!file) return fileOf(number) ? -ESPIPE : -EBADF;
  if ((file->flags & O_ACCMODE) == O_WRONLY) return -EBADF;
  return file->readAt(static_cast<char*>(to), size, at);
}

Result writeAt(int number, const void* from, size_t size, off_t at) {
  const InodeFile* const file = inodeFile(number);
  if (!file) return fileOf(number) ? -ESPIPE : -EBADF;
  if ((file->flags & O_ACCMODE) == O_RDONLY) return -EBADF;
  return file->writeAt(static_cast<const char*>(from), size, at);
}

Result seek(int number, off_t offset, int whence) {
  InodeFile* const file = inodeFile(number);
  if (!file && !fileOf(number)) return -EBADF;
  // What has no place in a tree has none in itself, either.
  if (!file) return (fileOf(number)->mode() & S_IFMT) == 0 ? 0 : -ESPIPE;
  return file->seek(offset, whence);
}

Result resize(int number, off_t size) {
  const InodeFile* const file = inodeFile(number);
  if (!file || (file->flags & O_ACCMODE) == O_RDONLY) return fileOf(number) ? -EINVAL : -EBADF;
  if (size < 0) return -EINVAL;
  return files().resize(*file->inode(), static_cast<size_t>(size));
}

Result synchronize(int number) {
  const FilePtr file = fileOf(number);
  if (!file) return -EBADF;
  const InodePtr inode = file->inode();
  if (!inode) return -EINVAL;
  inode->durable.reset();
  inode->durableChildren.reset();
  // What is synced can be found: its name is, too.
  if (const InodePtr directory = inode->home.lock(); directory && directory->durableChildren)
    (*directory->durableChildren)[inode->homeEntry] = inode;
  return 0;
}

Result nextEntry(int number, std::string& entry, struct stat& facts) {
  InodeFile* const file = inodeFile(number);
  if (!file) return -EBADF;
  if (!file->inode()->isDirectory()) return -ENOTDIR;
  if (file->nextEntry == 0) {
    file->entries = file->inode()->entries();
    file->entries.insert(file->entries.begin(), {".", ".."});
  }
  while (file->nextEntry < file->entries.size()) {
    entry = file->entries[file->nextEntry++];
    const bool isDots = entry == "." || entry == "..";
    const InodePtr inode = isDots ? file->inode() : file->inode()->child(entry);
    if (!inode) continue;
    facts = inode->facts();
    return 0;
  }
  return -ENOENT;
}

Result facts(int from, const char* path, int flags, struct stat& result) {
  if (path[0] == '\0' && (flags & AT_EMPTY_PATH) != 0) return factsOf(from, result);
  const Found found =
      find(from, path, (flags & AT_SYMLINK_NOFOLLOW) != 0 ? LastLink::kept : LastLink::followed);
  if (found.error) return found.error;
  if (!found.inode) return -ENOENT;
  result = found.inode->facts();
  return 0;
}

Result factsOf(int number, struct stat& result) {
  const FilePtr file = fileOf(number);
  if (!file) return -EBADF;
  result = {};
  if (const InodePtr inode = file->inode()) result = inode->facts();
  result.st_mode = file->mode();
  return 0;
}

Result access(const char* path, int mode) {
  const Found found = find(AT_FDCWD, path, LastLink::followed);
  if (found.error) return found.error;
  if (!found.inode) return -ENOENT;
  if ((mode & W_OK) != 0 && files().volume(found.inode->device).readOnly) return -EROFS;
  const bool canRun = found.inode->isDirectory() || (found.inode->mode & 0111U) != 0;
  return (mode & X_OK) != 0 && !canRun ? -EACCES : 0;
}

Result makeDirectory(int from, const char* path, unsigned mode) {
  const Found found = find(from, path, LastLink::kept);
  return files().make(found, S_IFDIR | (mode & 01777U & ~self().umask) |
                                 (found.directory ? found.directory->mode & S_ISGID : 0U));
}

Result makeNode(const char* path, unsigned mode, dev_t device) {
  InodePtr made;
  const Result error = files().make(find(AT_FDCWD, path, LastLink::kept), mode, &made);
  if (!error) made->represents = device;
  return error;
}

Result makeLink(const char* target, const char* path) {
  InodePtr made;
  const Result error = files().make(find(AT_FDCWD, path, LastLink::kept), S_IFLNK | 0777U, &made);
  if (!error) made->target = target;
  return error;
}

Result readLink(const char* path, char* to, size_t size) {
  const Found found = find(AT_FDCWD, path, LastLink::kept);
  if (found.error) return found.error;
  if (!found.inode) return -ENOENT;
  if (found.inode->type() != S_IFLNK) return -EINVAL;
  const size_t count = std::min(size, found.inode->target.size());
  std::memcpy(to, found.inode->target.data(), count);
  return static_cast<Result>(count);
}

Result removeEntry(int from, const char* path, int flags) {
  const Found found = find(from, path, LastLink::kept);
  return (flags & AT_REMOVEDIR) != 0 ? files().removeDirectory(found) : files().remove(found);
}

Result rename(int fromDirectory, const char* from, int toDirectory, const char* to) {
  return files().rename(find(fromDirectory, from, LastLink::kept),
                        find(toDirectory, to, LastLink::kept));
}

Result link(const char* from, const char* to) {
  const Found found = find(AT_FDCWD, from, LastLink::kept);
  if (found.error) return found.error;
  if (!found.inode) return -ENOENT;
  const Found where = find(AT_FDCWD, to, LastLink::kept);
  if (found.inode->isDirectory() && !where.error && !where.inode) return -EPERM;
  return files().put(where, found.inode);
}

namespace {

Result setMode(Inode& inode, unsigned mode) {
  if (files().volume(inode.device).readOnly) return -EROFS;
  inode.mode = inode.type() | (mode & 07777U);
  files().tell(inode, IN_ATTRIB);
  return 0;
}

Result setOwner(Inode& inode, uid_t user, gid_t group) {
  if (files().volume(inode.device).readOnly) return -EROFS;
  if (user != static_cast<uid_t>(-1)) inode.user = user;
  if (group != static_cast<gid_t>(-1)) inode.group = group;
  files().tell(inode, IN_ATTRIB);
  return 0;
}

}  // namespace

Result modeIs(int from, const char* path, unsigned mode) {
  const Found found = find(from, path, LastLink::followed);
  if (found.error) return found.error;
  return found.inode ? setMode(*found.inode, mode) : -ENOENT;
}

Result modeOf(int number, unsigned mode) {
  const FilePtr file = fileOf(number);
  if (!file) return -EBADF;
  const InodePtr inode = file->inode();
  return inode ? setMode(*inode, mode) : 0;
}

Result ownerIs(int from, const char* path, uid_t user, gid_t group, bool ofLink) {
  const Found found = find(from, path, ofLink ? LastLink::kept : LastLink::followed);
  if (found.error) return found.error;
  return found.inode ? setOwner(*found.inode, user, group) : -ENOENT;
}

Result ownerOf(int number, uid_t user, gid_t group) {
  const FilePtr file = fileOf(number);
  if (!file) return -EBADF;
  const InodePtr inode = file->inode();
  return inode ? setOwner(*inode, user, group) : 0;
}

Result umaskIs(unsigned mask) {
  return static_cast<Result>(std::exchange(self().umask, mask & 0777U));
}

}  // namespace sim::sys
