// SQLite's way to files, over the model's.
#pragma once

namespace sim {

// From now on SQLite works on files of the world only, with the locks and the shared memory that it
// uses on Linux. To be called before its first use; again does nothing.
void databaseFilesAreTheWorlds();

}  // namespace sim
