// Stands in QEMU's place: says how it was started, and acts by a script. Plain system calls only,
// so that what it says of its descriptors and signals is what it was given.
//
// Its files stand beside the monitor socket's path of its command line, "/var/run/NAME.monitor":
// the script "/var/run/NAME.script" (or "default.script" beside it; without one: "monitor"), and
// what it says of itself, "/var/run/NAME.started":
//
//   pid 4711
//   arg -S                        each word after the program's, in order
//   fd 0 /dev/null                each open descriptor, in order, and what it is
//   blocked 0000000000000000      signals, as in /proc/self/status
//   ignored 0000000000000000
//
// That file is complete when it is there. In "/var/run/NAME.requests" is a line for each request
// that it took: when (on CLOCK_MONOTONIC, in seconds), how many descriptors came along, its text:
//
//   4711.081500 1 { "execute": "getfd","arguments": {"fdname": "fd-hostnet0"},"id": "getfd" }
//
// A script is one step a line, done in order; what comes after the last one is waiting, until a
// signal ends it:
//
//   # anything               nothing
//   ignore-sigterm           from now on
//   sleep MS
//   monitor                  listens on the monitor's path
//   unlisten                 closes and removes that socket; a connection stays
//   serve MS                 greets whoever connects and takes all requests, for MS milliseconds
//                            (0: until a "quit")
//   take COUNT               the same, until that many requests were taken
//   refuse COMMAND           from now on that command is answered with an error
//   leave COMMAND            from now on that command is left unanswered
//   pieces BYTES MS          from now on what it says comes in pieces so small, with a pause after
//                            each
//   hold MS                  leaves the connection open, after this process's end too, for MS
//                            milliseconds: by a process that has nothing else of this one
//   close                    closes the connection
//   exit CODE
//   signal NUMBER            ends by that signal
//
// "monitor" is followed by "serve 0" when it is the last step.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// The path in "-chardev socket,id=monitor,path=PATH,server,nowait"; empty when there is none.
std::string monitorPathOf(int argc, char** argv) {
  const std::string before = "socket,id=monitor,path=";
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word.rfind(before, 0) == 0)
      return word.substr(before.size(), word.find(',', before.size()) - before.size());
  }
  return {};
}

std::string besides(const std::string& monitorPath, const char* suffix) {
  return std::filesystem::path(monitorPath).replace_extension(suffix).string();
}

// Taken before this program opens anything.
std::vector<int> openDescriptors() {
  std::vector<int> open;
  for (int number = 0; number < 1024; ++number)
    if (fcntl(number, F_GETFD) >= 0) open.push_back(number);
  return open;
}

void sayHowStarted(const std::string& monitorPath, int argc, char** argv,
                   const std::vector<int>& descriptors) {
  const std::string path = besides(monitorPath, "started");
  const std::string draft = path + ".new";
  {
    std::ofstream file(draft);
    file << "pid " << getpid() << '\n';
    for (int i = 0; i < argc; ++i) file << "arg " << argv[i] << '\n';
    for (const int number : descriptors) {
      std::error_code error;
      file << "fd " << number << ' '
           << std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(number), error)
                  .string()
           << '\n';
    }
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
      if (line.rfind("SigBlk:\t", 0) == 0) file << "blocked " << line.substr(8) << '\n';
      if (line.rfind("SigIgn:\t", 0) == 0) file << "ignored " << line.substr(8) << '\n';
    }
  }
  std::filesystem::rename(draft, path);
}

std::vector<std::string> scriptOf(const std::string& monitorPath) {
  std::ifstream file(besides(monitorPath, "script"));
  if (!file) file.open(std::filesystem::path(monitorPath).replace_filename("default.script"));
  std::vector<std::string> steps;
  for (std::string line; file && std::getline(file, line);)
    if (!line.empty() && line[0] != '#') steps.push_back(line);
  if (steps.empty()) steps.emplace_back("monitor");
  if (steps.back() == "monitor") steps.emplace_back("serve 0");
  return steps;
}

