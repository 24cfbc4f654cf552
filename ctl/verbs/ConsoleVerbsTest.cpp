#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <thread>

#include "ctl/fakes/VmctlFixture.h"
#include "ctl/machine/ConsoleSession.h"
#include "runtime/base/Exception.h"
#include "runtime/base/fakes/TestFolder.h"

namespace ctl {
namespace {

using fakes::Answer;

class ConsoleVerb : public fakes::VmctlFixture {
 protected:
  ConsoleVerb() {
    inIsTerminal_ = true;
    putVm("web1", true);
    putRunning("web1");
  }
  void ptyIs(const rt::String& path) {
    put("vmStatus", "web1",
        R"({"enabled":true,"state":"Running","consolePtyPath":")" + path +
            R"(","cmdStatusStr":""})");
  }
};

TEST_F(ConsoleVerb, GivesThePtyOfTheStatus) {
  ptyIs("pty:/dev/pts/7");
  EXPECT_EQ(vmctl("console web1"),
            (Answer{0, "", "web1: this is its console; Ctrl-] leaves it\n\nweb1: left\n"}));
  EXPECT_EQ(heldPty_, "/dev/pts/7");
  ptyIs("/dev/pts/8");
  vmctl("console web1");
  EXPECT_EQ(heldPty_, "/dev/pts/8");
}

TEST_F(ConsoleVerb, SaysThatTheGuestEnded) {
  holdConsole_ = [] { return ConsoleEnd::guestEnd; };
  EXPECT_EQ(vmctl("console web1"),
            (Answer{0, "",
                    "web1: this is its console; Ctrl-] leaves it\n\nweb1: its console has "
                    "ended\n"}));
}

TEST_F(ConsoleVerb, NeedsATerminal) {
  inIsTerminal_ = false;
  EXPECT_EQ(vmctl("console web1"),
            (Answer{2, "",
                    "vmctl: 'console' needs a terminal as standard input; 'vmctl logs -f web1' "
                    "shows what the guest writes without one\n"}));
  EXPECT_EQ(heldPty_, "");
}

TEST_F(ConsoleVerb, NeedsAGuestThatRuns) {
  EXPECT_EQ(vmctl("console web2"),
            (Answer{3, "", "vmctl: web2: there is no such VM; did you mean 'web1'?\n"}));
  ptyIs("");
  EXPECT_EQ(vmctl("console web1"),
            (Answer{4, "",
                    "vmctl: web1: the guest's console is not known yet: try again in a moment\n"}));
  putOff("web1");
  EXPECT_EQ(vmctl("console web1"),
            (Answer{4, "",
                    "vmctl: web1: no guest runs, so there is no console; 'vmctl logs web1' shows "
                    "what one wrote\n"}));
}

TEST_F(ConsoleVerb, OpensNoTerminalThatMayBeSomebodyElses) {
  daemonRuns_ = false;
  EXPECT_EQ(vmctl("console web1"),
            (Answer{1, "",
                    "vmctl: web1: vmagentd is not running, so whether /dev/pts/4 still is its "
                    "console is not known: start vmagentd\n"}));
  EXPECT_EQ(heldPty_, "");
}

TEST_F(ConsoleVerb, IsForOneAtATime) {
  holdConsole_ = [] { return ConsoleEnd::taken; };
  const Answer answer = vmctl("console web1");
  EXPECT_EQ(answer.exit, 4);
  EXPECT_THAT(answer.err,
              testing::EndsWith("vmctl: web1: another 'vmctl console' has its console; 'vmctl "
                                "console --view web1' shows the same to any number\n"));
}

TEST_F(ConsoleVerb, IsForAnyNumberToLookAt) {
  EXPECT_EQ(
      vmctl("--run-dir /run/x console web1 --view"),
      (Answer{0, "",
              "web1: this is its console, to look at only; Ctrl-] leaves it\n\nweb1: left\n"}));
  EXPECT_EQ(viewedSocket_, "/run/x/vm/web1/console.sock");
  EXPECT_EQ(heldPty_, "");
}

// A socket is the guest's for sure, and there from the beginning.
TEST_F(ConsoleVerb, CanBeLookedAtWithoutADaemonOrAKnownPty) {
  ptyIs("");
  daemonRuns_ = false;
  EXPECT_EQ(vmctl("console --view web1").exit, 0);
  putOff("web1");
  EXPECT_EQ(vmctl("console --view web1").exit, 4);
}

