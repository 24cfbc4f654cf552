// Terminals whose other end is a program.
#pragma once

#include <termios.h>

#include <string>

#include "sim/kernel/Inode.h"

namespace sim {

// What master and slave share.
struct PtyState {
  static constexpr size_t capacity = 4096;

  int number = 0;
  std::string toMaster;
  std::string toSlave;
  int slaves = 0;
  bool hasMaster = true;
  bool locked = true;
  termios settings{};
  InodePtr node;
  WaitQueue changed;
};

class PtyEnd final : public File {
 public:
  enum class Kind { master, slave };
  PtyEnd(std::shared_ptr<PtyState> pty, Kind kind);
  ~PtyEnd() override;

  const std::shared_ptr<PtyState>& pty() const { return pty_; }
  Result read(char* to, size_t size) override;
  Result write(const char* from, size_t size) override;
  short ready() const override;
  void queues(std::vector<WaitQueue*>& all) override { all.push_back(&pty_->changed); }
  InodePtr inode() const override { return pty_->node; }
  std::string text() const override;
  unsigned mode() const override;

 private:
  bool isMaster() const { return kind_ == Kind::master; }

  const std::shared_ptr<PtyState> pty_;
  const Kind kind_;
};

// The master of a new one, whose slave is at /dev/pts/N.
std::shared_ptr<PtyEnd> makePty();

}  // namespace sim