// The last string member `name` of a request: a request's own one comes after its arguments'.
std::string memberOf(const std::string& request, const std::string& name) {
  const std::string start = "\"" + name + "\": \"";
  const auto at = request.rfind(start);
  if (at == std::string::npos) return {};
  const auto from = at + start.size();
  return request.substr(from, request.find('"', from) - from);
}

// What was asked, one line each. A line is written at once, so that it is there or not, whenever
// the process is killed.
class RequestLog {
 public:
  explicit RequestLog(const std::string& path)
      : file_(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {}

  void add(const std::string& request, int descriptors) const {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    char start[64];
    std::snprintf(start, sizeof start, "%lld.%06ld %d ", static_cast<long long>(now.tv_sec),
                  now.tv_nsec / 1000, descriptors);
    const std::string line = start + request + '\n';
    (void)!write(file_, line.data(), line.size());
  }

 private:
  int file_;
};

// How many descriptors came with a message. They are closed: a tap stays with whoever sent it.
int takeDescriptors(msghdr& message) {
  int count = 0;
  for (cmsghdr* header = CMSG_FIRSTHDR(&message); header; header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
    for (size_t at = 0; CMSG_LEN(at + sizeof(int)) <= header->cmsg_len; at += sizeof(int)) {
      int descriptor = -1;
      std::memcpy(&descriptor, CMSG_DATA(header) + at, sizeof descriptor);
      close(descriptor);
      ++count;
    }
  }
  return count;
}

class Monitor {
 public:
  explicit Monitor(const std::string& path) : path_(path), log_(besides(path, "requests")) {}

  void listenThere() {
    listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, sizeof address.sun_path - 1);
    unlink(path_.c_str());
    if (bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener_, 8) != 0) {
      std::perror(path_.c_str());
      std::exit(1);
    }
  }

  void unlisten() {
    close(listener_);
    listener_ = -1;
    unlink(path_.c_str());
  }

  void closeConnection() {
    close(connection_);
    connection_ = -1;
    unfinished_.clear();
    descriptors_ = 0;
  }

  // Until `milliseconds` have passed (0: never) or a "quit".
  void serve(int milliseconds) {
    const auto end = Clock::now() + std::chrono::milliseconds(milliseconds);
    while (!ended_) {
      int left = -1;
      if (milliseconds > 0) {
        left = static_cast<int>(
            std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count());
        if (left <= 0) return;
      }
      attend(left);
    }
  }
  // Until `count` requests more were taken, or a "quit".
  void take(int count) {
    const int goal = taken_ + count;
    while (!ended_ && taken_ < goal) attend(-1);
  }

  void refuse(const std::string& command) { refused_.insert(command); }
  void leave(const std::string& command) { left_.insert(command); }
  void pieces(int bytes, int pause) {
    pieceBytes_ = static_cast<size_t>(bytes);
    piecePause_ = pause;
  }

  void hold(int milliseconds) const {
    if (fork() != 0) return;
    const int held = dup2(connection_, 0);
    close_range(1, ~0U, 0);
    poll(nullptr, 0, milliseconds);
    _exit(held);
  }

 private:
  // At most so long, for whoever connects or asks.
  void attend(int milliseconds) {
    pollfd ready{connection_ >= 0 ? connection_ : listener_, POLLIN, 0};
    if (poll(&ready, 1, milliseconds) <= 0) return;
    if (connection_ < 0)
      greet();
    else
      hear();
  }

  void say(const std::string& message) const {
    const std::string line = message + "\r\n";
    const size_t piece = pieceBytes_ == 0 ? line.size() : pieceBytes_;
    for (size_t at = 0; at < line.size(); at += piece) {
      const size_t length = std::min(piece, line.size() - at);
      (void)!send(connection_, line.data() + at, length, MSG_NOSIGNAL);
      if (piecePause_ > 0) poll(nullptr, 0, piecePause_);
    }
  }

  void greet() {
    connection_ = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    say(R"({"QMP": {"version": {"qemu": {"micro": 11, "minor": 2, "major": 7}, )"
        R"("package": "scripted"}, "capabilities": ["oob"]}})");
  }

  void hear() {
    char bytes[4096];
    alignas(cmsghdr) char control[256];
    iovec room{bytes, sizeof bytes};
    msghdr message{};
    message.msg_iov = &room;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t count = recvmsg(connection_, &message, MSG_CMSG_CLOEXEC);
    if (count <= 0) return closeConnection();
    descriptors_ += takeDescriptors(message);
    unfinished_.append(bytes, static_cast<size_t>(count));
    for (auto end = unfinished_.find('\n'); end != std::string::npos;
         end = unfinished_.find('\n')) {
      const std::string request = unfinished_.substr(0, end);
      unfinished_.erase(0, end + 1);
      log_.add(request, std::exchange(descriptors_, 0));
      ++taken_;
      answer(memberOf(request, "execute"), memberOf(request, "id"));
    }
  }

  void answer(const std::string& command, const std::string& id) {
    if (left_.contains(command)) return;
    const std::string answered =
        refused_.contains(command)
            ? R"("error": {"class": "GenericError", "desc": "as the script says"})"
            : R"("return": )" + valueOf(command);
    say("{" + answered + ", \"id\": \"" + id + "\"}");
    if (command == "quit") ended_ = true;
  }

  std::string valueOf(const std::string& command) {
    if (command == "cont") running_ = true;
    if (command == "query-status")
      return running_ ? R"({"status": "running", "singlestep": false, "running": true})"
                      : R"({"status": "prelaunch", "singlestep": false, "running": false})";
    if (command == "query-chardev")
      return R"([{"frontend-open": true, "filename": "pty:/dev/pts/9", "label": "serial0"}])";
    return "{}";
  }

  const std::string path_;
  const RequestLog log_;
  int listener_ = -1;
  int connection_ = -1;
  int descriptors_ = 0;  // that came since the last request
  std::string unfinished_;
  int taken_ = 0;
  bool running_ = false;
  bool ended_ = false;
  std::set<std::string> refused_;
  std::set<std::string> left_;
  size_t pieceBytes_ = 0;  // 0: whole
  int piecePause_ = 0;
};

