#include "sim/run/Zygote.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>

namespace sim {

namespace {

// Of the processor's and of the real clock: a history that takes longer hangs.
constexpr time_t longestWork = 5;
constexpr unsigned longestHistory = 60;

void writeAll(int to, const void* bytes, size_t size) {
  const char* at = static_cast<const char*>(bytes);
  while (size > 0) {
    const ssize_t count = ::send(to, at, size, MSG_NOSIGNAL);
    if (count <= 0) _exit(1);
    at += count;
    size -= static_cast<size_t>(count);
  }
}

void tell(int to, const std::string& text) {
  const uint64_t size = text.size();
  writeAll(to, &size, sizeof size);
  writeAll(to, text.data(), text.size());
}

bool readAll(int from, void* bytes, size_t size) {
  char* at = static_cast<char*>(bytes);
  while (size > 0) {
    const ssize_t count = ::read(from, at, size);
    if (count <= 0) return false;
    at += count;
    size -= static_cast<size_t>(count);
  }
  return true;
}

bool hear(int from, std::string& text) {
  uint64_t size = 0;
  if (!readAll(from, &size, sizeof size)) return false;
  text.resize(size);
  return readAll(from, text.data(), text.size());
}

Duration durationOf(const timeval& time) {
  return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
}

[[noreturn]] void playAndExit(Stage& stage, const std::string& story, int to) {
  const itimerval work{{}, {longestWork, 0}};
  setitimer(ITIMER_VIRTUAL, &work, nullptr);
  alarm(longestHistory);
  Outcome outcome = play(stage, storyFromText(story));
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  outcome.work = durationOf(used.ru_utime) + durationOf(used.ru_stime);
  outcome.memory = used.ru_maxrss;
  tell(to, toText(outcome));
  // Not by exit(): a world in the midst of everything is not to be taken apart.
  _exit(0);
}

std::string outcomeOfCrash(int waitStatus) {
  Outcome outcome;
  outcome.verdict.clause = "crash";
  outcome.verdict.about = "the program";
  const int number = WIFSIGNALED(waitStatus) ? WTERMSIG(waitStatus) : 0;
  const bool hangs = number == SIGALRM || number == SIGVTALRM;
  outcome.verdict.text = hangs ? "hangs" : "ends with wait status " + std::to_string(waitStatus);
  return toText(outcome);
}

[[noreturn]] void serve(Beginning beginning, int socket) {
  Stage stage;
  if (!stage.prepare(beginning)) {
    std::cerr << "sim: the world did not begin\n" << stage.diary.text() << stage.world.log();
    _exit(1);
  }
  for (std::string story; hear(socket, story);) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) _exit(1);
    std::cout.flush();
    const pid_t child = ::fork();
    if (child == 0) {
      ::close(ends[0]);
      playAndExit(stage, story, ends[1]);
    }
    ::close(ends[1]);
    std::string outcome;
    const bool told = hear(ends[0], outcome);
    ::close(ends[0]);
    int waitStatus = 0;
    ::waitpid(child, &waitStatus, 0);
    tell(socket, told ? outcome : outcomeOfCrash(waitStatus));
  }
  _exit(0);
}

}  // namespace

Zygote::Zygote(Beginning beginning) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
    throw std::runtime_error(std::strerror(errno));
  std::cout.flush();
  pid_ = ::fork();
  if (pid_ < 0) throw std::runtime_error(std::strerror(errno));
  if (pid_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::close(ends[0]);
    serve(beginning, ends[1]);
  }
  ::close(ends[1]);
  socket_ = ends[0];
}

Zygote::~Zygote() {
  // Others may have a copy of it.
  ::shutdown(socket_, SHUT_RDWR);
  ::close(socket_);
  ::waitpid(pid_, nullptr, 0);
}

Outcome Zygote::play(const Story& story) const {
  tell(socket_, toText(story));
  std::string text;
  if (!hear(socket_, text)) throw std::runtime_error("the world did not begin");
  return outcomeFromText(text);
}

Outcome Zygotes::play(const Story& story) {
  auto& zygote = all_[story.beginning];
  if (!zygote) zygote = std::make_unique<Zygote>(story.beginning);
  return zygote->play(story);
}

}  // namespace sim
