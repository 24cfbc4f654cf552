#include "tests/system/FaultWorld.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <sstream>

#include "guest/VmFiles.h"
#include "model/Tables.h"
#include "runtime/base/Check.h"
#include "shim/keep/ListeningSocket.h"
#include "statedb/sqlite/SqliteDb.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {

namespace {

namespace fs = std::filesystem;

constexpr double busy = 40;  // seconds; for a start on a busy machine
const std::vector<std::string> statusTables = {"vmStatus", "vmProcess", "vmProblem",
                                               "interfaceStatus", "fdb"};

size_t linesOf(const std::string& text) {
  return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

std::string list(const std::vector<pid_t>& pids) {
  std::string text;
  for (const pid_t pid : pids) text += " " + std::to_string(pid);
  return text;
}

std::string rowsOf(const DaemonWorld& world) {
  auto db = statedb::sqlite::openDb({.stateDir = rt::String(world.stateDir),
                                     .runDir = rt::String(world.runDir),
                                     .isStatus = model::isStatus,
                                     .role = statedb::sqlite::Role::client});
  std::string text;
  for (const auto& table : statusTables)
    for (const auto& record : db.snapshot({rt::String(table)}).records)
      text += table + " " + record.key.str() + " " + std::to_string(record.revision) + " " +
              record.doc.str() + "\n";
  return text;
}

// What the daemon asked of a QEMU, but for its state, in that part of its log.
std::string requestsIn(const std::string& log) {
  std::istringstream lines(log);
  std::string requests;
  for (std::string line; std::getline(lines, line);)
    if (line.find("doIssueQmpRequest") != std::string::npos &&
        line.find("query-") == std::string::npos)
      requests += line + "\n";
  return requests;
}

}  // namespace

FaultWorld::FaultWorld() {
  // What the test before has left, when one program runs several.
  for (const auto& directory : {stateDir, runDir}) fs::remove_all(directory);
  fs::create_directories(stateDir);
}

void FaultWorld::start(const std::vector<std::string>& more) {
  std::vector<std::string> words = {"--shim", VMAGENT_SHIM,     "--accel",
                                    "tcg",    "--stop-timeout", "1"};
  words.insert(words.end(), more.begin(), more.end());
  DaemonWorld::start(words);
}

Ended FaultWorld::addGuest(const std::string& vm, const std::vector<std::string>& more) const {
  const std::string disk = "/var/run/" + vm + ".img";
  fs::copy_file(BOOTSECTOR, disk, fs::copy_options::overwrite_existing);
  std::vector<std::string> words = {"add", vm, "--disk", disk, "--memory", "32", "--enabled"};
  words.insert(words.end(), more.begin(), more.end());
  return vmctl(words);
}

void FaultWorld::runGuests(const std::vector<std::string>& vms,
                           const std::vector<std::string>& more) {
  for (const auto& vm : vms) {
    const Ended ended = addGuest(vm, more);
    ASSERT_EQ(ended.status, 0) << ended.err;
  }
  for (const auto& vm : vms) {
    ASSERT_TRUE(waitUntil([&] { return hasRow("vmProcess", vm, R"("process":"running")"); }, busy))
        << vm << log();
    // What a guest of that name said before is on the console still.
    ASSERT_TRUE(waitUntil([&] { return qemu(vm) != 0; }, busy)) << vm << log();
    ASSERT_TRUE(saysOnConsole(vm, "BOOTSECTOR READY")) << vm << log();
  }
}

pid_t FaultWorld::qemu(const std::string& vm) {
  const auto found = qemus(vm);
  return found.size() == 1 ? found.front() : 0;
}

pid_t FaultWorld::keeper(const std::string& vm) const {
  const rt::Descriptor client = shim::connectionTo(directory(vm) + "/shim.sock");
  if (!client) return 0;
  std::string greeting;
  waitUntil([&] {
    char bytes[512];
    const ssize_t count = read(client.number(), bytes, sizeof bytes);
    if (count > 0) greeting.append(bytes, static_cast<size_t>(count));
    return greeting.find('\n') != std::string::npos || count == 0;
  });
  const size_t at = greeting.find("\"pid\":");
  return at == std::string::npos ? 0 : std::stoi(greeting.substr(at + 6));
}

std::string FaultWorld::shimLog(const std::string& vm) const {
  return contentOf(directory(vm) + "/shim.log");
}

std::string FaultWorld::shownProblem(const std::string& vm) const {
  constexpr std::string_view begin = "Problem:  ";
  std::istringstream lines(vmctl({"show", vm}).out);
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with(begin)) return line.substr(begin.size()) == "-" ? "" : line;
  return {};
}

