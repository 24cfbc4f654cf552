#include "host/base/TapNode.h"

#include <sys/sysmacros.h>

#include <fstream>
#include <string>

namespace host {

dev_t tapNode(const rt::String& device, uint32_t index) {
  std::ifstream file("/sys/class/net/" + device.str() + "/tap" + std::to_string(index) + "/dev");
  unsigned major = 0;
  unsigned minor = 0;
  char colon = 0;
  return file >> major >> colon >> minor ? makedev(major, minor) : 0;
}

}  // namespace host
