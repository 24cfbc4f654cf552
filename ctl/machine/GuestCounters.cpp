#include "ctl/machine/GuestCounters.h"

#include <algorithm>
#include <charconv>

#include "guest/GroupName.h"
#include "guest/GroupText.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

constexpr char devicesDirectory[] = "/sys/class/net";
constexpr std::string_view devicePrefix = "macvtap";
// The kernel tells times of processes to programs in hundredths of a second, whatever it counts in.
constexpr uint64_t microsecondsOfATick = 10'000;

uint64_t leadingNumber(std::string_view text) {
  uint64_t number = 0;
  (void)std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// The words between blanks, and the lines.
std::string_view takeUntil(std::string_view& text, char end) {
  const size_t at = std::min(text.find(end), text.size());
  const std::string_view taken = text.substr(0, at);
  text.remove_prefix(std::min(at + 1, text.size()));
  return taken;
}

uint64_t* memberNamed(DiskCounters& counters, std::string_view name) {
  if (name == "rbytes") return &counters.readBytes;
  if (name == "wbytes") return &counters.writtenBytes;
  if (name == "rios") return &counters.reads;
  return name == "wios" ? &counters.writes : nullptr;
}

void add(DiskCounters& sum, const DiskCounters& more) {
  sum.readBytes += more.readBytes;
  sum.writtenBytes += more.writtenBytes;
  sum.reads += more.reads;
  sum.writes += more.writes;
}

// The address of a device, without its line's end; empty: it is gone.
std::string addressOf(const Machine& machine, const std::string& device) {
  const rt::String path = rt::String(devicesDirectory) + "/" + device + "/address";
  std::string address = machine.text(path).value_or("").str();
  address.resize(std::min(address.find('\n'), address.size()));
  return address;
}

}  // namespace

std::optional<uint64_t> numberIn(const std::optional<rt::String>& file) {
  if (!file || file->empty() || (*file)[0] < '0' || (*file)[0] > '9') return std::nullopt;
  return leadingNumber(*file);
}

std::vector<DiskLine> diskLinesOf(std::string_view ioStat) {
  std::vector<DiskLine> lines;
  while (!ioStat.empty()) {
    std::string_view line = takeUntil(ioStat, '\n');
    DiskLine found{takeUntil(line, ' '), {}};
    while (!line.empty()) {
      std::string_view word = takeUntil(line, ' ');
      const std::string_view name = takeUntil(word, '=');
      if (uint64_t* const member = memberNamed(found.counters, name)) *member = leadingNumber(word);
    }
    if (!found.device.empty()) lines.push_back(found);
  }
  return lines;
}

// The program's name comes second, in parentheses, and may be of any characters.
std::optional<ProcessTimes> processTimesOf(std::string_view stat) {
  constexpr size_t userTime = 14;
  constexpr size_t systemTime = 15;
  constexpr size_t beginTime = 22;
  const size_t name = stat.rfind(") ");
  if (name == std::string_view::npos) return std::nullopt;
  stat.remove_prefix(name + 2);
  ProcessTimes times;
  for (size_t field = 3; field <= beginTime; ++field) {
    if (stat.empty()) return std::nullopt;
    const uint64_t number = leadingNumber(takeUntil(stat, ' '));
    if (field == userTime || field == systemTime) times.cpu += number * microsecondsOfATick;
    if (field == beginTime) times.begin = number;
  }
  return times;
}

std::optional<uint64_t> residentIn(std::string_view status) {
  constexpr std::string_view mark = "\nVmRSS:";
  const size_t at = status.find(mark);
  if (at == std::string_view::npos) return std::nullopt;
  const size_t begin = status.find_first_not_of(" \t", at + mark.size());
  return begin == std::string_view::npos ? 0 : leadingNumber(status.substr(begin)) * 1024;
}

void GuestCounterReader::lookAround(const rt::String& group) {
  groups_.clear();
  if (!group.empty())
    for (const rt::String& name : machine_.names(group))
      if (const auto known = guest::groupFrom(name)) groups_[known->vm] = group + "/" + name;
  std::map<std::string, std::string> found;
  for (const rt::String& name : machine_.names(devicesDirectory)) {
    if (!name.str().starts_with(devicePrefix)) continue;
    // By what it has now: a name is given again.
    if (const std::string address = addressOf(machine_, name.str()); !address.empty())
      found[address] = name.str();
  }
  devices_ = std::move(found);
}

GuestCounters GuestCounterReader::read(const Guest& guest) {
  GuestCounters counters;
  if (const auto group = groups_.find(guest.name.str()); group != groups_.end()) {
    counters.run = group->second + " " + rt::toText(guest.qemu);
    readGroup(group->second, counters);
  }
  if (!counters.isThere() && guest.qemu > 0) readProcess(guest.qemu, counters);
  for (const rt::String& address : guest.cards) counters.cards.push_back(readCard(address));
  return counters;
}

void GuestCounterReader::readGroup(const rt::String& path, GuestCounters& counters) {
  const auto cpu = machine_.text(path + "/cpu.stat");
  if (!cpu) return;
  counters.cpu = guest::numberOf(*cpu, "usage_usec");
  counters.cpuThrottled = guest::numberOf(*cpu, "throttled_usec");
  counters.memory = numberIn(machine_.text(path + "/memory.current"));
  counters.memoryMax = numberIn(machine_.text(path + "/memory.max"));
  const auto disks = machine_.text(path + "/io.stat");
  if (!disks) return;
  DiskCounters sum;
  for (const DiskLine& line : diskLinesOf(*disks))
    if (isWholeDisk(line.device)) add(sum, line.counters);
  counters.disk = sum;
}

void GuestCounterReader::readProcess(int32_t pid, GuestCounters& counters) const {
  const rt::String process = "/proc/" + rt::toText(pid);
  const auto stat = machine_.text(process + "/stat");
  const auto times = stat ? processTimesOf(*stat) : std::nullopt;
  if (!times) return;
  counters.run = process + " " + rt::toText(times->begin);
  counters.cpu = times->cpu;
  counters.memory = residentIn(machine_.text(process + "/status").value_or(""));
}

CardFacts GuestCounterReader::readCard(const rt::String& address) const {
  const auto device = devices_.find(address.str());
  if (device == devices_.end()) return {};
  const rt::String place = rt::String(devicesDirectory) + "/" + device->second;
  const auto number = [&](const rt::String& file) { return numberIn(machine_.text(place + file)); };
  const auto count = [&](const char* file) { return number(rt::String("/statistics/") + file); };
  // All of one device are there, or none.
  const auto received = count("rx_bytes");
  if (!received) return {device->second, {}, {}};
  const auto carrier = number("/carrier");
  return {device->second,
          CardCounters{.receivedBytes = *received,
                       .sentBytes = count("tx_bytes").value_or(0),
                       .receivedPackets = count("rx_packets").value_or(0),
                       .sentPackets = count("tx_packets").value_or(0),
                       .receivedDrops = count("rx_dropped").value_or(0),
                       .sentDrops = count("tx_dropped").value_or(0)},
          carrier ? std::optional(*carrier != 0) : std::nullopt};
}

// What a volume is asked for, the disks below it are asked for, too, and are counted.
bool GuestCounterReader::isWholeDisk(std::string_view device) {
  const auto known = wholeDisks_.find(device);
  if (known != wholeDisks_.end()) return known->second;
  const rt::String parts = "/sys/dev/block/" + rt::String(device) + "/slaves";
  return wholeDisks_[std::string(device)] = machine_.names(parts).empty();
}

}  // namespace ctl
