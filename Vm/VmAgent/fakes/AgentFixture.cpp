#include "Vm/VmAgent/fakes/AgentFixture.h"

#include <algorithm>
#include <regex>

namespace Vm {

Lines normalised(Lines lines, const std::string& path) {
  static const std::regex address("0x[0-9a-f]+");
  for (auto& line : lines) {
    line = std::regex_replace(line, address, "ADDRESS");
    for (auto at = line.find(path); at != std::string::npos; at = line.find(path))
      line.replace(at, path.size(), "DISK");
  }
  return lines;
}

Lines withText(const Lines& lines, std::string_view text) {
  Lines found;
  std::copy_if(lines.begin(), lines.end(), std::back_inserter(found),
               [&](const auto& line) { return line.find(text) != std::string::npos; });
  return found;
}

Lines before(Lines lines, std::string_view text) {
  const auto at = std::find_if(lines.begin(), lines.end(), [&](const auto& line) {
    return line.find(text) != std::string::npos;
  });
  lines.erase(at, lines.end());
  return lines;
}

std::string refusalOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const rt::Exception& e) {
    return e.what();
  }
  return "nothing";
}

std::string listing(const rt::Entity& entity) {
  std::string text;
  for (const auto& attribute : entity.type().attributes) {
    if (!text.empty()) text += ' ';
    const std::string name(attribute.name);
    text += attribute.textIs || attribute.memberIs ? name : "[" + name + "]";
  }
  return text;
}

void AgentFixture::forget() {
  traces.take();
  effects.take();
}

VmConfig::Ptr AgentFixture::addRunning(const std::string& name) {
  if (!root->agent()) start();
  auto added = addVm(name);
  added->enabledIs(true);
  converse(name);
  forget();
  return added;
}

void AgentFixture::endProcess(const std::string& name, int waitStatus) {
  processes.end(pidOf(name), waitStatus);
  turn();
}

}  // namespace Vm
