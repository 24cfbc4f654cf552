// A database file as the file system has it.
#pragma once

#include <sys/types.h>

#include "statedb/sqlite/SqliteDb.h"

namespace statedb::sqlite {

// Which file a path leads to.
struct FileId {
  dev_t device = 0;
  ino_t inode = 0;

  friend bool operator==(const FileId&, const FileId&) = default;
};

// Makes sure that there is a file to open; the owner makes an empty one. Throws `missing` and what
// the file system refuses with.
void requireFile(const rt::String& file, Role role);
FileId idOf(const rt::String& file);
// Throws when the path leads elsewhere, or nowhere: what we write would be lost.
void requireSame(const rt::String& file, const FileId& id);
// Gives the files beside it the group of the database file, as far as they are ours: a member of
// the group may have made them with another primary group.
void shareCompanions(const rt::String& file);

}  // namespace statedb::sqlite
