// What this program's own symbol table says of variables.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sim {

struct Variable {
  std::string name;  // as people write it
  std::byte* address;
  size_t size;
};

// Of this program, in the order of their addresses.
std::vector<Variable> variablesBetween(const std::byte* begin, const std::byte* end);

// This thread's, of all variables that each thread has of its own and whose names begin with one of
// `namespaces`, as "rt::".
std::vector<Variable> threadsVariables(const std::vector<std::string>& namespaces);

}  // namespace sim
