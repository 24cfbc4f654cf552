// The model, held against the kernel: the same calls, drawn at random, are made on both, and each
// must answer alike on both.
#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "sim/kernel/Machine.h"

namespace sim {
namespace {

using Answers = std::vector<std::string>;

// Makes calls, and writes down what came of each. Descriptors are told by their place in a table,
// paths by their last part.
class Player {
 public:
  Player(uint64_t seed, std::string folder) : choices_(seed), folder_(std::move(folder)) {}

  Answers play(unsigned calls) {
    begin();
    for (unsigned i = 0; i < calls; ++i) {
      const size_t kind = draw_.below(kinds.size());
      (this->*kinds.at(kind))();
    }
    for (const int each : open_)
      if (each >= 0) close(each);
    return answers_;
  }

 private:
  using Kind = void (Player::*)();
  static const std::vector<Kind> kinds;
  static constexpr size_t mostOpen = 10;

  void begin() {
    open_.fill(-1);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    sigaddset(&set, SIGUSR2);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    signal(SIGPIPE, SIG_IGN);
  }

  // The name of a call, what it was about, and what it returned.
  void tell(const std::string& call, long result, const std::string& more = "") {
    const int error = errno;
    answers_.push_back(call + " = " +
                       (result < 0 ? std::string(strerrorname_np(error)) : std::to_string(result)) +
                       (more.empty() ? "" : " " + more));
  }
  size_t place() { return draw_.below(mostOpen); }
  // More often one that is open.
  size_t openPlace() {
    size_t at = place();
    for (size_t i = 0; i < 3 && open_[at] < 0; ++i) at = place();
    return at;
  }
  std::string fd(size_t at) const { return "fd" + std::to_string(at); }
  std::string name() {
    static const std::vector<std::string> names = {"a", "b", "c", "d", "d/e", "d/f", "missing/g"};
    return draw_.of(names);
  }
  std::string path(const std::string& ofName) const { return folder_ + "/" + ofName; }
  // It gets that place; what had it is closed.
  void keep(size_t at, int number) {
    if (number < 0) return;
    if (open_[at] >= 0) close(open_[at]);
    open_[at] = number;
    special_.erase(number);
  }
  std::string bytes() {
    return std::string(draw_.between(1, 60), static_cast<char>('a' + draw_.below(20)));
  }
  static std::string factsText(const struct stat& facts) {
    char text[100];
    const bool isFile = S_ISREG(facts.st_mode) || S_ISLNK(facts.st_mode);
    std::snprintf(text, sizeof text, "mode %o size %ld links %ld", facts.st_mode & S_IFMT,
                  isFile ? long(facts.st_size) : 0L, isFile ? long(facts.st_nlink) : 0L);
    return text;
  }

