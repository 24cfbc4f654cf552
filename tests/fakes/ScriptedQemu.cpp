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
// That file is complete when it is there. A script is one step a line, done in order; what comes
// after the last one is waiting, until a signal ends it:
//
//   # anything               nothing
//   ignore-sigterm           from now on
//   sleep MS
//   monitor                  listens on the monitor's path
//   unlisten                 closes and removes that socket; a connection stays
//   serve MS                 greets whoever connects and answers all requests, for MS milliseconds
//                            (0: until a "quit")
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
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
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

class Monitor {
 public:
  explicit Monitor(std::string path) : path_(std::move(path)) {}

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
  }

  // Until `milliseconds` have passed (0: never) or a "quit".
  void serve(int milliseconds) {
    const auto end = Clock::now() + std::chrono::milliseconds(milliseconds);
    while (true) {
      int left = -1;
      if (milliseconds > 0) {
        left = static_cast<int>(
            std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count());
        if (left <= 0) return;
      }
      pollfd ready{connection_ >= 0 ? connection_ : listener_, POLLIN, 0};
      if (poll(&ready, 1, left) <= 0) continue;
      if (connection_ < 0)
        greet();
      else if (!answer())
        return;
    }
  }

 private:
  void say(const std::string& message) const {
    const std::string line = message + "\r\n";
    (void)!send(connection_, line.data(), line.size(), MSG_NOSIGNAL);
  }

  void greet() {
    connection_ = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    say(R"({"QMP": {"version": {"qemu": {"micro": 11, "minor": 2, "major": 7}, )"
        R"("package": "scripted"}, "capabilities": ["oob"]}})");
  }

  // False after a "quit".
  bool answer() {
    char bytes[4096];
    const ssize_t count = recv(connection_, bytes, sizeof bytes, 0);
    if (count <= 0) {
      closeConnection();
      unfinished_.clear();
      return true;
    }
    unfinished_.append(bytes, static_cast<size_t>(count));
    for (auto end = unfinished_.find('\n'); end != std::string::npos;
         end = unfinished_.find('\n')) {
      const std::string request = unfinished_.substr(0, end);
      unfinished_.erase(0, end + 1);
      const std::string command = memberOf(request, "execute");
      say("{\"return\": " + valueOf(command) + ", \"id\": \"" + memberOf(request, "id") + "\"}");
      if (command == "quit") return false;
    }
    return true;
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
  int listener_ = -1;
  int connection_ = -1;
  bool running_ = false;
  std::string unfinished_;
};

void act(const std::vector<std::string>& steps, const std::string& monitorPath) {
  Monitor monitor(monitorPath);
  for (const auto& step : steps) {
    std::istringstream words(step);
    std::string verb;
    int number = 0;
    words >> verb >> number;
    if (verb == "ignore-sigterm") {
      std::signal(SIGTERM, SIG_IGN);
    } else if (verb == "sleep") {
      poll(nullptr, 0, number);
    } else if (verb == "monitor") {
      monitor.listenThere();
    } else if (verb == "unlisten") {
      monitor.unlisten();
    } else if (verb == "serve") {
      monitor.serve(number);
    } else if (verb == "close") {
      monitor.closeConnection();
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
