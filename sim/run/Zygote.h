// A process that has a world ready, and plays each story in a child of its own.
#pragma once

#include <sys/types.h>

#include <map>
#include <memory>

#include "sim/run/History.h"

namespace sim {

class Zygote {
 public:
  // Forks. Call it where no world is.
  explicit Zygote(Beginning beginning);
  Zygote(const Zygote&) = delete;
  ~Zygote();

  Outcome play(const Story& story) const;

 private:
  pid_t pid_;
  int socket_;
};

// One for each beginning, made when it is needed.
class Zygotes {
 public:
  Outcome play(const Story& story);

 private:
  std::map<Beginning, std::unique_ptr<Zygote>> all_;
};

}  // namespace sim
