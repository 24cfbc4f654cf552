#include "statedb/sqlite/Sentences.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "runtime/base/Text.h"

namespace statedb::sqlite {

namespace {

// Whose content is found out again by the daemon.
bool isStatus(const rt::String& file) { return file.str().ends_with("/status.db"); }

}  // namespace

Error missingDirectory(const rt::String& directory) {
  return {Trouble::missing, "directory " + directory +
                                " does not exist: start vmagentd, which makes it, or name another"};
}

Error missingFile(const rt::String& file) {
  if (isStatus(file))
    return {Trouble::missing, file + " does not exist: start or restart vmagentd, which makes it"};
  return {Trouble::missing, file +
                                " does not exist: put it back if it was lost; or start or restart "
                                "vmagentd, which makes an empty one"};
}

Error removed(const rt::String& file) {
  return {
      Trouble::missing,
      file +
          " is gone: put it back, and it is read; or restart vmagentd, which makes an empty one"};
}

Error emptied(const rt::String& file) {
  if (isStatus(file))
    return {Trouble::missing, file + " is empty: restart vmagentd, which sets it up anew"};
  return {Trouble::missing, file +
                                " is empty: put a backup in its place, and it is read; or restart "
                                "vmagentd, which sets it up anew"};
}

Error replaced(const rt::String& file) {
  return {Trouble::replaced, file + " was replaced by another file: open that anew"};
}

Error locked(const rt::String& file, rt::Seconds patience) {
  return {Trouble::locked, file + " was locked by another process for " + rt::toText(patience) +
                               " s: try again; 'fuser " + file + "' names who has it open"};
}

Error corrupt(const rt::String& file, const rt::String& detail) {
  if (isStatus(file))
    return {Trouble::corrupt, file + " is damaged or no database (" + detail +
                                  "): stop vmagentd, remove " + file +
                                  "*, and start it; nothing is lost"};
  return {Trouble::corrupt, file + " is damaged or no database (" + detail +
                                "): stop vmagentd, move the file away and restore a backup, or"
                                " save what is left as docs/operating.md says under Recovery"};
}

Error newer(const rt::String& file, int64_t version, size_t known) {
  return {Trouble::newer, file + " is of format " + rt::toText(version) +
                              ", but this program knows none above " + rt::toText(known) +
                              ": install the newer version again, or restore a backup"};
}

Error older(const rt::String& file, int64_t version, size_t known) {
  return {Trouble::older, file + " is of format " + rt::toText(version) + ", this program's is " +
                              rt::toText(known) + ": restart vmagentd, which converts it"};
}

Error foreign(const rt::String& file) {
  return {Trouble::foreign,
          file + " is another program's database: move it away, or name another directory"};
}

Error full(const rt::String& file) {
  return {Trouble::full, "no space left on the disk of " + file +
                             ": nothing was written; free some and try again"};
}

Error readOnly(const rt::String& file) {
  return {Trouble::readOnly, "the file system of " + file +
                                 " is read-only: mount it writable, or name another directory"};
}

Error denied(const rt::String& file) {
  return {Trouble::denied,
          "no permission to use " + file + ": run as root, or as a member of the file's group"};
}

Error failed(const rt::String& file, const rt::String& detail) {
  return {Trouble::failed, file + " could not be used: " + detail};
}

Error fromErrno(const rt::String& file, int error, const rt::String& detail) {
  switch (error) {
    case ENOSPC:
    case EDQUOT:
      return full(file);
    case EROFS:
      return readOnly(file);
    case EACCES:
    case EPERM:
      return denied(file);
    case ENOENT:
      // There, but what must stand beside it is not and could not be made.
      return access(file.charPtr(), F_OK) == 0 ? notWritable(file) : missingFile(file);
    default:
      return failed(file, error == 0 ? detail : detail + " (" + std::strerror(error) + ")");
  }
}

Error notWritable(const rt::String& file) {
  const bool writable = faccessat(AT_FDCWD, file.charPtr(), W_OK, AT_EACCESS) == 0 &&
                        faccessat(AT_FDCWD, directoryOf(file).charPtr(), W_OK, AT_EACCESS) == 0;
  return !writable && errno == EROFS ? readOnly(file) : denied(file);
}

rt::String directoryOf(const rt::String& file) {
  const size_t slash = file.str().rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : file.substr(0, slash);
}

}  // namespace statedb::sqlite
