#include "ctl/machine/Archive.h"

#include <sys/stat.h>

#include <cerrno>

#include "ctl/machine/LinuxMachine.h"
#include "ctl/machine/TemporaryDirectory.h"
#include "runtime/base/Exception.h"

namespace ctl {

void pack(const std::vector<PackedFile>& files, const rt::String& directory,
          const FilePlace& place) {
  NewFile archive(place);
  const TemporaryDirectory temporary;
  const rt::String folder = temporary.path() + "/" + directory;
  if (mkdir(folder.charPtr(), 0700) != 0)
    throw rt::ErrnoException(errno, folder + " cannot be made");
  for (const PackedFile& file : files) {
    NewFile part({.path = folder + "/" + file.name, .life = FilePlace::Life::passing});
    part.write(file.bytes);
    part.put();
  }
  const ProgramEnd end =
      LinuxMachine().run({"tar", "--create", "--gzip", "--owner=0", "--group=0", "--file",
                          archive.path(), "--directory", temporary.path(), directory});
  if (end.status != 0)
    throw rt::Exception("tar failed: " + (end.output.empty() ? "it cannot be run" : end.output));
  archive.put();
}

}  // namespace ctl
