// What an operator types at a terminal, and sees there: whole screens, on a machine with a guest.
//
// A screen is in tests/data/operator, with the processes, terminals and times of a run replaced by
// words. Where one differs, what was seen is left beside the tests.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>

#include "tests/system/GuestWorld.h"
#include "tests/system/PrivateMounts.h"
#include "tests/system/Terminal.h"

namespace host::fakes {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr int columns = 100;
constexpr int lines = 30;

class OperatorSession : public testing::Test {
 protected:
  OperatorSession() {
    fs::copy_file(BOOTSECTOR, disk, fs::copy_options::overwrite_existing);
    world.start({"--shim", VMAGENT_SHIM, "--accel", "tcg", "--stop-timeout", "1"});
  }

  static std::vector<std::string> environment() {
    return {"PATH=" + fs::path(VMCTL).parent_path().string() + ":/usr/bin:/bin",
            "VMAGENT_STATE_DIR=/var/run/state", "VMAGENT_RUN_DIR=/var/run/vmagent",
            "EDITOR=/var/run/editor", "TMPDIR=/var/run",
            // For a build that looks for leaks.
            "LSAN_OPTIONS=" + std::string(std::getenv("LSAN_OPTIONS"))};
  }
  // Types it on an empty screen.
  void enter(const std::string& command) const {
    terminal.clear();
    terminal.type(command);
  }
  // Waits until the screen is that of the file.
  void expectScreen(const std::string& name) {
    std::string golden = contentOf(fs::path(SCREENS) / (name + ".screen"));
    golden.erase(golden.find_last_not_of(" \n") + 1);
    std::string seen;
    const bool isIt = terminal.shows([&](const std::string& screen) {
      seen = normalized(screen);
      return seen == golden;
    });
    if (isIt) return;
    std::ofstream(name + ".screen.actual") << seen << '\n';
    ADD_FAILURE() << name << " differs; what was seen is in "
                  << fs::current_path() / (name + ".screen.actual") << ":\n"
                  << seen << "\n--- expected:\n"
                  << golden << "\n--- the daemon:\n"
                  << world.log();
  }
  void enterAndExpect(const std::string& command, const std::string& name) {
    enter(command);
    expectScreen(name);
  }
  // It is there, and has a line.
  bool isWhole(const std::string& interface) const {
    return world.hasRow("interfaceStatus", interface, R"("present":true,"carrier":true)");
  }
  void addRunningVm() const {
    world.ctl({"add", "web1", "--disk", disk, "--memory", "32", "--enabled"});
    ASSERT_TRUE(world.saysOnConsole("web1", "READY")) << world.log();
    world.ctl({"wait", "web1", "--for", "state=Running"});
  }

  const std::string disk = "/var/run/web1.img";
  GuestWorld world;
  const Terminal terminal{columns, lines, environment()};

 private:
  // Behind a mark.
  static void replace(std::string& text, std::string mark, const std::string& what,
                      const std::string& word) {
    const size_t skipped = mark.size();
    mark += what;
    for (size_t at = 0; (at = text.find(mark, at)) != std::string::npos; at += skipped)
      text.replace(at + skipped, what.size(), word);
  }
  // A process id keeps its place in a table: that column is as wide as its head.
  std::string normalized(std::string screen) {
    constexpr size_t width = std::string_view("PROCESS").size();
    std::smatch found;
    const std::string row = world.row("vmProcess", "web1");
    if (std::regex_search(row, found, std::regex(R"("pid":(\d+))")) && found[1] != "0")
      processes_.insert(found[1]);
    for (const std::string& process : processes_) {
      std::string cell = process;
      std::string word = "PID";
      cell.resize(std::max(width, cell.size()), ' ');
      word.resize(cell.size(), ' ');
      replace(screen, "  ", cell, word);
      replace(screen, "pid ", process, "PID");
    }
    screen = std::regex_replace(screen, std::regex(R"(waiting for \d+ s)"), "waiting for N s");
    screen = withoutLoad(withoutAges(screen));
    // The firmware's words are those of the QEMU that is installed.
    screen = std::regex_replace(screen, std::regex(R"(\S*SeaBIOS[^]*?BOOTSECTOR READY)"),
                                "FIRMWARE\nBOOTSECTOR READY");
    screen = std::regex_replace(screen, std::regex(R"(/dev/pts/\d+)"), "/dev/pts/N");
    return std::regex_replace(screen, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)"), "TIME");
  }

