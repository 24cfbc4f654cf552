#include "sim/models/Qemu.h"

#include <fcntl.h>
#include <jansson.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "sim/kernel/Machine.h"

namespace sim {

namespace {

using JsonPtr = std::unique_ptr<json_t, void (*)(json_t*)>;

constexpr size_t mostAsked = 64;
constexpr size_t floodSize = 4096;
constexpr Duration floodPause = std::chrono::milliseconds(10);
constexpr int stormSize = 100;

constexpr const char* greeting =
    R"({"QMP": {"version": {"qemu": {"micro": 22, "minor": 2, "major": 7}, )"
    R"("package": "Debian 1:7.2"}, "capabilities": ["oob"]}})";

JsonPtr parsed(const std::string& text) {
  return {json_loadb(text.data(), text.size(), JSON_ALLOW_NUL, nullptr), json_decref};
}

std::string textOf(const json_t* object, const char* member) {
  const json_t* const value = json_object_get(object, member);
  if (json_is_integer(value)) return std::to_string(json_integer_value(value));
  return json_is_string(value) ? json_string_value(value) : "";
}

std::string written(const json_t* value) {
  const std::unique_ptr<char, void (*)(void*)> text(json_dumps(value, JSON_ENCODE_ANY), std::free);
  return text ? text.get() : "";
}

// The value of "key" in "a,key=value,b=…".
std::string property(const std::string& text, const std::string& key) {
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find(',', at), text.size());
    const std::string part = text.substr(at, end - at);
    if (part.starts_with(key + "=")) return part.substr(key.size() + 1);
    at = end + 1;
  }
  return "";
}

int numberOf(const std::string& text) { return text.empty() ? -1 : std::stoi(text); }

// By SIGTERM, SIGINT or SIGHUP; a process' own, but one QEMU's call is never another's.
volatile sig_atomic_t lastSignal = 0;
void handleSignal(int number) { lastSignal = number; }

}  // namespace

Qemu::Qemu(Qemus& all, std::vector<std::string> arguments)
    : all_(all),
      pid_(machine().scheduler.current()->pid),
      arguments_(std::move(arguments)),
      started_(machine().now()) {
  readArguments();
  if (all_.mannerOf) manner_ = all_.mannerOf(vm_);
}

void Qemu::readArguments() {
  for (size_t i = 1; i + 1 < arguments_.size(); ++i) {
    const std::string& option = arguments_[i];
    const std::string& value = arguments_[i + 1];
    if (option == "-name") vm_ = value;
    if (option == "-chardev" && property(value, "id") == "monitor")
      monitor_ = numberOf(property(value, "fd"));
    if (option == "-chardev" && property(value, "id") == "serial0")
      console_ = numberOf(property(value, "fd"));
    if (option == "-add-fd")
      fileSets_[property(value, "set")].push_back(numberOf(property(value, "fd")));
    if (option == "-drive") drive_ = property(value, "file") + property(value, "file.filename");
    if (option == "-netdev" && value.starts_with("hubport,"))
      devices_.addHubPort(property(value, "id"), property(value, "hubid"));
    if (option == "-device" && !property(value, "mac").empty()) {
      std::string mac = property(value, "mac");
      std::transform(mac.begin(), mac.end(), mac.begin(),
                     [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
      devices_.addCard(property(value, "id"), {mac, property(value, "netdev")});
    }
  }
}

// Why it cannot be used; empty: it can.
std::string Qemu::openDisk() {
  constexpr std::string_view sets = "/dev/fdset/";
  if (!drive_.starts_with(sets)) return "it is no descriptor that was given";
  for (const int number : fileSets_[drive_.substr(sets.size())]) {
    const FilePtr file = machine().scheduler.current()->descriptors.file(number);
    if (!file || (file->flags & O_ACCMODE) != O_RDWR) continue;
    disk_ = file->inode();
    imagePath_ = file->text();
    return "";
  }
  return std::strerror(EACCES);
}

int Qemu::run() {
  if (const std::string trouble = openDisk(); !trouble.empty()) {
    std::fprintf(stderr, "qemu-system-x86_64: -drive file=%s: %s\n", drive_.c_str(),
                 trouble.c_str());
    return 1;
  }
  if (manner_.endsAtOnceWith) {
    std::fprintf(stderr, "qemu-system-x86_64: %s\n", QemuManner::refusal);
    return *manner_.endsAtOnceWith;
  }
  all_.add(pid_, *this);
  struct sigaction action {};
  action.sa_handler = manner_.heedsTerm ? handleSignal : SIG_IGN;
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) sigaction(number, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);
  while (!ends_) {
    passTime();
    if (ends_) break;
    const Time next = nextTime();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - machine().now());
    pollfd polled[] = {{monitor_, POLLIN, 0}, {console_, POLLIN, 0}};
    lastSignal = 0;
    const int ready =
        poll(polled, 2, next == never ? -1 : std::max(0, static_cast<int>(left.count())));
    if (ready < 0 && lastSignal != 0 && !manner_.heedsTerm) continue;
    if (ready < 0 && lastSignal != 0) {
      std::fprintf(stderr, "qemu-system-x86_64: terminating on signal %d\n", int{lastSignal});
      shutDown("host-signal", false);
      continue;
    }
    if (polled[0].revents != 0) receive();
    if (polled[1].revents != 0) listenToConsole();
    if (devices_.hasAborted()) raise(SIGABRT);
  }
  return end();
}

