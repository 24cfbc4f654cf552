#include "sim/seam/DatabaseFiles.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <new>
#include <string>

#include "sim/kernel/InodeFile.h"
#include "sim/kernel/calls/Common.h"
#include "sim/kernel/calls/FileCalls.h"
#include "sim/kernel/calls/WaitCalls.h"
#include "sim/seam/Name.h"

namespace sim {

namespace {

// Bytes of a database that only stand for its locks; far behind any content.
constexpr off_t pendingByte = 0x40000000;
constexpr off_t reservedByte = pendingByte + 1;
constexpr off_t sharedFirst = pendingByte + 2;
constexpr off_t sharedSize = 510;
// In the file of the shared memory: its locks, and the one of whoever has it open.
constexpr off_t memoryLocks = (22 + SQLITE_SHM_NLOCK) * 4;
constexpr off_t memoryInUse = memoryLocks + SQLITE_SHM_NLOCK;

struct flock lockOf(short type, off_t start, off_t length) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = start;
  lock.l_len = length;
  return lock;
}

// One open file of SQLite's. It lies in memory of SQLite's, which frees it without a destructor.
struct File3 : sqlite3_file {
  std::string* path;
  int number;
  int level;   // of its lock
  int memory;  // descriptor of the shared memory's file; -1: none
  bool isDatabase;
};

File3& from(sqlite3_file* file) { return *static_cast<File3*>(file); }

long setLock(int number, short type, off_t start, off_t length) {
  static constinit Name name("fcntl (lock)");
  struct flock lock = lockOf(type, start, length);
  return name.call([&] { return sys::control(number, F_SETLK, reinterpret_cast<long>(&lock)); },
                   number, type, start, length);
}

int busyOr(int error) {
  return errno == EAGAIN || errno == EACCES || errno == EBUSY || errno == EINTR ? SQLITE_BUSY
                                                                                : error;
}

int closeFile(sqlite3_file* opened) {
  static constinit Name name("close");
  File3& file = from(opened);
  if (file.number >= 0) name.call([&] { return sys::close(file.number); }, file.number);
  delete file.path;
  file.path = nullptr;
  return SQLITE_OK;
}

int readFile(sqlite3_file* opened, void* to, int size, sqlite3_int64 at) {
  static constinit Name name("pread64");
  const int number = from(opened).number;
  const auto wanted = static_cast<size_t>(size);
  const long count =
      name.call([&] { return sys::readAt(number, to, wanted, at); }, number, size, at);
  if (count < 0) return errno == EIO ? SQLITE_IOERR_CORRUPTFS : SQLITE_IOERR_READ;
  if (count == size) return SQLITE_OK;
  std::memset(static_cast<char*>(to) + count, 0, wanted - static_cast<size_t>(count));
  errno = 0;
  return SQLITE_IOERR_SHORT_READ;
}

int writeFile(sqlite3_file* opened, const void* bytes, int size, sqlite3_int64 at) {
  static constinit Name name("pwrite64");
  const int number = from(opened).number;
  const auto* rest = static_cast<const char*>(bytes);
  auto left = static_cast<size_t>(size);
  while (left > 0) {
    const long count =
        name.call([&] { return sys::writeAt(number, rest, left, at); }, number, left, at);
    if (count < 0) return errno == ENOSPC ? SQLITE_FULL : SQLITE_IOERR_WRITE;
    if (count == 0) return SQLITE_FULL;
    rest += count;
    at += count;
    left -= static_cast<size_t>(count);
  }
  return SQLITE_OK;
}

int truncateFile(sqlite3_file* opened, sqlite3_int64 size) {
  static constinit Name name("ftruncate64");
  const int number = from(opened).number;
  return name.call([&] { return sys::resize(number, size); }, number, size) == 0
             ? SQLITE_OK
             : SQLITE_IOERR_TRUNCATE;
}

int syncFile(sqlite3_file* opened, int /*flags*/) {
  static constinit Name name("fdatasync");
  const int number = from(opened).number;
  return name.call([&] { return sys::synchronize(number); }, number) == 0 ? SQLITE_OK
                                                                          : SQLITE_IOERR_FSYNC;
}

int sizeOfFile(sqlite3_file* opened, sqlite3_int64* size) {
  static constinit Name name("fstat64");
  struct stat facts {};
  const int number = from(opened).number;
  if (name.call([&] { return sys::factsOf(number, facts); }, number) != 0)
    return SQLITE_IOERR_FSTAT;
  *size = facts.st_size;
  return SQLITE_OK;
}

// The steps to it are as on every Unix: a reader passes the pending byte, so that a writer who
// waits there is not kept out by ever new readers.
int takeShared(File3& file) {
  if (setLock(file.number, F_RDLCK, pendingByte, 1) != 0) return busyOr(SQLITE_IOERR_LOCK);
  const bool got = setLock(file.number, F_RDLCK, sharedFirst, sharedSize) == 0;
  const int result = got ? SQLITE_OK : busyOr(SQLITE_IOERR_LOCK);
  if (setLock(file.number, F_UNLCK, pendingByte, 1) != 0) return SQLITE_IOERR_UNLOCK;
  return result;
}

int lockFile(sqlite3_file* opened, int level) {
  File3& file = from(opened);
  if (file.level >= level) return SQLITE_OK;
  if (level == SQLITE_LOCK_SHARED) {
    const int result = takeShared(file);
    if (result == SQLITE_OK) file.level = level;
    return result;
  }
  if (level == SQLITE_LOCK_RESERVED) {
    if (setLock(file.number, F_WRLCK, reservedByte, 1) != 0) return busyOr(SQLITE_IOERR_LOCK);
    file.level = level;
    return SQLITE_OK;
  }
  if (file.level < SQLITE_LOCK_PENDING) {
    if (setLock(file.number, F_WRLCK, pendingByte, 1) != 0) return busyOr(SQLITE_IOERR_LOCK);
    file.level = SQLITE_LOCK_PENDING;
  }
  if (level == SQLITE_LOCK_PENDING) return SQLITE_OK;
  if (setLock(file.number, F_WRLCK, sharedFirst, sharedSize) != 0) return busyOr(SQLITE_IOERR_LOCK);
  file.level = level;
  return SQLITE_OK;
}

int unlockFile(sqlite3_file* opened, int level) {
  File3& file = from(opened);
  if (file.level <= level) return SQLITE_OK;
  if (file.level > SQLITE_LOCK_SHARED) {
    if (level == SQLITE_LOCK_SHARED && setLock(file.number, F_RDLCK, sharedFirst, sharedSize) != 0)
      return SQLITE_IOERR_RDLOCK;
    if (setLock(file.number, F_UNLCK, pendingByte, 2) != 0) return SQLITE_IOERR_UNLOCK;
  }
  if (level == SQLITE_LOCK_NONE && setLock(file.number, F_UNLCK, 0, 0) != 0)
    return SQLITE_IOERR_UNLOCK;
  file.level = level;
  return SQLITE_OK;
}

int isReserved(sqlite3_file* opened, int* is) {
  static constinit Name name("fcntl (test)");
  const int number = from(opened).number;
  struct flock lock = lockOf(F_WRLCK, reservedByte, 1);
  if (name.call([&] { return sys::control(number, F_GETLK, reinterpret_cast<long>(&lock)); },
                number) != 0)
    return SQLITE_IOERR_CHECKRESERVEDLOCK;
  *is = from(opened).level > SQLITE_LOCK_SHARED || lock.l_type != F_UNLCK ? 1 : 0;
  return SQLITE_OK;
}

// Whether its name is another file's by now, or nobody's.
bool hasMoved(const File3& file) {
  static constinit Name name("stat");
  struct stat own {};
  struct stat found {};
  (void)sys::factsOf(file.number, own);
  const std::string& path = *file.path;
  return name.call([&] { return sys::facts(AT_FDCWD, path.c_str(), 0, found); }, path.c_str()) !=
             0 ||
         found.st_ino != own.st_ino;
}

int controlFile(sqlite3_file* opened, int operation, void* argument) {
  File3& file = from(opened);
  switch (operation) {
    case SQLITE_FCNTL_LOCKSTATE:
      *static_cast<int*>(argument) = file.level;
      return SQLITE_OK;
    case SQLITE_FCNTL_LAST_ERRNO:
      *static_cast<int*>(argument) = errno;
      return SQLITE_OK;
    case SQLITE_FCNTL_HAS_MOVED:
      *static_cast<int*>(argument) = file.isDatabase && hasMoved(file) ? 1 : 0;
      return SQLITE_OK;
    case SQLITE_FCNTL_SIZE_HINT:
    case SQLITE_FCNTL_CHUNK_SIZE:
      return SQLITE_OK;
    default:
      return SQLITE_NOTFOUND;
  }
}

int sectorSize(sqlite3_file* /*file*/) { return 4096; }
int characteristics(sqlite3_file* /*file*/) { return SQLITE_IOCAP_POWERSAFE_OVERWRITE; }

// The first of all who opens it finds nothing in it, whatever was there.
int openMemory(File3& file) {
  static constinit Name name("open64");
  const std::string path = *file.path + "-shm";
  struct stat database {};
  (void)sys::factsOf(file.number, database);
  const long number = name.call(
      [&] {
        return sys::open(AT_FDCWD, path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC,
                         database.st_mode & 0777U);
      },
      path.c_str());
  if (number < 0) return SQLITE_CANTOPEN;
  file.memory = static_cast<int>(number);
  (void)sys::ownerOf(file.memory, database.st_uid, database.st_gid);
  if (setLock(file.memory, F_WRLCK, memoryInUse, 1) == 0) {
    sys::fileOf(file.memory)->inode()->sharedMemory.clear();
    if (sys::resize(file.memory, 3) != 0) return SQLITE_IOERR_SHMOPEN;
  }
  return setLock(file.memory, F_RDLCK, memoryInUse, 1) == 0 ? SQLITE_OK
                                                            : busyOr(SQLITE_IOERR_SHMLOCK);
}

int mapMemory(sqlite3_file* opened, int region, int size, int extend, void volatile** to) {
  static constinit Name name("mmap");
  File3& file = from(opened);
  *to = nullptr;
  if (file.memory < 0)
    if (const int result = openMemory(file); result != SQLITE_OK) return result;
  auto& regions = sys::fileOf(file.memory)->inode()->sharedMemory;
  const auto place = static_cast<size_t>(region);
  if (regions.size() <= place && extend == 0) return SQLITE_OK;
  const auto bytes = static_cast<size_t>(size);
  const off_t end = (region + 1) * static_cast<off_t>(size);
  if (regions.size() <= place &&
      name.call([&] { return sys::resize(file.memory, end); }, region) != 0)
    return SQLITE_IOERR_SHMSIZE;
  while (regions.size() <= place) regions.push_back(std::make_unique<char[]>(bytes));
  *to = regions[place].get();
  return SQLITE_OK;
}

int lockMemory(sqlite3_file* opened, int offset, int count, int flags) {
  const short type = (flags & SQLITE_SHM_UNLOCK) != 0      ? short{F_UNLCK}
                     : (flags & SQLITE_SHM_EXCLUSIVE) != 0 ? short{F_WRLCK}
                                                           : short{F_RDLCK};
  return setLock(from(opened).memory, type, memoryLocks + offset, count) == 0 ? SQLITE_OK
                                                                              : SQLITE_BUSY;
}

void memoryBarrier(sqlite3_file* /*file*/) {}

int unmapMemory(sqlite3_file* opened, int remove) {
  static constinit Name name("close");
  static constinit Name removing("unlink");
  File3& file = from(opened);
  if (file.memory < 0) return SQLITE_OK;
  const int number = std::exchange(file.memory, -1);
  const std::string path = *file.path + "-shm";
  if (remove != 0)
    removing.call([&] { return sys::removeEntry(AT_FDCWD, path.c_str(), 0); }, path.c_str());
  name.call([&] { return sys::close(number); }, number);
  return SQLITE_OK;
}

const sqlite3_io_methods methods = {
    2,          closeFile,     readFile,    writeFile,   truncateFile, syncFile,        sizeOfFile,
    lockFile,   unlockFile,    isReserved,  controlFile, sectorSize,   characteristics, mapMemory,
    lockMemory, memoryBarrier, unmapMemory, nullptr,     nullptr};

// A companion of a database has its mode and its owner.
unsigned modeFor(const std::string& path, int flags, struct stat& owner) {
  constexpr unsigned usual = 0644;
  if ((flags & (SQLITE_OPEN_WAL | SQLITE_OPEN_MAIN_JOURNAL)) == 0) return usual;
  const std::string database = path.substr(0, path.rfind('-'));
  if (sys::facts(AT_FDCWD, database.c_str(), 0, owner) != 0) return usual;
  return owner.st_mode & 0777U;
}

int openFile(sqlite3_vfs* /*vfs*/, const char* path, sqlite3_file* to, int flags, int* outFlags) {
  static constinit Name name("open64");
  auto* const file = new (to) File3{};
  file->pMethods = nullptr;
  file->memory = -1;
  if (!path) return SQLITE_CANTOPEN;  // temporary ones are in memory
  const bool writes = (flags & SQLITE_OPEN_READWRITE) != 0;
  const int create = ((flags & SQLITE_OPEN_CREATE) != 0 ? O_CREAT : 0) |
                     ((flags & SQLITE_OPEN_EXCLUSIVE) != 0 ? O_EXCL : 0);
  struct stat owner {};
  const unsigned mode = modeFor(path, flags, owner);
  const auto attempt = [&](int access) {
    return name.call(
        [&] { return sys::open(AT_FDCWD, path, access | O_CLOEXEC | O_NOFOLLOW, mode); }, path,
        access);
  };
  long number = attempt(writes ? O_RDWR | create : O_RDONLY);
  bool isReadOnly = !writes;
  if (number < 0 && writes && errno != EISDIR && errno != ENOENT) {
    const int error = errno;
    number = attempt(O_RDONLY);
    isReadOnly = true;
    if (number < 0) errno = error;
  }
  if (number < 0) return SQLITE_CANTOPEN;
  if (create != 0 && owner.st_mode != 0)
    (void)sys::ownerOf(static_cast<int>(number), owner.st_uid, owner.st_gid);
  file->number = static_cast<int>(number);
  file->path = new std::string(path);
  file->isDatabase = (flags & SQLITE_OPEN_MAIN_DB) != 0;
  file->pMethods = &methods;
  if (outFlags)
    *outFlags = isReadOnly ? (flags & ~SQLITE_OPEN_READWRITE) | SQLITE_OPEN_READONLY : flags;
  return SQLITE_OK;
}

int deleteFile(sqlite3_vfs* /*vfs*/, const char* path, int /*syncDirectory*/) {
  static constinit Name name("unlink");
  if (name.call([&] { return sys::removeEntry(AT_FDCWD, path, 0); }, path) == 0) return SQLITE_OK;
  return errno == ENOENT ? SQLITE_IOERR_DELETE_NOENT : SQLITE_IOERR_DELETE;
}

int accessFile(sqlite3_vfs* /*vfs*/, const char* path, int flags, int* result) {
  static constinit Name name("stat64");
  struct stat facts {};
  const bool isThere = name.call([&] { return sys::facts(AT_FDCWD, path, 0, facts); }, path) == 0;
  const bool hasContent = !S_ISREG(facts.st_mode) || facts.st_size > 0;
  *result = isThere && (flags != SQLITE_ACCESS_EXISTS || hasContent) ? 1 : 0;
  return SQLITE_OK;
}

int fullPath(sqlite3_vfs* /*vfs*/, const char* path, int size, char* to) {
  sqlite3_snprintf(size, to, "%s", path);
  return SQLITE_OK;
}

int randomness(sqlite3_vfs* /*vfs*/, int size, char* to) {
  Stream& choice = machine().choices.stream("database");
  constexpr uint64_t values = 256;
  for (int i = 0; i < size; ++i) to[i] = static_cast<char>(choice.below(values));
  return size;
}

int sleepFor(sqlite3_vfs* /*vfs*/, int microseconds) {
  static constinit Name name("usleep");
  name.call([&] { return sys::pause(std::chrono::microseconds(microseconds)); }, microseconds);
  return microseconds;
}

int currentTime(sqlite3_vfs* /*vfs*/, sqlite3_int64* time) {
  constexpr sqlite3_int64 unixEpoch = 24405875LL * 8640000LL;
  constexpr sqlite3_int64 millisecondsASecond = 1000;
  const timespec now = machine().clock.timeOfDay();
  *time = unixEpoch + now.tv_sec * millisecondsASecond + now.tv_nsec / 1'000'000;
  return SQLITE_OK;
}

int lastError(sqlite3_vfs* /*vfs*/, int /*size*/, char* /*text*/) { return errno; }

}  // namespace

void databaseFilesAreTheWorlds() {
  static sqlite3_vfs files{};
  if (files.iVersion != 0) return;
  files.iVersion = 2;
  files.szOsFile = sizeof(File3);
  files.mxPathname = PATH_MAX;
  files.zName = "world";
  files.xOpen = openFile;
  files.xDelete = deleteFile;
  files.xAccess = accessFile;
  files.xFullPathname = fullPath;
  files.xRandomness = randomness;
  files.xSleep = sleepFor;
  files.xCurrentTimeInt64 = currentTime;
  files.xGetLastError = lastError;
  // What a killed process holds it would hold for ever.
  sqlite3_config(SQLITE_CONFIG_SINGLETHREAD);
  sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  sqlite3_initialize();
  sqlite3_vfs_register(&files, 1);
}

}  // namespace sim
