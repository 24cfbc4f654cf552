// The disk image of a guest: what its shim opens, and what QEMU is given of it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>

#include "shim/fakes/ShimProcess.h"
#include "shim/fakes/ShimWorld.h"

namespace shim {
namespace {

namespace fs = std::filesystem;

using fakes::AgentClient;
using fakes::comesToHold;
using fakes::exited;
using fakes::ShimProcess;
using rt::fakes::contentOf;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

class ShimImage : public fakes::ShimWorld {
 protected:
  std::unique_ptr<ShimProcess> startWith(const char* format) const {
    auto told = environment();
    told["VMAGENT_IMAGE_FORMAT"] = format;
    return std::make_unique<ShimProcess>(VMAGENT_SHIM, arguments(), told);
  }
  // What the process has open.
  static std::vector<std::string> openFiles(pid_t process) {
    std::vector<std::string> files;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(process) + "/fd"))
      files.push_back(fs::read_symlink(entry, error).string());
    return files;
  }
  // Writes into the image as its guest may.
  void write(std::string_view bytes) const {
    const rt::Descriptor disk(open((folder / "disk.img").c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_EQ(pwrite(disk.number(), bytes.data(), bytes.size(), 0),
              static_cast<ssize_t>(bytes.size()));
  }
};

constexpr std::string_view backedQcow2("QFI\xfb\0\0\0\3\0\0\0\0\0\0\1\0", 16);

TEST_F(ShimImage, IsGivenToQemuOpenAndIsKeptOpenByNobodyElse) {
  const auto shim = startWith("raw");
  AgentClient agent(monitor());
  agent.bringUp();
  const std::string words = contentOf("/proc/" + std::to_string(shim->qemu()) + "/cmdline");
  EXPECT_THAT(words, AllOf(HasSubstr("file=/dev/fdset/1"), HasSubstr(",format=raw"),
                           Not(HasSubstr("disk.img"))));
  EXPECT_THAT(openFiles(shim->qemu()), Contains(HasSubstr("disk.img")));
  EXPECT_THAT(openFiles(shim->pid()), Not(Contains(HasSubstr("disk.img"))))
      << "QEMU's locks would outlive it";
  EXPECT_TRUE(comesToHold(file("shim.log"), "/dev/fdset/1 is " + (folder / "disk.img") +
                                                ", a disk image, opened as raw"));
}

TEST_F(ShimImage, ThatItsGuestMadeBeginAsQcow2IsRawAllTheSame) {
  write(backedQcow2);
  const auto shim = startWith("raw");
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_THAT(contentOf("/proc/" + std::to_string(shim->qemu()) + "/cmdline"),
              HasSubstr(",format=raw"));
}

TEST_F(ShimImage, ThatNamesASecondFileIsRefused) {
  write(backedQcow2);
  const auto shim = startWith("qcow2");
  EXPECT_EQ(exited(shim->wait()), 1);
  EXPECT_THAT(contentOf(file("last-error")), HasSubstr("must need no second file"));
}

TEST_F(ShimImage, OfWhichNobodySaysWhatItIsIsNotGuessed) {
  write(backedQcow2);
  const auto shim = start();
  EXPECT_EQ(exited(shim->wait()), 1);
  EXPECT_THAT(contentOf(file("last-error")), HasSubstr("VMAGENT_IMAGE_FORMAT must say"));
}

TEST_F(ShimImage, ThatIsMissingIsToldAndLeavesNothing) {
  const auto shim = start(fakes::realQemu, 0, "gone.img");
  EXPECT_EQ(exited(shim->wait()), 1);
  EXPECT_EQ(contentOf(file("last-error")), "the disk image '" + (folder / "gone.img") +
                                               "' cannot be opened: No such file or directory\n");
  EXPECT_FALSE(fs::exists(monitor()));
  EXPECT_FALSE(fs::exists(file("shim.sock")));
  EXPECT_FALSE(fs::exists(file("console.sock")));
}

}  // namespace
}  // namespace shim