int Qemu::end() {
  for (const Saying& each : std::exchange(unsaid_, {})) writeLine(each.text);
  if (monitor_ >= 0) close(monitor_);
  usleep(static_cast<useconds_t>(manner_.untilEnd / std::chrono::microseconds(1)));
  all_.remove(pid_);
  return 0;
}

Time Qemu::nextTime() const {
  Time next = never;
  if (!greeted_ && manner_.untilGreeting != never) next = started_ + manner_.untilGreeting;
  if (!unsaid_.empty()) next = std::min(next, unsaid_.front().due);
  for (const auto& other : {powerOffAt_, floodAt_})
    if (other) next = std::min(next, *other);
  return next;
}

void Qemu::passTime() {
  const Time now = machine().now();
  if (!greeted_ && manner_.untilGreeting != never && now >= started_ + manner_.untilGreeting) {
    greeted_ = true;
    writeLine(greeting);
  }
  sayDue();
  if (powerOffAt_ && now >= *powerOffAt_) {
    powerOffAt_.reset();
    shutDown("guest-shutdown", true);
  }
  if (floodAt_ && now >= *floodAt_) {
    const std::string bytes(floodSize, 'x');
    (void)!send(console_, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    floodAt_ = now + floodPause;
  }
}

void Qemu::sayDue() {
  while (!unsaid_.empty() && unsaid_.front().due <= machine().now()) {
    const std::string text = unsaid_.front().text;
    unsaid_.pop_front();
    writeLine(text);
  }
}

void Qemu::writeLine(const std::string& text) {
  if (monitor_ < 0 || !canSpeak_) return;
  const std::string line = text + "\r\n";
  if (manner_.answers == QemuManner::Answers::halves && line.size() > 2 && greeted_) {
    const size_t half = line.size() / 2;
    (void)!send(monitor_, line.data(), half, MSG_NOSIGNAL);
    usleep(1000);
    (void)!send(monitor_, line.data() + half, line.size() - half, MSG_NOSIGNAL);
    return;
  }
  (void)!send(monitor_, line.data(), line.size(), MSG_NOSIGNAL);
}

void Qemu::receive() {
  char bytes[4096];
  alignas(cmsghdr) char control[256];
  iovec room{bytes, sizeof bytes};
  msghdr message{};
  message.msg_iov = &room;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t count = recvmsg(monitor_, &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
  if (count <= 0) {
    if (count == 0 || errno != EAGAIN) close(std::exchange(monitor_, -1));
    return;
  }
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part; part = CMSG_NXTHDR(&message, part)) {
    int number = -1;
    std::memcpy(&number, CMSG_DATA(part), sizeof number);
    const FilePtr file = machine().scheduler.current()->descriptors.file(number);
    // Open as long as anything is made of it.
    came_.push_back(FilePtr(file.get(), [file, number](File* /*same*/) { close(number); }));
  }
  unread_.append(bytes, static_cast<size_t>(count));
  for (size_t end = unread_.find('\n'); end != std::string::npos; end = unread_.find('\n')) {
    const std::string line = unread_.substr(0, end);
    unread_.erase(0, end + 1);
    hear(line);
  }
}

void Qemu::hear(const std::string& line) {
  asked_.push_back(line);
  if (asked_.size() > mostAsked) asked_.pop_front();
  const std::string answer = answerTo(line);
  if (manner_.storms)
    for (int i = 0; i < stormSize; ++i) event("RTC_CHANGE", R"({"offset": 1})");
  if (!answer.empty()) say(answer);
}

std::string Qemu::answerTo(const std::string& line) {
  const JsonPtr request = parsed(line);
  const std::string execute = textOf(request.get(), "execute");
  const json_t* const id = json_object_get(request.get(), "id");
  std::string idText = id ? ", \"id\": " + written(id) : "";
  const auto manner =
      answers_++ < manner_.goodAnswers ? QemuManner::Answers::good : manner_.answers;
  if (manner == QemuManner::Answers::none) return "";
  if (manner == QemuManner::Answers::rubbish) return "%&/(no JSON";
  if (manner == QemuManner::Answers::othersIds) idText = ", \"id\": 987654321";
  if (manner == QemuManner::Answers::errors)
    return R"({"error": {"class": "GenericError", "desc": "not today"})" + idText + "}";
  const auto refusal = carryOut(execute, json_object_get(request.get(), "arguments"));
  if (refusal)
    return R"({"error": {"class": ")" + refusal->kind + R"(", "desc": ")" + refusal->text + "\"}" +
           idText + "}";
  std::string value = "{}";
  if (execute == "query-status")
    value = state_ == State::running
                ? R"({"status": "running", "singlestep": false, "running": true})"
                : R"({"status": "prelaunch", "singlestep": false, "running": false})";
  if (execute == "query-chardev")
    value = R"([{"frontend-open": true, "filename": "unix:", "label": "monitor"}, )"
            R"({"frontend-open": true, "filename": "unix:", "label": "serial0"}])";
  return "{\"return\": " + value + idText + "}";
}

