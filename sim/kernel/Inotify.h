// Tells of what becomes of files.
#pragma once

#include <cstdint>
#include <deque>
#include <map>

#include "sim/kernel/Inode.h"

namespace sim {

class InotifyFile final : public File {
 public:
  ~InotifyFile() override;

  // The number of the watch; another mask for one that is watched already.
  Result watch(const InodePtr& inode, uint32_t mask);
  Result unwatch(int number);

  // Something happened at that watch. What happens twice in a row is told once.
  void add(int number, uint32_t event, uint32_t cookie, const std::string& entry);
  // What it watched is gone.
  void end(int number);

  Result read(char* to, size_t size) override;
  short ready() const override { return events_.empty() ? short{0} : short{POLLIN}; }
  std::string text() const override { return "anon_inode:inotify"; }

 private:
  struct Event {
    int number;
    uint32_t mask;
    uint32_t cookie;
    std::string entry;
    friend bool operator==(const Event&, const Event&) = default;
  };

  std::deque<Event> events_;
  std::map<int, std::weak_ptr<Inode>> watched_;
  int lastNumber_ = 0;
};

}  // namespace sim
