// The environment of what the agent starts.
#pragma once

#include <utility>
#include <vector>

#include "runtime/base/String.h"

namespace host {

// Gives every child that is forked an environment that is made from a list, so that nothing of the
// daemon's own reaches a guest's processes: not its service manager's socket, nor what an operator
// keeps in variables. The daemon's own environment stays. Owned by main(); one at a time.
class ChildEnvironment {
 public:
  using Values = std::vector<std::pair<rt::String, rt::String>>;

  // `common`: what every child has. To be made before there are threads.
  explicit ChildEnvironment(Values common);
  ChildEnvironment(const ChildEnvironment&) = delete;
  ~ChildEnvironment();

  // What the next children have beside that; it replaces what was said before.
  void extraIs(const Values& extra);

 private:
  const Values common_;
  std::vector<rt::String> texts_;  // "NAME=value"
  std::vector<char*> pointers_;    // to them, ended by a null
};

// What children keep of this process's environment, as far as it is set: the search path, and the
// language of error texts.
ChildEnvironment::Values keptEnvironment();

}  // namespace host
