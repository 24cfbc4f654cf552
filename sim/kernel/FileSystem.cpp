#include "sim/kernel/FileSystem.h"

#include <sys/inotify.h>

#include <algorithm>
#include <stdexcept>

#include "sim/kernel/Inotify.h"
#include "sim/kernel/Machine.h"

namespace sim {

namespace {

constexpr dev_t rootDevice = 0x801;
constexpr size_t longestName = 255;
constexpr size_t longestPath = 4096;
constexpr int mostLinks = 40;

// Splits the first part off.
std::string takePart(std::string& path) {
  const size_t begin = path.find_first_not_of('/');
  if (begin == std::string::npos) {
    path.clear();
    return {};
  }
  const size_t end = std::min(path.find('/', begin), path.size());
  std::string part = path.substr(begin, end - begin);
  path.erase(0, end);
  return part;
}

bool hasMore(const std::string& path) { return path.find_first_not_of('/') != std::string::npos; }

}  // namespace

FileSystem::FileSystem() = default;

Found FileSystem::find(std::string_view path, const InodePtr& from, LastLink lastLink,
                       const InodePtr& top) {
  const InodePtr& root = top ? top : root_;
  if (path.empty()) return {-ENOENT, {}, {}, {}};
  if (path.size() >= longestPath) return {-ENAMETOOLONG, {}, {}, {}};
  std::string rest(path);
  Found found{0, nullptr, "", rest[0] == '/' ? root : from};
  for (int linksLeft = mostLinks; hasMore(rest);) {
    if (!found.inode) return {-ENOENT, {}, {}, {}};
    if (!found.inode->isDirectory()) return {-ENOTDIR, {}, {}, {}};
    const bool mustBeDirectory = !rest.empty() && rest.back() == '/';
    const std::string part = takePart(rest);
    if (part.size() > longestName) return {-ENAMETOOLONG, {}, {}, {}};
    if (part == ".") continue;
    if (part == "..") {
      const InodePtr up = found.inode->parent.lock();
      if (up && found.inode != root) found = {0, up->parent.lock(), "", up};
      continue;
    }
    const InodePtr directory = found.inode;
    found = {0, directory, part, directory->child(part)};
    const bool isLast = !hasMore(rest);
    if (!found.inode || found.inode->type() != S_IFLNK) continue;
    if (isLast && lastLink == LastLink::kept && !mustBeDirectory) continue;
    if (--linksLeft < 0) return {-ELOOP, {}, {}, {}};
    if (const InodePtr there = found.inode->jump.lock()) {
      found = {0, nullptr, "", there};
      continue;
    }
    rest = found.inode->target + rest;
    found = {0, nullptr, "", rest[0] == '/' ? root : directory};
  }
  if (path.back() == '/' && found.inode && !found.inode->isDirectory())
    return {-ENOTDIR, {}, {}, {}};
  return found;
}

Result FileSystem::requireWritable(const Inode& inode) const {
  const auto volume = volumes_.find(inode.device);
  return volume != volumes_.end() && volume->second.readOnly ? -EROFS : 0;
}

Result FileSystem::make(const Found& where, unsigned mode, InodePtr* made) {
  if (where.error) return where.error;
  if (where.inode) return -EEXIST;
  if (const Result error = requireWritable(*where.directory)) return error;
  Volume& ofDirectory = volume(where.directory->device);
  if (ofDirectory.room == 0) return -ENOSPC;
  const auto inode = std::make_shared<Inode>(mode, where.directory->device);
  if (where.directory->mode & S_ISGID) inode->group = where.directory->group;
  const Result error = put(where, inode);
  if (made && !error) *made = inode;
  return error;
}

Result FileSystem::put(const Found& where, const InodePtr& inode) {
  if (where.error) return where.error;
  if (where.inode) return -EEXIST;
  Inode& directory = *where.directory;
  if (!directory.durableChildren) directory.durableChildren = directory.children;
  directory.children[where.name] = inode;
  inode->home = where.directory;
  inode->homeEntry = where.name;
  directory.changedAt = machine().clock.timeOfDay();
  if (inode->isDirectory()) inode->parent = where.directory;
  ++inode->links;
  tellEntry(directory, where.name, IN_CREATE | (inode->isDirectory() ? IN_ISDIR : 0U));
  return 0;
}

void FileSystem::unlinkInode(const InodePtr& inode) {
  --inode->links;
  handleUnused(*inode);
}

// Whoever watches it hears of its end when nobody has it open any more.
void FileSystem::handleUnused(Inode& inode) {
  if (inode.links > 0 || inode.users > 0) return;
  for (const Inode::Watch& each : std::exchange(inode.watches, {})) {
    each.listener->add(each.number, IN_DELETE_SELF, 0, "");
    each.listener->end(each.number);
  }
}

Result FileSystem::remove(const Found& what) {
  if (what.error) return what.error;
  if (!what.inode) return -ENOENT;
  if (what.inode->isDirectory()) return -EISDIR;
  if (const Result error = requireWritable(*what.directory)) return error;
  Inode& directory = *what.directory;
  if (!directory.durableChildren) directory.durableChildren = directory.children;
  directory.children.erase(what.name);
  tellEntry(directory, what.name, IN_DELETE);
  unlinkInode(what.inode);
  return 0;
}

Result FileSystem::removeDirectory(const Found& what) {
  if (what.error) return what.error;
  if (!what.inode) return -ENOENT;
  if (!what.inode->isDirectory()) return -ENOTDIR;
  if (!what.inode->children.empty()) return -ENOTEMPTY;
  if (!what.directory) return -EBUSY;
  if (const Result error = requireWritable(*what.directory)) return error;
  what.directory->children.erase(what.name);
  tellEntry(*what.directory, what.name, IN_DELETE | IN_ISDIR);
  unlinkInode(what.inode);
  return 0;
}

Result FileSystem::rename(const Found& from, const Found& to) {
  if (from.error) return from.error;
  if (to.error) return to.error;
  if (!from.inode) return -ENOENT;
  if (from.inode->device != to.directory->device) return -EXDEV;
  if (const Result error = requireWritable(*from.directory)) return error;
  if (from.inode == to.inode) return 0;
  for (InodePtr up = to.directory; up && up != root_; up = up->parent.lock())
    if (up == from.inode) return -EINVAL;
  for (InodePtr up = from.directory; up && up != root_; up = up->parent.lock())
    if (up == to.inode) return -ENOTEMPTY;
  if (to.inode) {
    if (to.inode->isDirectory() && !from.inode->isDirectory()) return -EISDIR;
    if (!to.inode->isDirectory() && from.inode->isDirectory()) return -ENOTDIR;
    if (to.inode->isDirectory() && !to.inode->children.empty()) return -ENOTEMPTY;
  }
  for (Inode* const each : {from.directory.get(), to.directory.get()})
    if (!each->durableChildren) each->durableChildren = each->children;
  from.directory->children.erase(from.name);
  to.directory->children[to.name] = from.inode;
  if (from.inode->isDirectory()) from.inode->parent = to.directory;
  const uint32_t isDirectory = from.inode->isDirectory() ? IN_ISDIR : 0U;
  const uint32_t cookie = ++lastCookie_;
  from.inode->home = to.directory;
  from.inode->homeEntry = to.name;
  tellEntry(*from.directory, from.name, IN_MOVED_FROM | isDirectory, cookie);
  tellEntry(*to.directory, to.name, IN_MOVED_TO | isDirectory, cookie);
  for (const Inode::Watch& each : from.inode->watches)
    if ((each.mask & IN_MOVE_SELF) != 0) each.listener->add(each.number, IN_MOVE_SELF, 0, "");
  if (to.inode) unlinkInode(to.inode);
  return 0;
}

Result FileSystem::resize(Inode& inode, size_t size) {
  if (const Result error = requireWritable(inode)) return error;
  if (!inode.durable) inode.durable = inode.bytes;
  inode.bytes.resize(size);
  inode.changedAt = machine().clock.timeOfDay();
  tell(inode, IN_MODIFY);
  return 0;
}

Result FileSystem::write(Inode& inode, size_t at, std::string_view bytes) {
  if (const Result error = requireWritable(inode)) return error;
  Volume& all = volume(inode.device);
  const size_t end = at + bytes.size();
  const size_t more = end > inode.bytes.size() ? end - inode.bytes.size() : 0;
  if (more > all.room) {
    if (all.room == 0 || at > inode.bytes.size()) return -ENOSPC;
    bytes = bytes.substr(0, bytes.size() - (more - all.room));
    if (bytes.empty()) return -ENOSPC;
    return write(inode, at, bytes);
  }
  if (all.room != SIZE_MAX) all.room -= more;
  if (!inode.durable) inode.durable = inode.bytes;
  if (end > inode.bytes.size()) inode.bytes.resize(end);
  inode.bytes.replace(at, bytes.size(), bytes);
  inode.changedAt = machine().clock.timeOfDay();
  tell(inode, IN_MODIFY);
  return static_cast<Result>(bytes.size());
}

void FileSystem::tell(Inode& inode, uint32_t event) {
  if (const InodePtr directory = inode.home.lock()) tellEntry(*directory, inode.homeEntry, event);
  for (const Inode::Watch& each : inode.watches)
    if ((each.mask & event) != 0) each.listener->add(each.number, event, 0, "");
}

void FileSystem::tellEntry(Inode& directory, const std::string& entry, uint32_t event,
                           uint32_t cookie) {
  for (const Inode::Watch& each : directory.watches)
    if ((each.mask & event) != 0) each.listener->add(each.number, event, cookie, entry);
}

InodePtr FileSystem::at(std::string_view path) { return find(path, root_).inode; }

InodePtr FileSystem::directoryAt(std::string_view path, unsigned mode) {
  if (!root_) {
    root_ = std::make_shared<Inode>(S_IFDIR | 0755U, rootDevice);
    root_->parent = root_;
  }
  InodePtr directory = root_;
  for (size_t end = 0; end < path.size();) {
    end = std::min(path.find('/', end + 1), path.size());
    const Found found = find(path.substr(0, end), root_);
    InodePtr made = found.inode;
    if (!made && make(found, S_IFDIR | mode, &made) != 0)
      throw std::logic_error("directory cannot be made: " + std::string(path));
    directory = made;
  }
  return directory;
}

InodePtr FileSystem::fileAt(std::string_view path, std::string_view bytes, unsigned mode) {
  directoryAt(path.substr(0, path.rfind('/')));
  const Found found = find(path, root_);
  InodePtr inode = found.inode;
  if (!inode && make(found, S_IFREG | mode, &inode) != 0)
    throw std::logic_error("file cannot be made: " + std::string(path));
  inode->bytes = bytes;
  return inode;
}

InodePtr FileSystem::linkAt(std::string_view path, std::string_view target) {
  directoryAt(path.substr(0, path.rfind('/')));
  InodePtr inode;
  if (make(find(path, root_, LastLink::kept), S_IFLNK | 0777U, &inode) != 0)
    throw std::logic_error("link cannot be made: " + std::string(path));
  inode->target = target;
  return inode;
}

void FileSystem::removeAt(std::string_view path) {
  const Found found = find(path, root_, LastLink::kept);
  if (!found.inode) return;
  if (!found.inode->isDirectory()) {
    remove(found);
    return;
  }
  for (const std::string& entry : found.inode->entries()) removeAt(std::string(path) + "/" + entry);
  removeDirectory(found);
}

void FileSystem::put(std::string_view path, const InodePtr& inode) {
  directoryAt(path.substr(0, path.rfind('/')));
  put(find(path, root_, LastLink::kept), inode);
}

}  // namespace sim
