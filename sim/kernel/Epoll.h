// Watches many files at once.
#pragma once

#include <sys/epoll.h>

#include <map>

#include "sim/kernel/File.h"

namespace sim {

class EpollFile final : public File {
 public:
  // As epoll_ctl().
  Result control(int operation, int number, const FilePtr& file, const epoll_event& event);
  // At most so many of what is ready, in an order that chance decides.
  int collect(epoll_event* events, int most);

  short ready() const override;
  void queues(std::vector<WaitQueue*>& all) override;
  std::string text() const override { return "anon_inode:[eventpoll]"; }

 private:
  // One that is closed everywhere is watched no more.
  struct Watched {
    std::weak_ptr<File> file;
    epoll_event event;
    uint64_t order;
  };

  static uint32_t eventsOf(const Watched& watched);

  std::map<std::pair<int, const File*>, Watched> watched_;
  uint64_t lastOrder_ = 0;
};

}  // namespace sim
