#include "sim/kernel/File.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <utility>

namespace sim {

const int File::nonBlockingFlag = O_NONBLOCK;

Result File::read(char* /*to*/, size_t /*size*/) { return -EINVAL; }
Result File::write(const char* /*from*/, size_t /*size*/) { return -EINVAL; }
unsigned File::mode() const { return S_IRUSR | S_IWUSR; }

int Descriptors::add(FilePtr file, bool closedByExec, int least) {
  int number = least;
  while (number < static_cast<int>(slots_.size()) && slots_[static_cast<size_t>(number)].file)
    ++number;
  if (number >= limit) return -EMFILE;
  set(number, std::move(file), closedByExec);
  return number;
}

const FilePtr& Descriptors::file(int number) const {
  static const FilePtr none;
  if (number < 0 || number >= static_cast<int>(slots_.size())) return none;
  return slots_[static_cast<size_t>(number)].file;
}

Descriptors::Slot* Descriptors::slot(int number) {
  return file(number) ? &slots_[static_cast<size_t>(number)] : nullptr;
}

FilePtr Descriptors::take(int number) {
  Slot* const found = slot(number);
  return found ? std::exchange(*found, {}).file : nullptr;
}

void Descriptors::set(int number, FilePtr file, bool closedByExec) {
  const auto place = static_cast<size_t>(number);
  if (place >= slots_.size()) slots_.resize(place + 1);
  slots_[place] = {std::move(file), closedByExec};
}

std::vector<int> Descriptors::numbers() const {
  std::vector<int> all;
  for (size_t i = 0; i < slots_.size(); ++i)
    if (slots_[i].file) all.push_back(static_cast<int>(i));
  return all;
}

size_t Descriptors::count() const { return numbers().size(); }

}  // namespace sim
