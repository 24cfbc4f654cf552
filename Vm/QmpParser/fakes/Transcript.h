// Recorded conversations with QEMU: tests/data/qmp, whose README says what they are.
#pragma once

#include <map>
#include <ostream>
#include <string>
#include <vector>

namespace Vm::fakes {

// What QEMU sent over one connection, in the pieces in which it was recorded, one message each.
using Received = std::vector<std::string>;

struct Transcript {
  std::string name;                             // of the file, without ".jsonl"
  std::map<std::string, Received> connections;  // by the connection's name in the file

  friend std::ostream& operator<<(std::ostream& out, const Transcript& transcript) {
    return out << transcript.name;
  }
};

// All transcripts in `folder`, by name. Throws std::runtime_error for a line that is none.
std::vector<Transcript> transcripts(const std::string& folder);

}  // namespace Vm::fakes
