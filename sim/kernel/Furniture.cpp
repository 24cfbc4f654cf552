#include "sim/kernel/Furniture.h"

#include <net/if.h>

#include "sim/kernel/InodeFile.h"
#include "sim/kernel/Machine.h"
#include "sim/kernel/MadeUpFiles.h"

namespace sim {

namespace {

constexpr dev_t memoryDevice = 0x19;

void addDevice(FileSystem& files, const char* path, Device::Kind kind) {
  const auto node = std::make_shared<Inode>(S_IFCHR | 0666U, files.at("/dev")->device);
  const std::weak_ptr<Inode> weak = node;
  node->open = [weak, kind] { return std::make_shared<Device>(kind, weak.lock()); };
  files.put(path, node);
}

}  // namespace

void furnish(Machine& machine) {
  FileSystem& files = machine.files;
  for (const char* const path : {"/dev/pts", "/etc", "/tmp", "/usr/bin", "/usr/lib", "/var/lib"})
    files.directoryAt(path);
  const auto run = std::make_shared<Inode>(S_IFDIR | 0755U, memoryDevice);
  files.put("/run", run);
  files.volume(memoryDevice).isMemory = true;
  files.linkAt("/var/run", "/run");
  files.fileAt("/etc/group", "root:x:0:\nvmagent:x:990:\n");
  addDevice(files, "/dev/null", Device::Kind::null);
  addDevice(files, "/dev/zero", Device::Kind::zero);
  files.put("/proc", processFiles());
  files.put("/sys/class/net", networkFiles());
  Link loopback;
  loopback.name = "lo";
  loopback.flags = IFF_UP | IFF_LOOPBACK | IFF_RUNNING;
  machine.network.add(loopback);
}

}  // namespace sim
