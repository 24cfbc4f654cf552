#include "sim/kernel/Inode.h"

#include "sim/kernel/Machine.h"

namespace sim {

ino_t Inode::nextNumber() { return machine().files.nextInodeNumber(); }

Inode::Inode(unsigned fileMode, dev_t fileDevice)
    : number(nextNumber()),
      device(fileDevice),
      mode(fileMode),
      changedAt(machine().clock.timeOfDay()) {}

struct stat Inode::facts() const {
  constexpr off_t blockSize = 4096;
  constexpr off_t sectorSize = 512;
  struct stat facts {};
  facts.st_dev = device;
  facts.st_ino = number;
  facts.st_mode = mode;
  facts.st_nlink = isDirectory() ? 2 : links;
  facts.st_uid = user;
  facts.st_gid = group;
  facts.st_rdev = represents;
  facts.st_size = static_cast<off_t>(type() == S_IFLNK ? target.size() : bytes.size());
  facts.st_blksize = blockSize;
  facts.st_blocks = (facts.st_size + sectorSize - 1) / sectorSize;
  facts.st_mtim = facts.st_ctim = facts.st_atim = changedAt;
  return facts;
}

InodePtr Inode::child(const std::string& entry) {
  const auto found = children.find(entry);
  return found == children.end() ? nullptr : found->second;
}

std::vector<std::string> Inode::entries() {
  std::vector<std::string> names;
  names.reserve(children.size());
  for (const auto& [entry, inode] : children) names.push_back(entry);
  return names;
}

}  // namespace sim