// Whether it is a step of the monitor's; done then.
bool actOfMonitor(Monitor& monitor, const std::string& verb, std::istringstream& words) {
  const auto number = [&words] {
    int read = 0;
    words >> read;
    return read;
  };
  const auto word = [&words] {
    std::string read;
    words >> read;
    return read;
  };
  if (verb == "monitor") {
    monitor.listenThere();
  } else if (verb == "unlisten") {
    monitor.unlisten();
  } else if (verb == "serve") {
    monitor.serve(number());
  } else if (verb == "take") {
    monitor.take(number());
  } else if (verb == "refuse") {
    monitor.refuse(word());
  } else if (verb == "leave") {
    monitor.leave(word());
  } else if (verb == "pieces") {
    const int bytes = number();
    monitor.pieces(bytes, number());
  } else if (verb == "hold") {
    monitor.hold(number());
  } else if (verb == "close") {
    monitor.closeConnection();
  } else {
    return false;
  }
  return true;
}

void act(const std::vector<std::string>& steps, const std::string& monitorPath) {
  Monitor monitor(monitorPath);
  for (const auto& step : steps) {
    std::istringstream words(step);
    std::string verb;
    words >> verb;
    if (actOfMonitor(monitor, verb, words)) continue;
    int number = 0;
    words >> number;
    if (verb == "ignore-sigterm") {
      std::signal(SIGTERM, SIG_IGN);
    } else if (verb == "sleep") {
      poll(nullptr, 0, number);
    } else if (verb == "exit") {
      std::exit(number);
    } else if (verb == "signal") {
      std::signal(number, SIG_DFL);
      std::raise(number);
    } else {
      std::fprintf(stderr, "unknown step: %s\n", step.c_str());
      std::exit(2);
    }
  }
  // "serve 0" ends with a "quit".
  if (steps.back() == "serve 0") std::exit(0);
  while (true) pause();
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<int> descriptors = openDescriptors();
  const std::string monitorPath = monitorPathOf(argc, argv);
  if (monitorPath.empty()) {
    std::fprintf(stderr, "no monitor on the command line\n");
    return 2;
  }
  sayHowStarted(monitorPath, argc, argv, descriptors);
  act(scriptOf(monitorPath), monitorPath);
}