  void openFile() {
    static const std::vector<int> accesses = {O_RDONLY, O_WRONLY, O_RDWR};
    static const std::vector<int> ways = {0,
                                          O_CREAT,
                                          O_CREAT | O_EXCL,
                                          O_CREAT | O_TRUNC,
                                          O_TRUNC,
                                          O_CREAT | O_APPEND,
                                          O_NOFOLLOW | O_CREAT,
                                          O_DIRECTORY,
                                          O_NOFOLLOW};
    const std::string file = name();
    const int flags = draw_.of(accesses) | draw_.of(ways);
    const size_t at = place();
    // A fifo's other end may not be there.
    const int number = open(path(file).c_str(), flags | O_NONBLOCK, 0600);
    tell("open " + file + " " + std::to_string(flags), number < 0 ? -1 : 0);
    keep(at, number);
  }
  void closeOne() {
    const size_t at = openPlace();
    if (open_[at] < 0) return;
    tell("close " + fd(at), close(std::exchange(open_[at], -1)));
  }
  void readOne() {
    const size_t at = openPlace();
    char buffer[600];
    const size_t size = draw_.of(std::vector<size_t>{0, 1, 7, 8, 100, 600});
    if (isSpecial(at)) return;
    const ssize_t count = read(open_[at], buffer, size);
    tell("read " + fd(at) + " " + std::to_string(size), count,
         count > 0 ? std::string(buffer, size_t(count)) : "");
  }
  void writeOne() {
    const size_t at = openPlace();
    const std::string text = bytes();
    if (isSpecial(at)) return;
    tell("write " + fd(at) + " " + text, write(open_[at], text.data(), text.size()));
  }
  void readAt() {
    const size_t at = openPlace();
    char buffer[100];
    const off_t from = off_t(draw_.below(80));
    const ssize_t count = pread(open_[at], buffer, sizeof buffer, from);
    tell("pread " + fd(at), count, count > 0 ? std::string(buffer, size_t(count)) : "");
  }
  void writeAt() {
    const size_t at = openPlace();
    const std::string text = bytes();
    tell("pwrite " + fd(at), pwrite(open_[at], text.data(), text.size(), off_t(draw_.below(80))));
  }
  void seek() {
    const size_t at = openPlace();
    struct stat facts {};
    if (open_[at] >= 0 && fstat(open_[at], &facts) == 0 && S_ISDIR(facts.st_mode)) return;
    const int whence = draw_.of(std::vector<int>{SEEK_SET, SEEK_CUR, SEEK_END});
    const off_t by = off_t(draw_.below(50)) - 10;
    tell("lseek " + fd(at) + " " + std::to_string(by), lseek(open_[at], by, whence));
  }
  void resize() {
    const size_t at = openPlace();
    tell("ftruncate " + fd(at), ftruncate(open_[at], off_t(draw_.below(100))));
  }
  void facts() {
    const size_t at = openPlace();
    struct stat found {};
    const int result = fstat(open_[at], &found);
    tell("fstat " + fd(at), result, result == 0 && !isSpecial(at) ? factsText(found) : "");
  }
  void factsOfPath() {
    const std::string file = name();
    struct stat found {};
    const bool ofLink = draw_.oneIn(2);
    const int result =
        ofLink ? lstat(path(file).c_str(), &found) : stat(path(file).c_str(), &found);
    tell((ofLink ? "lstat " : "stat ") + file, result, result == 0 ? factsText(found) : "");
  }
  void removeName() {
    const std::string file = name();
    tell("unlink " + file, unlink(path(file).c_str()));
  }
  void renameOne() {
    const std::string from = name();
    const std::string to = name();
    tell("rename " + from + " " + to, rename(path(from).c_str(), path(to).c_str()));
  }
  void linkOne() {
    const std::string from = name();
    const std::string to = name();
    tell("link " + from + " " + to, link(path(from).c_str(), path(to).c_str()));
  }
  void makeLink() {
    const std::string target = draw_.of(std::vector<std::string>{"a", "b", "c", "d", "d/e"});
    const std::string file = name();
    tell("symlink " + target + " " + file, symlink(target.c_str(), path(file).c_str()));
  }
  void readLink() {
    const std::string file = name();
    char text[100];
    const ssize_t size = readlink(path(file).c_str(), text, sizeof text);
    tell("readlink " + file, size, size > 0 ? std::string(text, size_t(size)) : "");
  }
  void makeFolder() {
    const std::string file = draw_.of(std::vector<std::string>{"d", "d", "c", "d/f"});
    tell("mkdir " + file, mkdir(path(file).c_str(), 0700));
  }
  void removeFolder() {
    const std::string file = name();
    tell("rmdir " + file, rmdir(path(file).c_str()));
  }
  void list() {
    DIR* const directory = opendir(path(draw_.oneIn(2) ? "d" : ".").c_str());
    tell("opendir", directory ? 0 : -1);
    if (!directory) return;
    std::vector<std::string> entries;
    while (const dirent* const entry = readdir(directory)) entries.emplace_back(entry->d_name);
    closedir(directory);
    std::sort(entries.begin(), entries.end());
    std::string all;
    for (const std::string& each : entries) all += each + " ";
    answers_.push_back("entries " + all);
  }
  void duplicate() {
    const size_t from = openPlace();
    const size_t at = place();
    const int number = fcntl(open_[from], F_DUPFD_CLOEXEC, 3);
    tell("dup " + fd(from) + " " + fd(at), number < 0 ? -1 : 0);
    keep(at, number);
  }
  void flags() {
    const size_t at = openPlace();
    const int found = fcntl(open_[at], F_GETFL);
    constexpr int told = O_ACCMODE | O_NONBLOCK | O_APPEND;
    tell("getfl " + fd(at), found < 0 ? -1 : found & told);
    tell("getfd " + fd(at), fcntl(open_[at], F_GETFD));
  }

