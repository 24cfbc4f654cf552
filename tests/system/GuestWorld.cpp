#include "tests/system/GuestWorld.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

#include "runtime/base/Check.h"

namespace host::fakes {

namespace {

namespace fs = std::filesystem;

// Whether the QEMU has its lock in our /var/run, or in what is mounted there.
bool isOfThisMachine(const fs::path& qemu) {
  struct stat lock {};
  if (stat((qemu / "fd/5").c_str(), &lock) != 0) return false;
  for (const char* const place : {"/var/run", "/var/run/vmagent"}) {
    struct stat own {};
    if (stat(place, &own) == 0 && own.st_dev == lock.st_dev) return true;
  }
  return false;
}

}  // namespace

std::string GuestWorld::console(const std::string& vm, size_t from) const {
  const std::string all = contentOf(runDir + "/vm/" + vm + "/console.log");
  return from < all.size() ? all.substr(from) : "";
}

bool GuestWorld::saysOnConsole(const std::string& vm, const std::string& text, size_t from,
                               double seconds) const {
  return waitUntil([&] { return console(vm, from).find(text) != std::string::npos; }, seconds);
}

void GuestWorld::type(const std::string& vm, const std::string& text) const {
  std::smatch path;
  const std::string status = row("vmStatus", vm);
  rt::check(std::regex_search(status, path, std::regex(R"(pty:(/dev/pts/\d+))")), status.c_str());
  const int terminal = open(path[1].str().c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
  const bool typed =
      ::write(terminal, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(terminal);
  rt::check(typed, path[1].str().c_str());
}

bool GuestWorld::answersOnConsole(const std::string& vm, const std::string& command,
                                  const std::string& answer, double seconds) const {
  constexpr double patience = 1;  // for one answer
  return waitUntil(
      [&] {
        const size_t from = console(vm).size();
        type(vm, command + "\n");
        return saysOnConsole(vm, answer, from, patience);
      },
      seconds);
}

bool GuestWorld::shimSaid(const std::string& vm, const std::string& text) const {
  return waitUntil([&] {
    return contentOf(runDir + "/vm/" + vm + "/shim.log").find(text) != std::string::npos;
  });
}

std::vector<pid_t> GuestWorld::qemus(const std::string& vm) {
  const std::string name = std::string("-name") + '\0' + vm + '\0';
  std::vector<pid_t> found;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const std::string pid = entry.path().filename().string();
    if (pid.find_first_not_of("0123456789") != std::string::npos) continue;
    const std::string words = contentOf(entry.path() / "cmdline");
    // Only the shim gives a QEMU this option.
    if (words.find(name) != std::string::npos && words.find("-sandbox") != std::string::npos &&
        isOfThisMachine(entry.path()))
      found.push_back(std::stoi(pid));
  }
  return found;
}

std::string GuestWorld::commandLine(const std::string& vm) {
  const auto all = qemus(vm);
  return all.empty() ? "" : contentOf("/proc/" + std::to_string(all.front()) + "/cmdline");
}

std::vector<double> GuestWorld::polls(const std::string& vm) const {
  // The time of day, and what the agent was answered.
  const std::regex poll(R"((\d\d):(\d\d):(\d\d\.\d+).*handleMonitorResponse\(\) for )" + vm +
                        R"( .*val: Running)");
  std::vector<double> times;
  std::istringstream lines(log());
  for (std::string line; std::getline(lines, line);) {
    std::smatch part;
    if (line.find("handleMonitorResponse() for") != std::string::npos &&
        std::regex_search(line, part, poll))
      times.push_back(std::stod(part[1]) * 3600 + std::stod(part[2]) * 60 + std::stod(part[3]));
  }
  return times;
}

}  // namespace host::fakes
