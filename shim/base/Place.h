// Where a file stands.
#pragma once

#include <fcntl.h>

#include <string>
#include <utility>

namespace shim {

// A name in a directory that is held open: so it is reached whatever becomes of the names on the
// way there. Or a path by itself.
struct Place {
  Place(std::string of) : name(of), path(std::move(of)) {}
  Place(const char* of) : Place(std::string(of)) {}
  Place(int in, std::string called, std::string known)
      : directory(in), name(std::move(called)), path(std::move(known)) {}

  int directory = AT_FDCWD;  // not owned
  std::string name;
  std::string path;  // for people
};

}  // namespace shim
