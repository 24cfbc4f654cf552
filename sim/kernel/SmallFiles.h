// Counters, signals and processes as files.
#pragma once

#include "sim/kernel/Process.h"

namespace sim {

class EventFile final : public File {
 public:
  explicit EventFile(uint64_t count) : count_(count) {}

  Result read(char* to, size_t size) override;
  Result write(const char* from, size_t size) override;
  short ready() const override;
  std::string text() const override { return "anon_inode:[eventfd]"; }

 private:
  uint64_t count_;
};

// The signals of whoever reads.
class SignalFile final : public File {
 public:
  explicit SignalFile(const sigset_t& set) : set_(set) {}

  Result read(char* to, size_t size) override;
  short ready() const override;
  void queues(std::vector<WaitQueue*>& all) override;
  std::string text() const override { return "anon_inode:[signalfd]"; }

  void setIs(const sigset_t& set) { set_ = set; }

 private:
  sigset_t set_;
};

// Stays a process' when its number has become another's.
class ProcessFile final : public File {
 public:
  explicit ProcessFile(std::shared_ptr<Process> process) : process_(std::move(process)) {}

  const std::shared_ptr<Process>& process() const { return process_; }
  short ready() const override;
  void queues(std::vector<WaitQueue*>& all) override { all.push_back(&process_->ended); }
  std::string text() const override { return "anon_inode:[pidfd]"; }

 private:
  const std::shared_ptr<Process> process_;
};

}  // namespace sim
