// The C library's streams: those of files are over descriptors of the world, and the standard ones
// are the process'.
#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>

#include "sim/kernel/calls/FileCalls.h"
#include "sim/seam/Name.h"

namespace {

using namespace sim;

std::map<FILE*, int>& numbers() {
  static std::map<FILE*, int> all;
  return all;
}

int cookieNumber(void* cookie) { return static_cast<int>(reinterpret_cast<intptr_t>(cookie)); }

// The library may have a lock meanwhile, which a process that is killed here would keep from all:
// so nobody's turn comes, and nobody ends.
ssize_t readCookie(void* cookie, char* to, size_t size) {
  const Result count = sys::read(cookieNumber(cookie), to, size);
  if (count >= 0) return count;
  errno = static_cast<int>(-count);
  return -1;
}
ssize_t writeCookie(void* cookie, const char* from, size_t size) {
  return ::write(cookieNumber(cookie), from, size);
}
int seekCookie(void* cookie, off64_t* offset, int whence) {
  *offset = sys::seek(cookieNumber(cookie), *offset, whence);
  return *offset < 0 ? -1 : 0;
}
int closeCookie(void* cookie) { return ::close(cookieNumber(cookie)); }

int flagsOf(const char* mode) {
  const bool both = std::strchr(mode, '+') != nullptr;
  int flags = std::strchr(mode, 'e') != nullptr ? O_CLOEXEC : 0;
  if (mode[0] == 'r') flags |= both ? O_RDWR : O_RDONLY;
  if (mode[0] == 'w') flags |= (both ? O_RDWR : O_WRONLY) | O_CREAT | O_TRUNC;
  if (mode[0] == 'a') flags |= (both ? O_RDWR : O_WRONLY) | O_CREAT | O_APPEND;
  return flags;
}

FILE* streamOf(int number, const char* mode) {
  FILE* const stream = fopencookie(reinterpret_cast<void*>(static_cast<intptr_t>(number)), mode,
                                   {readCookie, writeCookie, seekCookie, closeCookie});
  numbers()[stream] = number;
  return stream;
}

// -1: not one of the standard ones.
int standardNumber(FILE* stream) {
  if (stream == stdout) return STDOUT_FILENO;
  return stream == stderr ? STDERR_FILENO : -1;
}

bool isStandard(FILE* stream) { return inWorld() && standardNumber(stream) >= 0; }

void say(FILE* stream, const char* bytes, size_t size) {
  (void)!::write(standardNumber(stream), bytes, size);
}

}  // namespace

extern "C" {

FILE* simOpenStream(const char* path, const char* mode) asm("fopen");
FILE* simOpenStream(const char* path, const char* mode) {
  static constinit Name name("fopen");
  if (!inWorld()) return name.library(&simOpenStream)(path, mode);
  constexpr unsigned usualMode = 0666;
  const long number =
      name.call([&] { return sys::open(AT_FDCWD, path, flagsOf(mode), usualMode); }, path, mode);
  return number < 0 ? nullptr : streamOf(static_cast<int>(number), mode);
}
FILE* simOpenStream64(const char* path, const char* mode) asm("fopen64");
FILE* simOpenStream64(const char* path, const char* mode) { return simOpenStream(path, mode); }

FILE* simStreamOf(int number, const char* mode) asm("fdopen");
FILE* simStreamOf(int number, const char* mode) {
  static constinit Name name("fdopen");
  return inWorld() ? streamOf(number, mode) : name.library(&simStreamOf)(number, mode);
}

int simStreamNumber(FILE* stream) asm("fileno");
int simStreamNumber(FILE* stream) {
  static constinit Name name("fileno");
  if (isStandard(stream)) return standardNumber(stream);
  const auto found = numbers().find(stream);
  return found == numbers().end() ? name.library(&simStreamNumber)(stream) : found->second;
}

int simCloseStream(FILE* stream) asm("fclose");
int simCloseStream(FILE* stream) {
  static constinit Name name("fclose");
  numbers().erase(stream);
  return name.library(&simCloseStream)(stream);
}

int simPrintVector(FILE* stream, const char* format, va_list values) asm("vfprintf");
int simPrintVector(FILE* stream, const char* format, va_list values) {
  static constinit Name name("vfprintf");
  if (!isStandard(stream)) return name.library(&simPrintVector)(stream, format, values);
  char text[4096];
  const int size = std::vsnprintf(text, sizeof text, format, values);
  say(stream, text, std::min(static_cast<size_t>(size), sizeof text - 1));
  return size;
}
int simPrint(FILE* stream, const char* format, ...) asm("fprintf");
int simPrint(FILE* stream, const char* format, ...) {
  va_list values;
  va_start(values, format);
  const int size = simPrintVector(stream, format, values);
  va_end(values);
  return size;
}

int simPutText(const char* text, FILE* stream) asm("fputs");
int simPutText(const char* text, FILE* stream) {
  static constinit Name name("fputs");
  if (!isStandard(stream)) return name.library(&simPutText)(text, stream);
  say(stream, text, std::strlen(text));
  return 0;
}

int simPutLine(const char* text) asm("puts");
int simPutLine(const char* text) {
  return simPutText(text, stdout) < 0 || simPutText("\n", stdout) < 0 ? EOF : 0;
}

size_t simPutBytes(const void* bytes, size_t size, size_t count, FILE* stream) asm("fwrite");
size_t simPutBytes(const void* bytes, size_t size, size_t count, FILE* stream) {
  static constinit Name name("fwrite");
  if (!isStandard(stream)) return name.library(&simPutBytes)(bytes, size, count, stream);
  say(stream, static_cast<const char*>(bytes), size * count);
  return count;
}

int simPutByte(int byte, FILE* stream) asm("fputc");
int simPutByte(int byte, FILE* stream) {
  static constinit Name name("fputc");
  if (!isStandard(stream)) return name.library(&simPutByte)(byte, stream);
  const char c = static_cast<char>(byte);
  say(stream, &c, 1);
  return byte;
}
int simPutCharacter(int byte, FILE* stream) asm("putc");
int simPutCharacter(int byte, FILE* stream) { return simPutByte(byte, stream); }

int simFlush(FILE* stream) asm("fflush");
int simFlush(FILE* stream) {
  static constinit Name name("fflush");
  return inWorld() && (!stream || isStandard(stream)) ? 0 : name.library(&simFlush)(stream);
}

}  // extern "C"