TEST_F(ConsoleVerb, SaysWhyItCannotBeOpened) {
  holdConsole_ = []() -> ConsoleEnd { throw rt::ErrnoException(EACCES, "/dev/pts/4 x"); };
  const Answer answer = vmctl("console web1");
  EXPECT_EQ(answer.exit, 1);
  EXPECT_THAT(answer.err, testing::EndsWith("vmctl: web1: /dev/pts/4 x: Permission denied (errno "
                                            "13): run vmctl as root, or as a member of the group "
                                            "vmagent\n"));
}

// A pair of ends: the terminal, and who sits before it.
struct Pty {
  Pty() {
    char name[64];
    if (openpty(&person, &terminal, name, nullptr, nullptr) != 0) throw std::bad_alloc();
    path = name;
  }
  Pty(const Pty&) = delete;
  ~Pty() {
    if (person >= 0) close(person);
    if (terminal >= 0) close(terminal);
  }
  bool isRaw() const {
    termios settings{};
    tcgetattr(terminal, &settings);
    return (settings.c_lflag & (ICANON | ECHO)) == 0;
  }

  int person = -1;
  int terminal = -1;
  std::string path;
};

std::string readSome(int descriptor, size_t size) {
  std::string text;
  char byte = 0;
  pollfd look{descriptor, POLLIN, 0};
  while (text.size() < size && poll(&look, 1, 10'000) == 1 && read(descriptor, &byte, 1) == 1)
    text += byte;
  return text;
}

class ConsoleSession : public testing::Test {
 protected:
  ConsoleSession() {
    // As the guest's keeper sets its own.
    termios raw{};
    tcgetattr(guest_.terminal, &raw);
    cfmakeraw(&raw);
    tcsetattr(guest_.terminal, TCSANOW, &raw);
    // Signals are for the thread that waits for them.
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before_);
  }
  ~ConsoleSession() override { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  // Plays the person and the guest meanwhile.
  ConsoleEnd hold(const std::function<void()>& meanwhile) {
    std::thread other([&] {
      // It is raw once the session is there.
      while (!person_.isRaw()) std::this_thread::yield();
      meanwhile();
    });
    const ConsoleEnd end = holdConsole(person_.terminal, person_.terminal, guest_.path);
    other.join();
    return end;
  }
  static void type(int descriptor, std::string_view text) {
    ASSERT_EQ(write(descriptor, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  Pty person_;
  Pty guest_;
  sigset_t before_{};
};

TEST_F(ConsoleSession, CarriesBytesBothWaysUntilItIsLeft) {
  const ConsoleEnd end = hold([&] {
    type(guest_.person, "login: \r\n");
    EXPECT_EQ(readSome(person_.person, 9), "login: \r\n");
    type(person_.person, "root\r\x03");
    EXPECT_EQ(readSome(guest_.person, 6), "root\r\x03");
    type(person_.person, "x\x1dnever");
    EXPECT_EQ(readSome(guest_.person, 1), "x");
  });
  EXPECT_EQ(end, ConsoleEnd::left);
  EXPECT_FALSE(person_.isRaw());
}

TEST_F(ConsoleSession, ShowsTheGuestsLastWordsAndEndsWithIt) {
  const ConsoleEnd end = hold([&] {
    type(guest_.person, "down.\r\n");
    EXPECT_EQ(readSome(person_.person, 7), "down.\r\n");
    close(guest_.person);
    guest_.person = -1;
  });
  EXPECT_EQ(end, ConsoleEnd::guestEnd);
  EXPECT_FALSE(person_.isRaw());
}

TEST_F(ConsoleSession, PutsTheTerminalBackBeforeASignalEndsTheProgram) {
  const ConsoleEnd end = hold([&] { kill(getpid(), SIGTERM); });
  EXPECT_EQ(end, ConsoleEnd::signal);
  EXPECT_FALSE(person_.isRaw());
  // It is sent again; this test holds it back.
  sigset_t pending;
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGTERM), 1);
  sigset_t terminate;
  sigemptyset(&terminate);
  sigaddset(&terminate, SIGTERM);
  int taken = 0;
  sigwait(&terminate, &taken);
}

TEST_F(ConsoleSession, CanBeLeftWhenTheGuestTakesNothing) {
  const ConsoleEnd end = hold([&] {
    for (int i = 0; i < 64; ++i) type(person_.person, std::string(512, 'x'));
    type(person_.person, "\x1d");
  });
  EXPECT_EQ(end, ConsoleEnd::left);
}

TEST_F(ConsoleSession, IsLeftWhenThePersonsTerminalGoes) {
  const ConsoleEnd end = hold([&] {
    close(person_.person);
    person_.person = -1;
  });
  EXPECT_EQ(end, ConsoleEnd::left);
}

TEST_F(ConsoleSession, IsRefusedWhileAnotherHasThePty) {
  const int other = open(guest_.path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
  EXPECT_EQ(holdConsole(person_.terminal, person_.terminal, guest_.path), ConsoleEnd::taken);
  close(other);
}

// The guest's keeper, as far as one who looks needs it.
class ConsoleView : public ConsoleSession {
 protected:
  ConsoleView() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(socket_, 1), 0);
  }
  ~ConsoleView() override { close(socket_); }
  std::string path() const { return folder_ / "console.sock"; }
  int listener() const { return socket_; }
  ConsoleEnd view(const std::function<void(int keeper)>& meanwhile) {
    std::thread other([&] {
      while (!person_.isRaw()) std::this_thread::yield();
      const int keeper = accept(socket_, nullptr, nullptr);
      EXPECT_EQ(readSome(keeper, 5), "view\n");
      meanwhile(keeper);
      close(keeper);
    });
    const ConsoleEnd end = viewConsole(person_.terminal, person_.terminal, path());
    other.join();
    return end;
  }

 private:
  const rt::fakes::TestFolder folder_;
  const int socket_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

TEST_F(ConsoleView, ShowsWhatTheGuestWritesAndTypesNothing) {
  const ConsoleEnd end = view([&](int keeper) {
    type(keeper, "login: \r\n");
    EXPECT_EQ(readSome(person_.person, 9), "login: \r\n");
    type(person_.person, "root\r");
    type(keeper, "$");
    EXPECT_EQ(readSome(person_.person, 1), "$");
    type(person_.person, "\x1d");
    EXPECT_EQ(readSome(keeper, 1), "") << "until the viewer has gone";
  });
  EXPECT_EQ(end, ConsoleEnd::left);
  EXPECT_FALSE(person_.isRaw());
}

TEST_F(ConsoleView, IsJoinedByWhoTypesAndIsLeftByItsOwnKeyOnly) {
  std::thread other([&] {
    while (!person_.isRaw()) std::this_thread::yield();
    const int keeper = accept(listener(), nullptr, nullptr);
    type(person_.person, "ls\x03");
    EXPECT_EQ(readSome(keeper, 3), "ls\x03");
    type(keeper, "$ ");
    EXPECT_EQ(readSome(person_.person, 2), "$ ");
    type(person_.person, "\x1d");
    EXPECT_EQ(readSome(keeper, 1), "") << "until the person has gone";
    close(keeper);
  });
  const ConsoleEnd end = joinConsole(person_.terminal, person_.terminal, path());
  other.join();
  EXPECT_EQ(end, ConsoleEnd::left);
  EXPECT_FALSE(person_.isRaw());
}

TEST_F(ConsoleView, IsLeftByCtrlC) {
  EXPECT_EQ(view([&](int keeper) {
              type(person_.person, "\x03");
              EXPECT_EQ(readSome(keeper, 1), "");
            }),
            ConsoleEnd::left);
}

TEST_F(ConsoleView, EndsWithTheGuest) {
  EXPECT_EQ(view([](int) {}), ConsoleEnd::guestEnd);
  EXPECT_FALSE(person_.isRaw());
}

TEST_F(ConsoleView, NamesTheSocketThatNobodyListensAt) {
  try {
    viewConsole(person_.terminal, person_.terminal, "/run/none/console.sock");
    FAIL();
  } catch (const rt::ErrnoException& exception) {
    EXPECT_STREQ(exception.what(),
                 "/run/none/console.sock cannot be reached: No such file or directory (errno 2)");
  }
}

TEST_F(ConsoleSession, OpensNoFileAndNoOtherDevice) {
  for (const char* const path : {"/dev/null", "/etc/passwd", "/", "/dev/stdin"}) {
    try {
      holdConsole(person_.terminal, person_.terminal, path);
      FAIL() << path;
    } catch (const rt::Exception& exception) {
      EXPECT_EQ(std::string(exception.what()),
                std::string(path) + " is no pseudo-terminal: it is not opened");
    }
  }
}

TEST_F(ConsoleSession, NamesThePtyThatIsNotThere) {
  try {
    holdConsole(person_.terminal, person_.terminal, "/dev/pts/none");
    FAIL();
  } catch (const rt::ErrnoException& exception) {
    EXPECT_STREQ(exception.what(),
                 "/dev/pts/none cannot be opened: No such file or directory (errno 2)");
  }
}

}  // namespace
}  // namespace ctl
