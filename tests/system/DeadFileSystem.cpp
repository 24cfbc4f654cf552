#include "tests/system/DeadFileSystem.h"

#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <vector>

#include "runtime/base/Check.h"

namespace host::fakes {

namespace {

struct Greeting {
  fuse_out_header head{};
  fuse_init_out words{};
};

// One that the kernel has for whoever serves the file system.
fuse_in_header nextQuestion(int kernel) {
  std::vector<char> question(FUSE_MIN_READ_BUFFER + size_t{128} * 1024);
  const ssize_t size = read(kernel, question.data(), question.size());
  rt::check(size >= static_cast<ssize_t>(sizeof(fuse_in_header)), "the kernel asks");
  fuse_in_header head{};
  std::memcpy(&head, question.data(), sizeof head);
  return head;
}

}  // namespace

DeadFileSystem::DeadFileSystem(std::string path)
    : path_(std::move(path)), kernel_(open("/dev/fuse", O_RDWR | O_CLOEXEC)) {
  rt::check(static_cast<bool>(kernel_), "/dev/fuse opens");
  std::filesystem::create_directories(path_);
  const std::string options =
      "fd=" + std::to_string(kernel_.number()) + ",rootmode=40000,user_id=0,group_id=0";
  const int mounted = mount("dead", path_.c_str(), "fuse", 0, options.c_str());
  rt::check(mounted == 0, "a file system of FUSE is mounted");
  Greeting greeting;
  greeting.head = {sizeof greeting, 0, nextQuestion(kernel_.number()).unique};
  greeting.words.major = FUSE_KERNEL_VERSION;
  greeting.words.minor = FUSE_KERNEL_MINOR_VERSION;
  greeting.words.max_write = 4096;
  const ssize_t written = write(kernel_.number(), &greeting, sizeof greeting);
  rt::check(written == static_cast<ssize_t>(sizeof greeting), "it is greeted");
}

void DeadFileSystem::takeQuestion() const { nextQuestion(kernel_.number()); }

void DeadFileSystem::go() {
  if (!kernel_) return;
  kernel_.reset();
  umount2(path_.c_str(), MNT_DETACH);
}

}  // namespace host::fakes
