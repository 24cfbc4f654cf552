#include "sim/world/Installation.h"

#include <jansson.h>

#include <iostream>

#include "sim/seam/DatabaseFiles.h"

// The programs' own, under the names that the build gives them.
extern "C" {
int vmagentd_main(int argc, char** argv);
int vmagent_shim_main(int argc, char** argv);
int vmctl_main(int argc, char** argv);
}

namespace sim {

namespace {

void installProgram(Machine& machine, const char* path, Program program) {
  const InodePtr file = machine.files.fileAt(path, "program", 0755);
  // What one process did to the streams is not the next one's.
  file->program = [program = std::move(program)](int argc, char** argv) {
    std::cout.clear();
    std::cerr.clear();
    return program(argc, argv);
  };
}

}  // namespace

void install(Machine& machine) {
  databaseFilesAreTheWorlds();
  // Once for all: whoever were killed while it did that would have all others wait for it.
  json_object_seed(1);
  installProgram(machine, daemonPath, vmagentd_main);
  installProgram(machine, shimPath, vmagent_shim_main);
  installProgram(machine, commandPath, vmctl_main);
  machine.files.put("/usr/bin/qemu-system-x86_64", machine.files.at(shimPath));
}

std::vector<std::string> usualEnvironment() { return {"PATH=/usr/sbin:/usr/bin", "LANG=C.UTF-8"}; }

}  // namespace sim
