// What the daemon says to shims, and what it makes of what stands where they leave word.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "host/guests/DiskShims.h"
#include "runtime/base/Descriptor.h"
#include "runtime/base/fakes/TestFolder.h"

namespace host {
namespace {

namespace fs = std::filesystem;

class DiskShimsTest : public testing::Test {
 protected:
  DiskShimsTest() { fs::create_directories(directory); }

  // A socket at that path, at which nobody listens once what is returned has gone.
  static rt::Descriptor socketAt(const fs::path& path, int backlog = 8) {
    rt::Descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.string().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(made.number(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(made.number(), backlog), 0);
    return made;
  }
  static std::string heardAt(const rt::Descriptor& listener) {
    const rt::Descriptor client(accept4(listener.number(), nullptr, nullptr, SOCK_CLOEXEC));
    char bytes[256];
    const ssize_t size = read(client.number(), bytes, sizeof bytes);
    return {bytes, size > 0 ? static_cast<size_t>(size) : 0};
  }

  const rt::fakes::TestFolder folder;
  const fs::path run = folder.path();
  const fs::path directory = run / "vm" / "web1";
  const fs::path shim = directory / "shim.sock";
  DiskShims shims{rt::String(run.string()), "15"};
};

TEST_F(DiskShimsTest, AreAskedToStopWithinTheirTime) {
  const auto listener = socketAt(shim);
  ASSERT_TRUE(shims.askToStop("web1", std::nullopt));
  EXPECT_EQ(heardAt(listener), "{\"stop\":{\"timeout\":15}}\n");
}

TEST_F(DiskShimsTest, ThatAreNotThereCannotBeAsked) {
  EXPECT_FALSE(shims.askToStop("web1", std::nullopt));
  EXPECT_FALSE(shims.askToStop("no-such", std::nullopt));
  (void)socketAt(shim);
  EXPECT_FALSE(shims.askToStop("web1", std::nullopt)) << "nobody listens";
  EXPECT_FALSE(shims.askToStop(rt::String(std::string(200, 'x')), std::nullopt))
      << "no such path can be";
}

TEST_F(DiskShimsTest, AreToldOfTheirRow) {
  const auto listener = socketAt(shim);
  shims.rowIs("web1", {.history = "h1", .created = 7});
  EXPECT_EQ(heardAt(listener), "{\"row\":{\"store\":\"h1\",\"sequence\":7}}\n");
}

TEST_F(DiskShimsTest, AreToldOfALineWithoutAnswering) {
  const rt::EthAddr card = *rt::EthAddr::fromText("52:54:00:12:34:56");
  EXPECT_FALSE(shims.lineIs("web1", card, false)) << "nobody is there";
  const auto listener = socketAt(shim);
  EXPECT_TRUE(shims.lineIs("web1", card, false));
  EXPECT_EQ(heardAt(listener), "{\"line\":{\"card\":\"52:54:00:12:34:56\",\"up\":false}}\n");
}

TEST_F(DiskShimsTest, AreThereWhileTheyListenWhetherTheyAnswerOrNot) {
  EXPECT_FALSE(shims.isThere("web1"));
  {
    const auto listener = socketAt(shim, 0);
    for (int i = 0; i < 20; ++i) EXPECT_TRUE(shims.isThere("web1")) << i << " wait already";
  }
  EXPECT_FALSE(shims.isThere("web1"));
}

TEST_F(DiskShimsTest, AreStoppingOnceTheySaySo) {
  EXPECT_FALSE(shims.isStopping("web1"));
  const auto listener = socketAt(shim);
  const auto saying = [&](const char* state) {
    const pid_t child = fork();
    if (child == 0) {
      pollfd called{listener.number(), POLLIN, 0};
      (void)poll(&called, 1, 1000);
      const rt::Descriptor client(accept(listener.number(), nullptr, nullptr));
      const std::string greeting = R"({"version":1,"state":")" + std::string(state) + "\"}\n";
      (void)send(client.number(), greeting.data(), greeting.size(), MSG_NOSIGNAL);
      _exit(0);
    }
    return shims.isStopping("web1");
  };
  EXPECT_TRUE(saying("stopping"));
  EXPECT_FALSE(saying("running"));
}

TEST_F(DiskShimsTest, LeaveALastErrorUntilItIsRemoved) {
  EXPECT_EQ(shims.lastError("web1"), "");
  std::ofstream(directory / "last-error") << "no disk\n";
  EXPECT_EQ(shims.lastError("web1"), "no disk");
  shims.lastErrorDel("web1");
  EXPECT_EQ(shims.lastError("web1"), "");
  shims.lastErrorDel("no-such");
}

TEST_F(DiskShimsTest, LoseNoFileBehindALinkedDirectory) {
  std::ofstream(directory / "last-error") << "no disk\n";
  fs::create_directory_symlink(directory, run / "vm" / "web2");
  shims.lastErrorDel("web2");
  EXPECT_EQ(shims.lastError("web1"), "no disk");
}

TEST_F(DiskShimsTest, LoseTheirSocketsOnceNobodyListens) {
  for (const char* const name : {"shim.sock", "console.sock", "vnc.sock"})
    (void)socketAt(directory / name);
  shims.removeDeadSockets("web1");
  EXPECT_TRUE(fs::is_empty(directory));
}

TEST_F(DiskShimsTest, KeepSocketsAtWhichSomebodyListensAndWhatIsNone) {
  const auto listener = socketAt(shim);
  std::ofstream(directory / "console.sock") << "text";
  fs::create_symlink("nowhere", directory / "vnc.sock");
  std::ofstream(directory / "console.log") << "text";
  shims.removeDeadSockets("web1");
  EXPECT_TRUE(fs::exists(shim));
  EXPECT_TRUE(fs::exists(directory / "console.sock"));
  EXPECT_TRUE(fs::is_symlink(directory / "vnc.sock"));
  EXPECT_TRUE(fs::exists(directory / "console.log"));
}

// Another's socket is behind it, at which nobody listens.
TEST_F(DiskShimsTest, KeepALinkToADeadSocket) {
  (void)socketAt(run / "others");
  fs::create_symlink(run / "others", shim);
  shims.removeDeadSockets("web1");
  EXPECT_TRUE(fs::is_symlink(shim));
  EXPECT_TRUE(fs::exists(run / "others"));
}

TEST_F(DiskShimsTest, OfGuestsThatLiveKeepAllTheirSockets) {
  fs::create_directories(run / "vm" / "web2");
  (void)socketAt(shim);
  (void)socketAt(run / "vm" / "web2" / "shim.sock");
  shims.removeDeadSocketsOfAllBut({"web1"});
  EXPECT_TRUE(fs::exists(shim));
  EXPECT_FALSE(fs::exists(run / "vm" / "web2" / "shim.sock"));
}

// What others may put where a shim's words are looked for.
class WordsOfAShim : public DiskShimsTest {
 protected:
  void put(const std::string& text) const { std::ofstream(directory / "last-error") << text; }
  std::string words() const { return shims.lastError("web1").str(); }
};

TEST_F(WordsOfAShim, InAFileAreItsFirstLineOnly) {
  put("no disk\nno memory\n");
  EXPECT_EQ(words(), "no disk");
  put("no end");
  EXPECT_EQ(words(), "no end");
  put("");
  EXPECT_EQ(words(), "");
}

TEST_F(WordsOfAShim, InALongLineAreItsBegin) {
  put(std::string(100'000, 'x'));
  EXPECT_EQ(words(), std::string(512, 'x'));
}

TEST_F(WordsOfAShim, AreNoneBehindALinkWhereverItLeads) {
  std::ofstream(directory / "secret") << "the secret";
  fs::create_symlink("secret", directory / "last-error");
  EXPECT_EQ(words(), "");
  fs::remove(directory / "last-error");
  fs::create_symlink("/dev/zero", directory / "last-error");
  EXPECT_EQ(words(), "");
  fs::remove(directory / "last-error");
  fs::create_hard_link(directory / "secret", directory / "last-error");
  EXPECT_EQ(words(), "") << "another name of a file";
}

TEST_F(WordsOfAShim, AreNoneBehindALinkedDirectory) {
  put("no disk");
  fs::create_directory_symlink(directory, run / "vm" / "web2");
  EXPECT_EQ(shims.lastError("web2"), "");
}

TEST_F(WordsOfAShim, AreNoneInAPipeWhichIsNotWaitedFor) {
  ASSERT_EQ(mkfifo((directory / "last-error").c_str(), 0666), 0);
  alarm(10);
  EXPECT_EQ(words(), "");
  alarm(0);
}

TEST_F(WordsOfAShim, AreNoneInAnotherUsersFile) {
  put("what he wants us to say");
  constexpr uid_t somebody = 65534;
  const uid_t user = geteuid() == 0 ? somebody : geteuid();
  ASSERT_EQ(chown((directory / "last-error").c_str(), user, static_cast<gid_t>(-1)), 0);
  EXPECT_EQ(words(), user == geteuid() ? "what he wants us to say" : "");
}

TEST(NoShimsTest, CanBeAskedNothingAndHaveNothingToSay) {
  NoShims shims;
  EXPECT_FALSE(shims.tellFormats());
  EXPECT_FALSE(shims.askToStop("web1", std::nullopt));
  EXPECT_FALSE(shims.isThere("web1"));
  EXPECT_TRUE(shims.lineIs("web1", {}, false)) << "nobody need try again";
  EXPECT_EQ(shims.lastError("web1"), "");
  EXPECT_EQ(shims.problem("web1"), "");
  EXPECT_FALSE(shims.follow({.problem = [](const rt::String&, const rt::String&) { FAIL(); },
                             .event = [](const GuestEvent&) { FAIL(); }}));
  shims.catchUp("web1");
}

}  // namespace
}  // namespace host
