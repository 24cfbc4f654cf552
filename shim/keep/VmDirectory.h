// The files of one VM: RUN/vm/NAME.
#pragma once

#include <sys/types.h>

#include <string>

#include "guest/VmFiles.h"
#include "runtime/base/Descriptor.h"
#include "shim/base/Place.h"

namespace shim {

// Makes the directory, and RUN/vm, with mode 2750 and the group of RUN, which must be there: that
// is who may read the guest's files and connect to its sockets. To write there is ours alone, for
// what others put there we would open, and write to, as root. Of an earlier version's directory, in
// which they could, the mode is set right. Throws Failure.
class VmDirectory {
 public:
  VmDirectory(const std::string& runDir, const std::string& name);

  std::string file(const char* name) const { return path_ + "/" + name; }
  // The same, to be opened by.
  Place place(const char* name) const { return {directory_.number(), name, file(name)}; }

  // One beside all VMs' directories, where no VM's can be: their names begin otherwise.
  Place sharedPlace(const std::string& name) const {
    return {directory_.number(), "../" + name, path_ + "/../" + name};
  }

  // The last word of a run that went wrong. A new run begins without.
  void lastErrorIs(const std::string& text) const { lineIs(guest::lastErrorFile, text); }
  void lastErrorDel() const { fileDel(guest::lastErrorFile); }
  // What is wrong with a guest that runs, on one line; without text: nothing is.
  void problemIs(const std::string& text) const;
  void fileDel(const char* name) const;

 private:
  void lineIs(const char* name, const std::string& text) const;

  std::string path_;
  rt::Descriptor directory_;
};

// A VM's lock, in two halves of one file.
//
// The VM's: flock(), held by the open file, which the shim and its QEMU share. So it is held until
// the last of them is gone, and there can be no second QEMU. The keeper's: a record lock, held by
// the shim's process alone, and given back when its guest is about to end, at the latest by its
// death. So a successor can tell a guest that runs from one whose end is worth waiting for.
//
// The file is ours alone: whoever can read it can hold it locked. QEMU, which may be its guest's by
// then, has it for reading only, and cannot fill the memory that the file is in.
class VmLock {
 public:
  explicit VmLock(const Place& place);

  // Takes the keeper's half; false when another keeps the guest, or waits to keep the next.
  bool takeKeeping();
  // That process; 0 for none.
  pid_t keeper() const;
  void endKeeping();
  // Takes the VM's half; false while a QEMU or its shim has it.
  bool takeVm();
  // For QEMU to inherit.
  int number() const { return vms_.number(); }

 private:
  rt::Descriptor keepers_;
  rt::Descriptor vms_;
};

}  // namespace shim
