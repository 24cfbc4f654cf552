// A guest stays in its disk, whatever it writes into it.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "tests/system/GuestFixture.h"

namespace host::fakes {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::Not;

constexpr size_t sector = 512;
constexpr size_t cluster = 64 * 1024;
constexpr size_t plantedFrom = 256 * sector;  // where tests/guests/planter.S finds it
constexpr const char* secret = "SECRET OF THE HOST";
constexpr const char* hostsFile = "/var/run/hosts-own-file";

void put(std::string& bytes, size_t at, uint64_t number, size_t size) {
  for (size_t i = 0; i < size; ++i)
    bytes.at(at + i) = static_cast<char>(number >> 8 * (size - 1 - i));
}

// A qcow2 image of version 3, of 1 MiB: its first cluster has that content, and all else is in the
// file that its header leads to.
class Qcow2 {
 public:
  explicit Qcow2(const std::string& content) {
    bytes_.replace(0, 4, "QFI\xfb");
    put(bytes_, 4, 3, 4);             // version
    put(bytes_, 20, 16, 4);           // bits of a cluster
    put(bytes_, 24, 1 << 20, 8);      // size
    put(bytes_, 36, 1, 4);            // entries of the first table ...
    put(bytes_, 40, 3 * cluster, 8);  // ... there
    put(bytes_, 48, cluster, 8);      // counts
    put(bytes_, 56, 1, 4);
    put(bytes_, 96, 4, 4);     // bits of a count: 16
    put(bytes_, 100, 104, 4);  // length of the header
    put(bytes_, cluster, 2 * cluster, 8);
    for (size_t i = 0; i < clusters; ++i) put(bytes_, 2 * cluster + 2 * i, 1, 2);
    constexpr uint64_t ours = 1ULL << 63U;
    put(bytes_, 3 * cluster, ours | 4 * cluster, 8);
    put(bytes_, 4 * cluster, ours | 5 * cluster, 8);
    bytes_.replace(5 * cluster, content.size(), content);
  }
  const std::string& onABackingFile(const std::string& path) {
    put(bytes_, 8, 1024, 8);
    put(bytes_, 16, path.size(), 4);
    bytes_.replace(1024, path.size(), path);
    extension(0xe2792aca, "raw");
    return bytes_;
  }
  // The tables lead into that file, too, as they stand: its clusters are those of the disk.
  const std::string& onAnExternalFile(const std::string& path) {
    put(bytes_, 72, 4, 8);  // incompatible: an external data file ...
    put(bytes_, 88, 2, 8);  // ... which is raw
    put(bytes_, 4 * cluster, 1ULL << 63U | 0, 8);
    put(bytes_, 4 * cluster + 8, 1ULL << 63U | cluster, 8);
    extension(0x44415441, path);
    return bytes_;
  }

 private:
  static constexpr size_t clusters = 6;

  void extension(uint32_t kind, const std::string& text) {
    put(bytes_, 104, kind, 4);
    put(bytes_, 108, text.size(), 4);
    bytes_.replace(112, text.size(), text);
  }

  std::string bytes_ = std::string(clusters * cluster, '\0');
};

class GuestsDisk : public GuestFixture {
 protected:
  // A file of root's that begins like a disk, its second cluster with the secret.
  static void makeHostsFile() {
    std::string bytes(1 << 20, '\0');
    const std::string reader = contentOf(READER);
    bytes.replace(0, reader.size(), reader);
    bytes.replace(cluster, std::string_view(secret).size(), secret);
    std::ofstream(hostsFile, std::ios::binary) << bytes;
    fs::permissions(hostsFile, fs::perms(0600));
  }
  // A raw disk whose guest copies that over its beginning.
  void startPlanter(const std::string& planted) {
    std::string disk(4 << 20, '\0');
    const std::string planter = contentOf(PLANTER);
    disk.replace(0, planter.size(), planter);
    disk.replace(plantedFrom, planted.size(), planted);
    std::ofstream("/var/run/web1.img", std::ios::binary) << disk;
    world.ctl({"add", "web1", "--disk", "/var/run/web1.img", "--memory", "32", "--enabled"});
    ASSERT_TRUE(world.saysOnConsole("web1", "PLANTED")) << world.log();
    ASSERT_EQ(contentOf("/var/run/web1.img").substr(0, 4), "QFI\xfb");
  }
  void expectGuestInItsDisk() const {
    const std::string words = world.commandLine("web1");
    EXPECT_THAT(words, HasSubstr(",format=raw"));
    for (const pid_t qemu : world.qemus("web1"))
      for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(qemu) + "/fd"))
        EXPECT_NE(fs::read_symlink(entry), hostsFile);
    EXPECT_THAT(world.console("web1"), Not(HasSubstr(secret)));
    EXPECT_EQ(contentOf(hostsFile).substr(cluster, std::string_view(secret).size()), secret);
  }
};

TEST_F(GuestsDisk, IsAllThatItReadsThoughItMakesTheDiskBeginAsAnImageOnAFileOfTheHost) {
  makeHostsFile();
  start();
  startPlanter(Qcow2(contentOf(READER)).onABackingFile(hostsFile));
  world.ctl({"restart", "web1", "--wait"});
  expectGuestInItsDisk();
  EXPECT_THAT(world.ctl({"show", "web1"}), HasSubstr("opened as raw, as it was named, though it "
                                                     "begins as qcow2 does"));
}

TEST_F(GuestsDisk, IsAllThatItWritesThoughItMakesTheDiskBeginAsAnImageInAFileOfTheHost) {
  makeHostsFile();
  start();
  startPlanter(Qcow2(contentOf(READER)).onAnExternalFile(hostsFile));
  world.ctl({"restart", "web1", "--wait"});
  expectGuestInItsDisk();
}

// The same with the guest of a foreign program's row, of which the daemon alone knows what it was.
TEST_F(GuestsDisk, StaysWhatItWasWhenTheNextDaemonStartsIt) {
  makeHostsFile();
  start();
  startPlanter(Qcow2(contentOf(READER)).onABackingFile(hostsFile));
  world.ctl({"disable", "web1", "--wait"});
  world.end(SIGKILL);
  start();
  world.ctl({"enable", "web1", "--wait"});
  expectGuestInItsDisk();
}

TEST_F(GuestsDisk, OfQcow2IsOneWithoutASecondFile) {
  makeHostsFile();
  start();
  std::ofstream("/var/run/web1.img", std::ios::binary)
      << Qcow2(contentOf(READER)).onABackingFile(hostsFile);
  const Ended added =
      world.vmctl({"add", "web1", "--disk", "/var/run/web1.img", "--memory", "32", "--enabled"});
  EXPECT_THAT(added.err, HasSubstr("has a backing file"));
  EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", "web1", "has a backing file"); }));
  EXPECT_THAT(world.qemus("web1"), testing::IsEmpty());
  std::string plain = Qcow2(contentOf(READER)).onABackingFile(hostsFile);
  put(plain, 8, 0, 8);
  std::ofstream("/var/run/web1.img", std::ios::binary) << plain;
  EXPECT_TRUE(world.saysOnConsole("web1", "READS"));
  EXPECT_THAT(world.commandLine("web1"), HasSubstr(",format=qcow2"));
}

}  // namespace
}  // namespace host::fakes