  void makePipe() {
    int ends[2] = {-1, -1};
    tell("pipe", pipe2(ends, O_NONBLOCK | O_CLOEXEC));
    keepTwo(ends);
  }
  void makePair() {
    int ends[2] = {-1, -1};
    tell("socketpair", socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends));
    keepTwo(ends);
  }
  void keepTwo(const int (&ends)[2]) {
    const size_t one = place();
    keep(one, ends[0]);
    keep((one + 1) % mostOpen, ends[1]);
  }
  sockaddr_un addressOf(const std::string& file) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path(file).copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
  }
  void makeSocket() {
    const size_t at = place();
    const int number = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    tell("socket " + fd(at), number < 0 ? -1 : 0);
    keep(at, number);
  }
  void bindOne() {
    const size_t at = openPlace();
    const std::string file = name();
    const sockaddr_un address = addressOf(file);
    tell("bind " + fd(at) + " " + file,
         bind(open_[at], reinterpret_cast<const sockaddr*>(&address), sizeof address));
  }
  void listenOne() {
    const size_t at = openPlace();
    tell("listen " + fd(at), listen(open_[at], int(draw_.below(3))));
  }
  void connectOne() {
    const size_t at = openPlace();
    const std::string file = name();
    const sockaddr_un address = addressOf(file);
    tell("connect " + fd(at) + " " + file,
         connect(open_[at], reinterpret_cast<const sockaddr*>(&address), sizeof address));
  }
  // All that a connection needs, at once: by chance it would be rare.
  void meet() {
    const size_t at = place();
    const std::string file = draw_.of(std::vector<std::string>{"a", "b", "c"});
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    const sockaddr_un address = addressOf(file);
    unlink(path(file).c_str());
    const auto* const where = reinterpret_cast<const sockaddr*>(&address);
    tell("meet at " + file, bind(listener, where, sizeof address));
    tell("  listen", listen(listener, 1));
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    tell("  connect", connect(client, where, sizeof address));
    keep(at, listener);
    keep((at + 1) % mostOpen, client);
  }
  void acceptOne() {
    const size_t from = openPlace();
    const size_t at = place();
    const int number = accept4(open_[from], nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    tell("accept " + fd(from) + " " + fd(at), number < 0 ? -1 : 0);
    keep(at, number);
  }
  void shutDown() {
    const size_t at = openPlace();
    const int how = draw_.of(std::vector<int>{SHUT_RD, SHUT_WR, SHUT_RDWR});
    tell("shutdown " + fd(at) + " " + std::to_string(how), shutdown(open_[at], how));
  }
  void sendOne() {
    const size_t at = openPlace();
    std::string text = bytes();
    const size_t passed = openPlace();
    const bool passes = draw_.oneIn(3) && open_[passed] >= 0 && !isSocket(passed);
    iovec part{text.data(), text.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (passes) {
      message.msg_control = control;
      message.msg_controllen = sizeof control;
      cmsghdr* const head = CMSG_FIRSTHDR(&message);
      head->cmsg_level = SOL_SOCKET;
      head->cmsg_type = SCM_RIGHTS;
      head->cmsg_len = CMSG_LEN(sizeof(int));
      std::memcpy(CMSG_DATA(head), &open_[passed], sizeof(int));
    }
    tell("sendmsg " + fd(at) + (passes ? " with " + fd(passed) : ""),
         sendmsg(open_[at], &message, MSG_NOSIGNAL));
  }
  void receiveOne() {
    const size_t at = openPlace();
    char buffer[90];
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    const bool takes = !draw_.oneIn(4);
    const int how = draw_.of(std::vector<int>{0, 0, 0, MSG_PEEK});
    const size_t size = draw_.of(std::vector<size_t>{1, 30, sizeof buffer});
    iovec part{buffer, size};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (takes && how == 0) {
      message.msg_control = control;
      message.msg_controllen = sizeof control;
    }
    const ssize_t count = recvmsg(open_[at], &message, how | MSG_CMSG_CLOEXEC);
    tell("recvmsg " + fd(at), count, count > 0 ? std::string(buffer, size_t(count)) : "");
    if (count < 0) return;
    cmsghdr* const head = CMSG_FIRSTHDR(&message);
    answers_.push_back(std::string("  flags ") +
                       ((message.msg_flags & MSG_CTRUNC) != 0 ? "cut " : "") +
                       (head ? "with a descriptor" : ""));
    if (!head) return;
    int number = -1;
    std::memcpy(&number, CMSG_DATA(head), sizeof number);
    keep(place(), number);
  }

  void makeEvents() {
    const size_t at = place();
    const int number = eventfd(unsigned(draw_.below(2)), EFD_NONBLOCK);
    tell("eventfd " + fd(at), number < 0 ? -1 : 0);
    keep(at, number);
  }
  void addEvents() {
    const size_t at = openPlace();
    const uint64_t more = 1 + draw_.below(4);
    if (isSpecial(at)) return;
    tell("write8 " + fd(at), write(open_[at], &more, sizeof more));
  }
  void makeSignals() {
    const size_t at = place();
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    if (draw_.oneIn(2)) sigaddset(&set, SIGUSR2);
    const int number = signalfd(-1, &set, SFD_NONBLOCK);
    tell("signalfd " + fd(at), number < 0 ? -1 : 0);
    keep(at, number);
    special_[number] = "signals";
  }
  void raiseOne() {
    const int number = draw_.oneIn(2) ? SIGUSR1 : SIGUSR2;
    tell("kill " + std::to_string(number), kill(getpid(), number));
  }
  void takeSignal() {
    const size_t at = openPlace();
    if (kindOf(at) != "signals") return;
    signalfd_siginfo info{};
    const ssize_t count = read(open_[at], &info, sizeof info);
    tell("read " + fd(at), count, count > 0 ? "signal " + std::to_string(info.ssi_signo) : "");
  }

  void makeNotes() {
    const size_t at = place();
    const int number = inotify_init1(IN_NONBLOCK);
    tell("inotify " + fd(at), number < 0 ? -1 : 0);
    keep(at, number);
    special_[number] = "notes";
  }
  void watch() {
    const size_t at = openPlace();
    const std::string file = draw_.of(std::vector<std::string>{".", "a", "b", "d"});
    constexpr uint32_t mask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE |
                              IN_MODIFY | IN_DELETE_SELF | IN_MOVE_SELF;
    tell("watch " + fd(at) + " " + file, inotify_add_watch(open_[at], path(file).c_str(), mask));
  }
  void readNotes() {
    const size_t at = openPlace();
    if (kindOf(at) != "notes") return;
    alignas(inotify_event) char buffer[8192];
    const ssize_t count = read(open_[at], buffer, sizeof buffer);
    tell("read " + fd(at), count < 0 ? -1 : 0);
    for (ssize_t from = 0; from < count;) {
      inotify_event event{};
      std::memcpy(&event, buffer + from, sizeof event);
      answers_.push_back("  " + std::to_string(event.wd) + " " + std::to_string(event.mask) + " " +
                         (event.len > 0 ? buffer + from + sizeof event : ""));
      from += ssize_t(sizeof event + event.len);
    }
  }

  void look() {
    std::array<pollfd, mostOpen> polled{};
    for (size_t i = 0; i < mostOpen; ++i) polled[i] = {open_[i], POLLIN | POLLOUT | POLLRDHUP, 0};
    const int ready = poll(polled.data(), polled.size(), 0);
    std::string all;
    for (const pollfd& each : polled) all += " " + std::to_string(each.revents);
    tell("poll", ready, all);
  }
  void makeEpoll() {
    const size_t at = place();
    const int number = epoll_create1(0);
    tell("epoll " + fd(at), number < 0 ? -1 : 0);
    keep(at, number);
  }
  void controlEpoll() {
    const size_t at = openPlace();
    const size_t about = openPlace();
    epoll_event event{EPOLLIN | EPOLLOUT | (draw_.oneIn(2) ? EPOLLRDHUP : 0), {}};
    event.data.u64 = about;
    const int what =
        draw_.of(std::vector<int>{EPOLL_CTL_ADD, EPOLL_CTL_ADD, EPOLL_CTL_MOD, EPOLL_CTL_DEL});
    if (kindOf(at) != "" || at == about) return;
    // Whether one watches the other is another matter.
    if (open_[about] >= 0 && isEpoll(about)) return;
    tell("epoll_ctl " + fd(at) + " " + std::to_string(what) + " " + fd(about),
         epoll_ctl(open_[at], what, open_[about], &event));
  }
  void lookAtEpoll() {
    const size_t at = openPlace();
    std::array<epoll_event, 20> events{};
    const int count = epoll_wait(open_[at], events.data(), int(events.size()), 0);
    std::vector<std::string> all;
    for (int i = 0; i < count; ++i)
      all.push_back(std::to_string(events[size_t(i)].data.u64) + ":" +
                    std::to_string(events[size_t(i)].events));
    std::sort(all.begin(), all.end());
    std::string text;
    for (const std::string& each : all) text += each + " ";
    tell("epoll_wait " + fd(at), count, text);
  }

  // Of what read() has no text.
  std::string kindOf(size_t at) const {
    const auto found = special_.find(open_[at]);
    return open_[at] < 0 || found == special_.end() || !isAnonymous(at) ? "" : found->second;
  }
  bool isSpecial(size_t at) const { return kindOf(at) != "" || isAnonymous(at); }
  bool isAnonymous(size_t at) const {
    struct stat found {};
    return open_[at] >= 0 && fstat(open_[at], &found) == 0 && (found.st_mode & S_IFMT) == 0;
  }
  bool isSocket(size_t at) const {
    struct stat found {};
    return open_[at] >= 0 && fstat(open_[at], &found) == 0 && S_ISSOCK(found.st_mode);
  }
  bool isEpoll(size_t at) const {
    epoll_event none{};
    return epoll_wait(open_[at], &none, 1, 0) >= 0 || errno != EINVAL;
  }

  Choices choices_;
  Stream& draw_ = choices_.stream("calls");
  const std::string folder_;
  std::array<int, mostOpen> open_{};
  std::map<int, std::string> special_;
  Answers answers_;
};

const std::vector<Player::Kind> Player::kinds = {
    &Player::openFile,    &Player::openFile,    &Player::closeOne,     &Player::readOne,
    &Player::readOne,     &Player::writeOne,    &Player::writeOne,     &Player::readAt,
    &Player::writeAt,     &Player::seek,        &Player::resize,       &Player::facts,
    &Player::factsOfPath, &Player::removeName,  &Player::renameOne,    &Player::linkOne,
    &Player::makeLink,    &Player::readLink,    &Player::makeFolder,   &Player::removeFolder,
    &Player::list,        &Player::duplicate,   &Player::flags,        &Player::makePipe,
    &Player::makePair,    &Player::makePair,    &Player::makeSocket,   &Player::bindOne,
    &Player::listenOne,   &Player::connectOne,  &Player::meet,         &Player::meet,
    &Player::acceptOne,   &Player::acceptOne,   &Player::shutDown,     &Player::sendOne,
    &Player::sendOne,     &Player::receiveOne,  &Player::receiveOne,   &Player::makeEvents,
    &Player::addEvents,   &Player::makeSignals, &Player::raiseOne,     &Player::takeSignal,
    &Player::makeNotes,   &Player::watch,       &Player::readNotes,    &Player::look,
    &Player::look,        &Player::makeEpoll,   &Player::controlEpoll, &Player::controlEpoll,
    &Player::lookAtEpoll, &Player::lookAtEpoll};

Answers ofKernel(uint64_t seed, unsigned calls) {
  std::string folder = std::filesystem::temp_directory_path() / "vmagent-calls-XXXXXX";
  if (!mkdtemp(folder.data())) return {"no folder"};
  sigset_t before;
  sigprocmask(SIG_BLOCK, nullptr, &before);
  const Answers answers = Player(seed, folder).play(calls);
  const timespec none{};
  sigset_t all;
  sigemptyset(&all);
  sigaddset(&all, SIGUSR1);
  sigaddset(&all, SIGUSR2);
  while (sigtimedwait(&all, nullptr, &none) > 0) continue;
  sigprocmask(SIG_SETMASK, &before, nullptr);
  std::filesystem::remove_all(folder);
  return answers;
}

Answers ofModel(uint64_t seed, unsigned calls) {
  Answers answers;
  Machine world(seed);
  world.files.directoryAt("/calls");
  world.files.fileAt("/usr/bin/player", "program", 0755)->program = [&](int, char**) {
    answers = Player(seed, "/calls").play(calls);
    return 0;
  };
  world.processes.spawn("/usr/bin/player", {"player"}, {});
  world.scheduler.runUntil(world.now() + std::chrono::hours(1));
  if (world.verdict.failed()) answers.push_back(world.verdict.about + ": " + world.verdict.text);
  return answers;
}

// The first that differs, with what came before.
std::string differenceOf(const Answers& one, const Answers& other) {
  const auto [a, b] = std::mismatch(one.begin(), one.end(), other.begin(), other.end());
  if (a == one.end() && b == other.end()) return {};
  std::string text;
  constexpr std::ptrdiff_t before = 60;
  for (auto at = a - std::min(before, a - one.begin()); at != a; ++at) text += *at + "\n";
  return text + "the kernel: " + (a == one.end() ? "nothing" : *a) +
         "\nthe model:  " + (b == other.end() ? "nothing" : *b);
}

class LikeTheKernelTest : public testing::TestWithParam<uint64_t> {};

TEST_P(LikeTheKernelTest, AnswerAsTheKernelsDo) {
  constexpr uint64_t each = 40;
  for (uint64_t seed = GetParam() * each; seed < (GetParam() + 1) * each; ++seed) {
    constexpr unsigned calls = 400;
    EXPECT_EQ(differenceOf(ofKernel(seed, calls), ofModel(seed, calls)), "") << "seed " << seed;
  }
}

INSTANTIATE_TEST_SUITE_P(Simulator, LikeTheKernelTest, testing::Range(uint64_t{0}, uint64_t{8}));

}  // namespace
}  // namespace sim
