#include "sim/fiber/OwnSymbols.h"

#include <cxxabi.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <tuple>

namespace sim {

namespace {

// The file of this program.
class ElfFile {
 public:
  ElfFile() {
    const int file = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    struct stat facts {};
    if (file < 0 || fstat(file, &facts) != 0)
      throw std::runtime_error("/proc/self/exe is unreadable");
    size_ = static_cast<size_t>(facts.st_size);
    bytes_ = static_cast<const char*>(mmap(nullptr, size_, PROT_READ, MAP_PRIVATE, file, 0));
    close(file);
    if (bytes_ == MAP_FAILED) throw std::runtime_error("/proc/self/exe cannot be mapped");
  }
  ElfFile(const ElfFile&) = delete;
  ~ElfFile() { munmap(const_cast<char*>(bytes_), size_); }

  // Calls `take` with each symbol and its name.
  template <class Take>
  void forEachSymbol(Take take) const {
    const auto& header = at<Elf64_Ehdr>(0);
    for (size_t i = 0; i < header.e_shnum; ++i) {
      const auto& section = at<Elf64_Shdr>(header.e_shoff + i * sizeof(Elf64_Shdr));
      if (section.sh_type != SHT_SYMTAB) continue;
      const auto& names = at<Elf64_Shdr>(header.e_shoff + section.sh_link * sizeof(Elf64_Shdr));
      for (size_t k = 0; k < section.sh_size / sizeof(Elf64_Sym); ++k) {
        const auto& symbol = at<Elf64_Sym>(section.sh_offset + k * sizeof(Elf64_Sym));
        take(symbol, &at<char>(names.sh_offset + symbol.st_name));
      }
    }
  }

 private:
  template <class T>
  const T& at(size_t offset) const {
    return *reinterpret_cast<const T*>(bytes_ + offset);
  }

  const char* bytes_;
  size_t size_;
};

// Where this program lies, and this thread's part of its variables.
struct Place {
  std::byte* base = nullptr;
  std::byte* threads = nullptr;
};

Place ownPlace() {
  Place place;
  // The first that is told of is the program.
  dl_iterate_phdr(
      [](dl_phdr_info* info, size_t, void* found) {
        *static_cast<Place*>(found) = {reinterpret_cast<std::byte*>(info->dlpi_addr),
                                       static_cast<std::byte*>(info->dlpi_tls_data)};
        return 1;
      },
      &place);
  return place;
}

std::string readable(const char* name) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> text(
      abi::__cxa_demangle(name, nullptr, nullptr, &status), std::free);
  return text ? text.get() : name;
}

void sortByAddress(std::vector<Variable>& variables) {
  std::sort(variables.begin(), variables.end(), [](const Variable& a, const Variable& b) {
    return std::tie(a.address, a.name) < std::tie(b.address, b.name);
  });
}

}  // namespace

std::vector<Variable> variablesBetween(const std::byte* begin, const std::byte* end) {
  std::vector<Variable> found;
  const Place place = ownPlace();
  ElfFile().forEachSymbol([&](const Elf64_Sym& symbol, const char* name) {
    std::byte* const address = place.base + symbol.st_value;
    if (ELF64_ST_TYPE(symbol.st_info) == STT_OBJECT && address >= begin && address < end)
      found.push_back({readable(name), address, symbol.st_size});
  });
  sortByAddress(found);
  return found;
}

std::vector<Variable> threadsVariables(const std::vector<std::string>& namespaces) {
  std::vector<Variable> found;
  const Place place = ownPlace();
  ElfFile().forEachSymbol([&](const Elf64_Sym& symbol, const char* name) {
    if (ELF64_ST_TYPE(symbol.st_info) != STT_TLS) return;
    const std::string text = readable(name);
    if (std::any_of(namespaces.begin(), namespaces.end(),
                    [&](const std::string& each) { return text.starts_with(each); }))
      found.push_back({text, place.threads + symbol.st_value, symbol.st_size});
  });
  sortByAddress(found);
  return found;
}

}  // namespace sim
