#include "guest/VmFiles.h"

namespace guest {

std::string vmsDirectoryOf(std::string_view runDir) {
  return std::string(runDir) + "/" + vmsDirectory;
}

std::string directoryOf(std::string_view runDir, std::string_view vm) {
  return vmsDirectoryOf(runDir) + "/" + std::string(vm);
}

std::string fileOf(std::string_view runDir, std::string_view vm, std::string_view file) {
  return directoryOf(runDir, vm) + "/" + std::string(file);
}

std::string monitorOf(std::string_view vm) {
  return std::string(monitorsDirectory) + "/" + std::string(vm) + std::string(monitorEnding);
}

std::string_view vmOfMonitor(std::string_view path) {
  constexpr std::string_view directory = monitorsDirectory;
  if (!path.starts_with(directory) || !path.ends_with(monitorEnding)) return {};
  path.remove_prefix(directory.size());
  if (path.size() <= 1 + monitorEnding.size() || path[0] != '/') return {};
  return path.substr(1, path.size() - 1 - monitorEnding.size());
}

}  // namespace guest