std::string FaultWorld::wrong(const std::vector<Expected>& all) const {
  std::string found;
  int cards = 0;
  for (const auto& [vm, runs, qemu, itsCards] : all) {
    const auto tell = [&found, &name = vm](const std::string& what) {
      found.append(name).append(": ").append(what).append("\n");
    };
    const auto its = qemus(vm);
    const auto shims = guests(vm);
    if (its.size() != (runs ? 1U : 0U)) tell("has the QEMUs" + list(its));
    if (runs && qemu != 0 && its != std::vector{qemu})
      tell("has the QEMU" + list(its) + " in place of " + std::to_string(qemu));
    // The one that keeps the guest, and one that stands in for it.
    if (runs ? shims.empty() || shims.size() > 2 : !shims.empty()) tell("has shims" + list(shims));
    for (const std::string& socket : {"/var/run/" + vm + ".monitor", directory(vm) + "/shim.sock",
                                      directory(vm) + "/console.sock"})
      if (fs::exists(socket) != runs) tell(socket + (runs ? " is missing" : " is left"));
    const std::string process = row("vmProcess", vm);
    if (runs != (process.find(R"("process":"running")") != std::string::npos))
      tell("process " + process);
    if (!runs && process.find(R"("ending")") != std::string::npos) tell("process " + process);
    const std::string status = row("vmStatus", vm);
    if (runs && status.find(R"("state":"Running")") == std::string::npos) tell("status " + status);
    if (!runs && status.find(R"("enabled":true)") != std::string::npos) tell("status " + status);
    if (runs) cards += itsCards;
  }
  if (fs::exists(guest::startingMonitor)) found.append(guest::startingMonitor).append(" is left\n");
  const std::string taps = run({"/sbin/ip", "-o", "link", "show", "type", "macvtap"}).out;
  if (linesOf(taps) != static_cast<size_t>(cards)) found += "macvtap devices: " + taps;
  if (fs::exists("/sys/class/net/br0")) {
    const std::string entries = run({"/sbin/bridge", "fdb", "show", "dev", "br0"}).out;
    // A macvtap's own address is shown, too, but as one of the device's.
    std::istringstream lines(entries);
    size_t guestsOwn = 0;
    for (std::string line; std::getline(lines, line);)
      if (line.starts_with("52:54:00:") && line.find(" master br0 permanent") != std::string::npos)
        ++guestsOwn;
    if (guestsOwn != static_cast<size_t>(cards)) found += "addresses in the bridge: " + entries;
  }
  return found;
}

testing::AssertionResult FaultWorld::settles(const std::vector<Expected>& all,
                                             double seconds) const {
  std::string found;
  const auto isRight = [&] { return (found = wrong(all)).empty(); };
  if (waitUntil(isRight, seconds)) return testing::AssertionSuccess();
  return testing::AssertionFailure() << found << log();
}

testing::AssertionResult FaultWorld::rests(const std::vector<Expected>& all) const {
  const std::string before = rowsOf(*this);
  const size_t from = log().size();
  std::map<std::string, size_t> polled;
  for (const auto& each : all)
    if (each.runs) polled[each.vm] = polls(each.vm).size();
  const bool wasPolled = waitUntil(
      [&] {
        return std::all_of(polled.begin(), polled.end(), [&](const auto& each) {
          return polls(each.first).size() > each.second;
        });
      },
      truth);
  if (!wasPolled) return testing::AssertionFailure() << "a VM is not polled\n" << log();
  if (const std::string after = rowsOf(*this); after != before)
    return testing::AssertionFailure() << "status went from\n" << before << "to\n" << after;
  if (const std::string requests = requestsIn(log().substr(from)); !requests.empty())
    return testing::AssertionFailure() << "a QEMU was asked:\n" << requests;
  if (const std::string found = wrong(all); !found.empty())
    return testing::AssertionFailure() << found;
  return testing::AssertionSuccess();
}

std::vector<double> FaultWorld::looks() const {
  const std::regex time(R"((\d\d):(\d\d):(\d\d\.\d+))");
  std::istringstream lines(log());
  std::vector<double> found;
  double begin = 0;
  for (std::string line; std::getline(lines, line);) {
    const bool begins = line.find(" Trying to connect to ") != std::string::npos;
    const bool ends = line.find("connectMonitor connected to ") != std::string::npos ||
                      line.find("FAIL: cannot connect to ") != std::string::npos;
    std::smatch part;
    if ((!begins && !ends) || !std::regex_search(line, part, time)) continue;
    const double at = std::stod(part[1]) * 3600 + std::stod(part[2]) * 60 + std::stod(part[3]);
    if (begins) begin = at;
    if (ends) found.push_back(at - begin);
  }
  return found;
}

void FaultWorld::signal(pid_t process, int number) { Vm::fakes::signalProcess(process, number); }

size_t FaultWorld::descriptors(pid_t process) {
  constexpr double aWhile = 0.5;
  size_t least = SIZE_MAX;
  waitUntil(
      [&] {
        std::error_code error;
        const fs::directory_iterator all("/proc/" + std::to_string(process) + "/fd", error);
        const auto counts = [&error](const fs::directory_entry& each) {
          return fs::read_symlink(each, error) != "anon_inode:[eventpoll]";
        };
        least = std::min(least,
                         static_cast<size_t>(std::count_if(fs::begin(all), fs::end(all), counts)));
        return false;
      },
      aWhile);
  return least;
}

}  // namespace host::fakes
