// A folder of a test's own, through which anybody may pass, and what is seen of files.
#pragma once

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace rt::fakes {

class TestFolder {
 public:
  TestFolder() {
    std::string made = (std::filesystem::temp_directory_path() / "vmagent-test-XXXXXX").string();
    if (!mkdtemp(made.data()) || chmod(made.c_str(), 0755) != 0) std::abort();
    path_ = made;
  }
  TestFolder(const TestFolder&) = delete;
  ~TestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline std::string contentOf(const std::string& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Permission bits; -1 for what is not there.
inline int modeOf(const std::string& path) {
  struct stat found {};
  return lstat(path.c_str(), &found) == 0 ? static_cast<int>(found.st_mode & 07777) : -1;
}

}  // namespace rt::fakes
