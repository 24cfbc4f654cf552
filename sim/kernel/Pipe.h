// Pipes.
#pragma once

#include <string>
#include <utility>

#include "sim/kernel/Inode.h"

namespace sim {

// What both ends share.
struct PipeState {
  static constexpr size_t capacity = 64 * 1024;
  static constexpr size_t atomicSize = 4096;

  ino_t number = 0;
  std::string bytes;
  int readers = 0;
  int writers = 0;
  WaitQueue changed;
};

class PipeEnd final : public File {
 public:
  enum class Kind { reads, writes };
  // `node`: of a fifo.
  PipeEnd(std::shared_ptr<PipeState> pipe, Kind kind, InodePtr node = nullptr);
  ~PipeEnd() override;

  Result read(char* to, size_t size) override;
  Result write(const char* from, size_t size) override;
  short ready() const override;
  void queues(std::vector<WaitQueue*>& all) override { all.push_back(&pipe_->changed); }
  InodePtr inode() const override { return node_; }
  std::string text() const override { return "pipe:[" + std::to_string(pipe_->number) + "]"; }
  unsigned mode() const override;

 private:
  const std::shared_ptr<PipeState> pipe_;
  const Kind kind_;
  const InodePtr node_;
};

// The end to read from and the one to write to.
std::pair<FilePtr, FilePtr> makePipe();

}  // namespace sim