  // What the guest takes is another each time.
  static std::string withoutLoad(std::string screen) {
    screen = std::regex_replace(screen, std::regex(R"(guest: [0-9.]+ of [0-9.]+ (.*), .* MiB)"),
                                "guest: N of N $1, N MiB");
    screen = std::regex_replace(screen, std::regex("UP +CPU%"), "UP CPU%");
    return std::regex_replace(screen, std::regex(R"((running +AGE +)[-0-9.]+ +[0-9/]+M)"), "$1N");
  }

  // An age keeps its place in a table, too.
  static std::string withoutAges(std::string screen) {
    const std::regex age(R"((ing +|pped +|yes +yes +|up +|gone +)(\d+m?\d*s)( +))");
    std::string out;
    for (std::smatch found; std::regex_search(screen, found, age); screen = found.suffix()) {
      std::string word = "AGE";
      word.resize(static_cast<size_t>(found[2].length() + found[3].length()), ' ');
      out += found.prefix().str() + found[1].str() + word;
    }
    screen = std::regex_replace(out + screen, std::regex(R"(, for \d+m?\d*s)"), ", for AGE");
    return std::regex_replace(screen, std::regex(R"(Since: +\d+m?\d*s)"), "Since:    AGE");
  }

  std::set<std::string> processes_;
};

TEST_F(OperatorSession, AddsAGuestAndSeesItStart) {
  ip("link add Ethernet1 up type veth peer name wire");
  ip("link set wire up");
  ASSERT_TRUE(waitUntil([&] { return isWhole("Ethernet1"); }));
  enterAndExpect("vmctl list", "list-nothing");
  enterAndExpect("vmctl add web1 --disk " + disk +
                     " --memory 32 --nic model=e1000,mac=52:54:00:12:34:56,intf=Ethernet1",
                 "add");
  enterAndExpect("vmctl list", "list-added");
  enterAndExpect("vmctl enable web1 --wait", "enable-done");
  enterAndExpect("vmctl list", "list-running");
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmCard", "web1/nic00", R"("up")"); }));
  enterAndExpect("vmctl show web1", "show");
  ip("link del Ethernet1");
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmCard", "web1/nic00", "gone"); }));
  ip("link add Ethernet2 up type veth peer name wire");
  ip("link set wire up");
  ASSERT_TRUE(waitUntil([&] { return isWhole("Ethernet2") && isWhole("wire"); }));
  enterAndExpect("vmctl show web1", "show-without-interface");
  enterAndExpect("vmctl interface list", "interface-list");
  ip("link del Ethernet2");
  enterAndExpect("vmctl logs web1", "logs");
  enterAndExpect("vmctl remove web1", "remove-refused");
  enterAndExpect("vmctl remove web1 --force --wait", "remove");
  enterAndExpect("vmctl list", "list-nothing");
}

TEST_F(OperatorSession, WatchesWhatAnotherOperatorChangesUntilItIsInterrupted) {
  addRunningVm();
  enterAndExpect("vmctl watch", "watch");
  world.ctl({"set", "web1", "memory=33"});
  expectScreen("watch-changed");
  terminal.press("C-c");
  expectScreen("watch-interrupted");
}

TEST_F(OperatorSession, LooksAtWhatGuestsTakeAndFindsTheTerminalAsItWas) {
  addRunningVm();
  enter("stty -a >/var/run/before");
  enter("vmctl top --interval 0.5");
  expectScreen("top");
  terminal.press("q");
  expectScreen("top-left");
  enter("stty -a >/var/run/after; echo done");
  ASSERT_TRUE(terminal.shows(
      [](const std::string& screen) { return screen.find("\ndone") != std::string::npos; }));
  EXPECT_EQ(contentOf("/var/run/before"), contentOf("/var/run/after"));
}

TEST_F(OperatorSession, LeavesTheConsoleWithTheTerminalAsItWas) {
  addRunningVm();
  enter("stty -a >/var/run/before");
  enter("vmctl console web1");
  expectScreen("console");
  terminal.press("x");
  expectScreen("console-typed");
  terminal.press("C-]");
  expectScreen("console-left");
  enter("stty -a >/var/run/after; echo done");
  ASSERT_TRUE(terminal.shows(
      [](const std::string& screen) { return screen.find("\ndone") != std::string::npos; }));
  EXPECT_THAT(contentOf("/var/run/before"), HasSubstr(" echo "));
  EXPECT_EQ(contentOf("/var/run/before"), contentOf("/var/run/after"));
}

TEST_F(OperatorSession, GetsTheEditorAgainWithWhatIsWrong) {
  world.ctl({"add", "web1", "--disk", disk, "--memory", "32"});
  // Shows what the editor is told, and makes a mistake the first time only.
  std::ofstream("/var/run/editor") << "#!/bin/sh\n"
                                      "grep '^#' \"$1\"\n"
                                      "if [ -e /var/run/edited ]; then\n"
                                      "  sed -i 's,\"web1.img\",\"/var/run/web2.img\",' \"$1\"\n"
                                      "else\n"
                                      "  sed -i 's,\"/var/run/web1.img\",\"web1.img\",' \"$1\"\n"
                                      "  touch /var/run/edited\n"
                                      "fi\n";
  fs::permissions("/var/run/editor", fs::perms::owner_all);
  enterAndExpect("vmctl edit web1", "edit");
  EXPECT_THAT(world.row("vmConfig", "web1"), HasSubstr("/var/run/web2.img"));
}

TEST_F(OperatorSession, FitsWhatIsShownToANarrowTerminal) {
  addRunningVm();
  constexpr int narrow = 60;
  terminal.columnsIs(narrow);
  enter("vmctl wait web1 --for state=Stopped --timeout 5");
  expectScreen("narrow-progress");
  expectScreen("narrow-timeout");
  world.ctl({"set", "web1", "memory=33"});
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmProblem", "web1", "memory"); }));
  enterAndExpect("vmctl list", "narrow-list");
  constexpr int tooNarrow = 40;
  terminal.columnsIs(tooNarrow);
  enterAndExpect("vmctl list", "too-narrow-list");
}

TEST_F(OperatorSession, HearsNothingOfAReaderThatIsGone) {
  world.ctl({"add", "web1", "--disk", disk, "--memory", "32"});
  enterAndExpect("vmctl list | head -0", "pipe");
  // The first line goes on until nobody reads any more.
  enterAndExpect(
      "(trap '' PIPE; while echo x 2>&-; do :; done; vmctl list; echo exit $? >&2) | head -0",
      "pipe-closed");
}

TEST_F(OperatorSession, LearnsWhatTheMachineIsMissing) {
  enter("vmctl doctor; echo exit $?");
  std::string seen;
  ASSERT_TRUE(terminal.shows([&](const std::string& screen) {
    seen = screen;
    return screen.find("\nexit ") != std::string::npos;
  }));
  for (const char* line : {"ok       QEMU: /usr/bin/qemu-system-x86_64, version ",
                           "ok       database: both halves open", "ok       vmagentd: it runs"})
    EXPECT_THAT(seen, HasSubstr(line));
  EXPECT_THAT(seen, HasSubstr("exit 0"));
}

}  // namespace
}  // namespace host::fakes

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
  const std::pair<const char*, const char*> needed[] = {{"/usr/bin/qemu-system-x86_64", "QEMU"},
                                                        {host::fakes::tmuxPath, "tmux"}};
  for (const auto& [file, what] : needed)
    if (access(file, X_OK) != 0) return Vm::fakes::leaveOut(basename(argv[0]), what);
  if (const auto needs = host::fakes::enterDaemonWorld(host::fakes::machinesQemu); !needs.empty())
    return Vm::fakes::leaveOut(basename(argv[0]), needs);
  return RUN_ALL_TESTS();
}
