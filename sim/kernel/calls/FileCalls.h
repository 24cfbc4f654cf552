// The calls about files, by path and by descriptor. Results are as the kernel's: -errno.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "sim/kernel/File.h"

namespace sim::sys {

// `from`: a directory's descriptor, or AT_FDCWD. `top`: what is "/" to it; null: the root.
Result open(int from, const char* path, int flags, unsigned mode, bool inRoot = false);
Result close(int number);
Result read(int number, void* to, size_t size);
Result write(int number, const void* from, size_t size);
Result readAt(int number, void* to, size_t size, off_t at);
Result writeAt(int number, const void* from, size_t size, off_t at);
Result seek(int number, off_t offset, int whence);
Result resize(int number, off_t size);
Result synchronize(int number);
// An entry of a directory; -ENOENT: there is none left.
Result nextEntry(int number, std::string& entry, struct stat& facts);

Result facts(int from, const char* path, int flags, struct stat& facts);  // as fstatat()
Result factsOf(int number, struct stat& facts);
Result access(const char* path, int mode);

Result makeDirectory(int from, const char* path, unsigned mode);
Result makeNode(const char* path, unsigned mode, dev_t device);
Result makeLink(const char* target, const char* path);
Result readLink(const char* path, char* to, size_t size);
Result removeEntry(int from, const char* path, int flags);  // as unlinkat()
Result rename(int fromDirectory, const char* from, int toDirectory, const char* to);
Result link(const char* from, const char* to);
Result modeIs(int from, const char* path, unsigned mode);
Result modeOf(int number, unsigned mode);
Result ownerIs(int from, const char* path, uid_t user, gid_t group, bool ofLink);
Result ownerOf(int number, uid_t user, gid_t group);
Result umaskIs(unsigned mask);

Result control(int number, int command, long argument);  // as fcntl()
Result lock(int number, int operation);                  // as flock()
Result duplicate(int number, int as);                    // as dup2()
Result closeRange(unsigned first, unsigned last, int flags);

}  // namespace sim::sys