QemuDevices::Answer Qemu::carryOut(const std::string& execute, const void* given) {
  const auto* const arguments = static_cast<const json_t*>(given);
  const auto text = [&](const char* member) { return textOf(arguments, member); };
  if (execute == "cont" && state_ == State::prelaunch) {
    state_ = State::running;
    event("RESUME");
    if (manner_.powersOffAfter) powerOffAt_ = machine().now() + *manner_.powersOffAfter;
    if (manner_.floods) floodAt_ = machine().now();
  }
  if (execute == "system_powerdown") powerButton();
  if (execute == "quit" && manner_.heedsQuit) shutDown("host-qmp-quit", false);
  if (execute == "getfd") {
    if (came_.empty())
      return QemuDevices::Refusal{"GenericError", "No file descriptor supplied via SCM_RIGHTS"};
    devices_.keep(text("fdname"), came_.back());
    came_.clear();
  }
  if (execute == "closefd") return devices_.closeFile(text("fdname"));
  if (execute == "netdev_add" && text("type") == "tap")
    return devices_.addTap(text("id"), text("fd"));
  if (execute == "netdev_add") return devices_.addPort(text("id"), text("hubid"), text("netdev"));
  if (execute == "netdev_del") return removeNetdev(text("id"));
  if (execute == "set_link")
    return devices_.setLink(text("name"), json_is_true(json_object_get(arguments, "up")));
  return std::nullopt;
}

QemuDevices::Answer Qemu::removeNetdev(const std::string& id) {
  std::vector<std::string> before;
  for (const auto& [card, its] : devices_.cards())
    if (devices_.isConnected(card)) before.push_back(card);
  const QemuDevices::Answer answer = devices_.remove(id);
  for (const std::string& card : before)
    if (!devices_.hasPeer(card) && guestRuns() && all_.bared) all_.bared(vm_, card);
  return answer;
}

void Qemu::say(const std::string& answer) {
  const Time before = unsaid_.empty() ? machine().now() : unsaid_.back().due;
  unsaid_.push_back({std::max(before, machine().now() + manner_.untilAnswer), answer});
}

void Qemu::event(const std::string& name, const std::string& data) {
  const timespec now = machine().clock.timeOfDay();
  const std::string text = R"({"timestamp": {"seconds": )" + std::to_string(now.tv_sec) +
                           R"(, "microseconds": )" + std::to_string(now.tv_nsec / 1000) +
                           R"(}, "event": ")" + name + "\"" +
                           (data.empty() ? "" : ", \"data\": " + data) + "}";
  const Time due = unsaid_.empty() ? machine().now() : unsaid_.back().due;
  unsaid_.push_back({due, text});
}

void Qemu::powerOff() {
  powerOffAt_ = machine().now();
  if (const auto process = machine().processes.find(pid_)) process->wake();
}

void Qemu::powerButton() {
  event("POWERDOWN");
  if (state_ == State::running && manner_.untilPowerOff && !powerOffAt_)
    powerOffAt_ = machine().now() + *manner_.untilPowerOff;
}

void Qemu::shutDown(const std::string& reason, bool byGuest) {
  if (ends_) return;
  event("SHUTDOWN", std::string(R"({"guest": )") + (byGuest ? "true" : "false") +
                        R"(, "reason": ")" + reason + "\"}");
  ends_ = true;
}

void Qemu::listenToConsole() {
  char bytes[1024];
  const ssize_t count = recv(console_, bytes, sizeof bytes, MSG_DONTWAIT);
  if (count == 0 || (count < 0 && errno != EAGAIN)) {
    close(std::exchange(console_, -1));
    return;
  }
  constexpr char powerOffKey = '\x04';
  if (count > 0 && std::find(bytes, bytes + count, powerOffKey) != bytes + count &&
      state_ == State::running)
    shutDown("guest-shutdown", true);
}

std::vector<const Qemu*> Qemus::of(const std::string& vm) const {
  std::vector<const Qemu*> found;
  for (const auto& [pid, qemu] : all_)
    if (qemu->vm() == vm) found.push_back(qemu);
  return found;
}

Qemu* Qemus::find(pid_t pid) const {
  const auto found = all_.find(pid);
  return found == all_.end() ? nullptr : found->second;
}

void Qemus::add(pid_t pid, Qemu& qemu) {
  all_[pid] = &qemu;
  if (added) added(pid, qemu);
}

Program qemuProgram(Qemus& all) {
  return [&all](int argc, char** argv) { return Qemu(all, {argv, argv + argc}).run(); };
}

}  // namespace sim
