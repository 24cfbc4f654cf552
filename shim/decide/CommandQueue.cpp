#include "shim/decide/CommandQueue.h"

#include <algorithm>
#include <functional>

namespace shim {

namespace {

bool is(const Command& command, const char* execute, const char* argument,
        const std::string& value) {
  const auto found = command.request.texts.find(argument);
  return command.request.execute == execute && found != command.request.texts.end() &&
         found->second == value;
}

}  // namespace

size_t CommandQueue::wishes() const {
  return static_cast<size_t>(
      std::count_if(commands_.begin(), commands_.end(), std::mem_fn(&Command::isOperators)));
}

void CommandQueue::push(Command command) {
  const auto place = command.isOperators() ? commands_.end()
                                           : std::find_if(commands_.begin(), commands_.end(),
                                                          std::mem_fn(&Command::isOperators));
  commands_.insert(place, std::move(command));
}

Command CommandQueue::pop() {
  Command front = std::move(commands_.front());
  commands_.pop_front();
  return front;
}

bool CommandQueue::takeBack(const std::string& netdev) {
  const auto newest = std::find_if(commands_.rbegin(), commands_.rend(), [&](const Command& c) {
    return is(c, "netdev_add", "id", netdev);
  });
  if (newest == commands_.rend()) return false;
  const auto name = newest->request.texts.find("fd");
  const std::string fd = name == newest->request.texts.end() ? std::string() : name->second;
  const auto given = std::find_if(newest, commands_.rend(),
                                  [&](const Command& c) { return is(c, "getfd", "fdname", fd); });
  // Without it QEMU has the descriptor, and must close it.
  const bool isHere = given != commands_.rend();
  const auto givenAt = isHere ? commands_.rend() - given - 1 : 0;
  // What is behind it is about this netdev; before it stands the end of the one before.
  const auto add = std::prev(newest.base());
  commands_.erase(std::remove_if(add, commands_.end(),
                                 [&](const Command& c) {
                                   return is(c, "netdev_add", "id", netdev) ||
                                          is(c, "netdev_set", "netdevid", netdev) ||
                                          is(c, "set_link", "name", netdev) ||
                                          (isHere && is(c, "closefd", "fdname", fd));
                                 }),
                  commands_.end());
  if (isHere) commands_.erase(commands_.begin() + givenAt);
  return true;
}

}  // namespace shim
