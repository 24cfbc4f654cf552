#include "shim/fakes/ShimProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "runtime/base/fakes/TestFolder.h"
#include "shim/keep/Wire.h"

namespace shim::fakes {

namespace {

constexpr int lookAgain = 5;  // milliseconds

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

[[noreturn]] void become(const std::string& program, const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment, int errors) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): a child has one thread
  for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
  dup2(errors, STDERR_FILENO);
  std::vector<char*> words{const_cast<char*>(program.c_str())};
  for (const std::string& word : arguments) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  execv(program.c_str(), words.data());
  _exit(127);
}

}  // namespace

bool comesTrue(const std::function<bool()>& condition) {
  for (int waited = 0; waited < amplePatience; waited += lookAgain) {
    if (condition()) return true;
    poll(nullptr, 0, lookAgain);
  }
  return condition();
}

std::vector<std::string> agentArguments(const std::string& name, const std::string& monitorPath,
                                        const std::string& disk, int cards) {
  std::string line =
      "-S -M pc -enable-kvm -smp 1 -nodefaults -nodefconfig -no-user-config -rtc base=utc "
      "-chardev pty,id=serial0 -device isa-serial,chardev=serial0 -m 32 -name " +
      name + " -chardev socket,id=monitor,path=" + monitorPath +
      ",server,nowait -mon chardev=monitor,mode=control -usb -device usb-tablet,id=input0 "
      "-nographic -device cirrus-vga -boot order=dc -drive file=" +
      disk + ",if=none,id=ide-drive0 -device ide-hd,drive=ide-drive0,bus=ide.0,unit=0";
  for (int i = 0; i < cards; ++i)
    line += " -device virtio-net-pci,id=net" + std::to_string(i) + ",mac=52:54:00:12:34:5" +
            std::to_string(6 + i);
  std::istringstream in(line);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

rt::Descriptor listenerAt(const std::string& path) {
  rt::Descriptor listener(::socket(AF_UNIX, SOCK_STREAM, 0));
  const sockaddr_un address = addressOf(path);
  if (bind(listener.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      chmod(path.c_str(), S_IRUSR | S_IWUSR) != 0 || listen(listener.number(), 1) != 0)
    std::abort();
  return listener;
}

ShimProcess::ShimProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment) {
  errors_.reset(memfd_create("errors", MFD_CLOEXEC));
  int ends[2];
  if (::pipe(ends) != 0) std::abort();
  fcntl(ends[0], F_SETFD, FD_CLOEXEC);
  pid_ = fork();
  if (pid_ == 0) become(program, arguments, environment, errors_.number());
  close(ends[1]);
  pipe_.reset(ends[0]);
}

ShimProcess::~ShimProcess() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

pid_t ShimProcess::qemu() const {
  const std::string pid = std::to_string(pid_);
  return std::atoi(rt::fakes::contentOf("/proc/" + pid + "/task/" + pid + "/children").c_str());
}

void ShimProcess::signal(int number) const { signalProcess(pid_, number); }

int ShimProcess::wait() {
  if (!becomesReadable(pipe_.number())) return -1;
  int status = -1;
  if (waitpid(pid_, &status, 0) != pid_) return -1;
  pid_ = 0;
  return status;
}

std::string ShimProcess::errors() const {
  char bytes[4096];
  const ssize_t count = pread(errors_.number(), bytes, sizeof bytes, 0);
  return {bytes, static_cast<size_t>(std::max<ssize_t>(count, 0))};
}

AgentClient::AgentClient(const std::string& path) {
  const sockaddr_un address = addressOf(path);
  const bool connected = comesTrue([&] {
    socket_.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return connect(socket_.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
           0;
  });
  if (!connected) socket_.reset();
}

std::string AgentClient::line() {
  while (unread_.find("\r\n") == std::string::npos) {
    char bytes[4096];
    if (!socket_ || !becomesReadable(socket_.number())) return {};
    const ssize_t count = read(socket_.number(), bytes, sizeof bytes);
    if (count <= 0) return {};
    unread_.append(bytes, static_cast<size_t>(count));
  }
  const size_t end = unread_.find("\r\n");
  std::string first = unread_.substr(0, end);
  unread_.erase(0, end + 2);
  return first;
}

std::string AgentClient::ask(const std::string& request, int descriptor) {
  Wire wire(rt::Descriptor(dup(socket_.number())), 0);
  Message message{request + "\n", {}};
  if (descriptor >= 0) message.descriptors.emplace_back(dup(descriptor));
  wire.send(std::move(message));
  return line();
}

void AgentClient::bringUp() {
  line();
  ask(R"({ "execute": "qmp_capabilities","id": "enter" })");
  ask(R"({ "execute": "cont","id": "cont" })");
}

std::vector<std::string> AgentClient::attach(int card, int tap) {
  const std::string nic = "net" + std::to_string(card);
  const std::string host = "host" + nic;
  return {
      ask(R"({ "execute": "getfd","arguments": {"fdname": "fd-)" + host + R"("},"id": "getfd" })",
          tap),
      ask(R"({ "execute": "netdev_add","arguments": {"type": "tap","fd": "fd-)" + host +
          R"(","id": ")" + host + R"("},"id": "netdev" })"),
      ask(R"({ "execute": "netdev_set","arguments": {"nicid": ")" + nic + R"(","netdevid": ")" +
          host + R"("},"id": "netdev" })"),
      ask(R"({ "execute": "set_link","arguments": {"name": ")" + host +
          R"(","up": true},"id": "setlink" })")};
}

std::vector<std::string> AgentClient::detach(int card) {
  const std::string host = "hostnet" + std::to_string(card);
  return {
      ask(R"({ "execute": "set_link","arguments": {"name": ")" + host +
          R"(","up": false},"id": "setlink" })"),
      ask(R"({ "execute": "closefd","arguments": {"fdname": "fd-)" + host +
          R"("},"id": "closefd" })"),
      ask(R"({ "execute": "netdev_del","arguments": {"id": ")" + host + R"("},"id": "netdev" })")};
}

std::string AgentClient::console() {
  const std::string answer = ask(R"({ "execute": "query-chardev","id": "chardev" })");
  const size_t at = answer.find("pty:");
  return at == std::string::npos ? "" : answer.substr(at + 4, answer.find('"', at) - at - 4);
}

std::string readUntil(const rt::Descriptor& from, const std::string& wanted) {
  std::string got;
  while (got.find(wanted) == std::string::npos && becomesReadable(from.number())) {
    char bytes[4096];
    const ssize_t count = read(from.number(), bytes, sizeof bytes);
    if (count <= 0) break;
    got.append(bytes, static_cast<size_t>(count));
  }
  return got;
}

bool becomesReadable(int number, int milliseconds) {
  pollfd polled{number, POLLIN, 0};
  return poll(&polled, 1, milliseconds) == 1;
}

bool signalProcess(pid_t pid, int number) { return pid > 1 && kill(pid, number) == 0; }

bool ends(pid_t pid) {
  const rt::Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  return !process ? errno == ESRCH : becomesReadable(process.number());
}

bool comesToHold(const std::string& path, const std::string& text) {
  return comesTrue([&] { return rt::fakes::contentOf(path).find(text) != std::string::npos; });
}

}  // namespace shim::fakes
