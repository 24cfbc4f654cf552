#include "shim/keep/Sender.h"

#include <fstream>

namespace shim {

namespace {

// Its user chooses it: nothing of it may end a line.
std::string nameOf(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/comm");
  std::string name;
  std::getline(file, name);
  for (char& c : name)
    if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) c = '?';
  return name;
}

}  // namespace

std::string signalText(unsigned signal, pid_t sender) {
  const std::string text = "signal " + std::to_string(signal) + " to its shim, from ";
  if (sender == 0) return text + "the kernel";
  const std::string name = nameOf(sender);
  return text + "process " + std::to_string(sender) + (name.empty() ? "" : " (" + name + ")");
}

std::string endedByText(const std::string& signal, const std::string& vm) {
  return "ended by " + signal + "; 'vmctl restart " + vm + "' starts it anew";
}

}  // namespace shim
