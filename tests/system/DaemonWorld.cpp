#include "tests/system/DaemonWorld.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "host/guests/GuestProcess.h"
#include "model/Tables.h"
#include "runtime/base/Check.h"
#include "statedb/sqlite/SqliteDb.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {

namespace {

namespace fs = std::filesystem;

int statusOf(int wait) { return WIFEXITED(wait) ? WEXITSTATUS(wait) : -WTERMSIG(wait); }

// Starts a program with its output in files.
pid_t spawn(const std::vector<std::string>& words, const std::string& out, const std::string& err) {
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (const auto& word : words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  const pid_t child = fork();
  if (child != 0) return child;
  const int flags = O_WRONLY | O_CREAT | O_TRUNC;
  dup2(open("/dev/null", O_RDONLY), 0);
  dup2(open(out.c_str(), flags, 0600), 1);
  dup2(open(err.c_str(), flags | O_APPEND, 0600), 2);
  close_range(3, ~0U, 0);
  execv(argv[0], argv.data());
  _exit(127);
}

statedb::StateDb openDb(const DaemonWorld& world) {
  return statedb::sqlite::openDb({.stateDir = rt::String(world.stateDir),
                                  .runDir = rt::String(world.runDir),
                                  .isStatus = model::isStatus,
                                  .role = statedb::sqlite::Role::client});
}

}  // namespace

std::string enterDaemonWorld(const std::string& qemu) {
  // For programs that are built with a leak detector.
  setenv("LSAN_OPTIONS", "suppressions=" LEAKS_BY_DESIGN ":print_suppressions=0", 1);
  if (auto needs = Vm::fakes::enterPrivateMounts(qemu); !needs.empty()) return needs;
  if (unshare(CLONE_NEWNET) != 0 || mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0)
    return "the right to make a network namespace of its own";
  ip("link set lo up");
  return {};
}

Ended run(const std::vector<std::string>& words) {
  static int count = 0;
  const std::string file = "/var/run/run" + std::to_string(++count);
  int wait = 0;
  waitpid(spawn(words, file + ".out", file + ".err"), &wait, 0);
  Ended ended{statusOf(wait), contentOf(file + ".out"), contentOf(file + ".err")};
  fs::remove(file + ".out");
  fs::remove(file + ".err");
  return ended;
}

std::string contentOf(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void ip(const std::string& arguments) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe,cert-env33-c): one thread, and a fixed program
  const int status = std::system(("/sbin/ip " + arguments).c_str());
  rt::check(status == 0, arguments.c_str());
}

bool waitUntil(const std::function<bool()>& holds, double seconds) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::duration<double>(seconds);
  while (!holds()) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

DaemonWorld::DaemonWorld() {
  fs::create_directories(stateDir);
  // A CD, which any number of VMs may have.
  std::ofstream file(image, std::ios::binary);
  file.seekp(32769);
  file << "CD001" << std::string(8000, '\0');
}

DaemonWorld::~DaemonWorld() {
  if (daemon_ > 0) end(SIGKILL);
  for (const pid_t guest : guests()) Vm::fakes::signalProcess(guest, SIGKILL);
  waitUntil([this] { return guests().empty(); });
}

void DaemonWorld::launch(std::vector<std::string> options, const std::string& standardError) {
  std::vector<std::string> words = {VMAGENTD, "--state-dir", stateDir, "--run-dir", runDir};
  words.insert(words.end(), options.begin(), options.end());
  fs::remove(logFile);
  daemon_ = spawn(words, "/dev/null", standardError);
}

void DaemonWorld::start(std::vector<std::string> options) {
  launch(std::move(options));
  const bool ready =
      waitUntil([] { return contentOf(logFile).find("vmagentd: ready\n") != std::string::npos; });
  rt::check(ready, contentOf(logFile).c_str());
}

int DaemonWorld::end(int signal) {
  Vm::fakes::signalProcess(daemon_, signal);
  int wait = 0;
  waitpid(daemon_, &wait, 0);
  daemon_ = 0;
  return statusOf(wait);
}

std::string DaemonWorld::log() const { return contentOf(logFile); }

Ended DaemonWorld::vmctl(const std::vector<std::string>& words) const {
  std::vector<std::string> all = {VMCTL, "--state-dir", stateDir, "--run-dir", runDir};
  all.insert(all.end(), words.begin(), words.end());
  return run(all);
}

std::string DaemonWorld::ctl(const std::vector<std::string>& words) const {
  const Ended ended = vmctl(words);
  rt::check(ended.status == 0, (words.at(0) + ": " + ended.err + "\n" + log()).c_str());
  return ended.out;
}

std::string DaemonWorld::row(const std::string& table, const std::string& key) const {
  const auto record = openDb(*this).record(rt::String(table), rt::String(key));
  return record ? record->doc.str() : "";
}

bool DaemonWorld::hasRow(const std::string& table, const std::string& key,
                         const std::string& part) const {
  return row(table, key).find(part) != std::string::npos;
}

void DaemonWorld::write(const std::string& table, const std::string& key,
                        const std::string& doc) const {
  statedb::Transaction transaction;
  if (doc.empty())
    transaction.del(rt::String(table), rt::String(key));
  else
    transaction.put(rt::String(table), rt::String(key), rt::String(doc));
  openDb(*this).commit(transaction);
}

void DaemonWorld::addVm(const std::string& name, const std::vector<std::string>& more) const {
  std::vector<std::string> words = {"add", name, "--disk", image, "--memory", "64"};
  words.insert(words.end(), more.begin(), more.end());
  ctl(words);
}

void DaemonWorld::script(const std::string& name, const std::string& steps) const {
  std::ofstream("/var/run/" + name + ".script") << steps;
}

std::vector<pid_t> DaemonWorld::guests() const {
  std::vector<pid_t> pids;
  for (const auto& guest : guestProcesses()) pids.push_back(guest.pid);
  return pids;
}

std::vector<pid_t> DaemonWorld::guests(const std::string& name) const {
  std::vector<pid_t> pids;
  for (const auto& guest : guestProcesses())
    if (guest.vm == name) pids.push_back(guest.pid);
  return pids;
}

}  // namespace host::fakes
