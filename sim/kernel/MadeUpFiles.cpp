#include "sim/kernel/MadeUpFiles.h"

#include <charconv>
#include <optional>

#include "sim/kernel/Machine.h"

namespace sim {

namespace {

constexpr dev_t processDevice = 0x16;
constexpr dev_t systemDevice = 0x17;

InodePtr madeUpFile(dev_t device, std::function<std::string()> content) {
  const auto file = std::make_shared<Inode>(S_IFREG | 0444U, device);
  file->madeUp = std::move(content);
  return file;
}

InodePtr madeUpLink(dev_t device, const std::string& target) {
  const auto link = std::make_shared<Inode>(S_IFLNK | 0777U, device);
  link->target = target;
  return link;
}

std::optional<int> numberFrom(const std::string& text) {
  int number = 0;
  const auto [at, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && at == text.data() + text.size() ? std::optional(number)
                                                                 : std::nullopt;
}

// Inodes of a kernel's own making live as long as somebody looks at them.
class MadeUpDirectory : public Inode {
 public:
  explicit MadeUpDirectory(dev_t ofDevice) : Inode(S_IFDIR | 0555U, ofDevice) {}
};

class OpenFiles final : public MadeUpDirectory {
 public:
  explicit OpenFiles(std::shared_ptr<Process> process)
      : MadeUpDirectory(processDevice), process_(std::move(process)) {}

  InodePtr child(const std::string& entry) override {
    const auto place = numberFrom(entry);
    const FilePtr file = place ? process_->descriptors.file(*place) : nullptr;
    if (!file) return nullptr;
    const InodePtr link = madeUpLink(processDevice, file->text());
    if (const InodePtr inode = file->inode()) link->jump = inode;
    return link;
  }
  std::vector<std::string> entries() override {
    std::vector<std::string> names;
    for (const int place : process_->descriptors.numbers()) names.push_back(std::to_string(place));
    return names;
  }

 private:
  const std::shared_ptr<Process> process_;
};

// As the kernel cuts it.
std::string commandOf(const Process& process) {
  constexpr size_t longest = 15;
  const std::string& path = process.programPath;
  return path.substr(path.rfind('/') + 1).substr(0, longest);
}

// What programs look at of it: the name, and when it was started, in the kernel's ticks.
std::string statOf(const Process& process) {
  constexpr auto tick = std::chrono::milliseconds(10);
  const pid_t parent = process.parent ? process.parent->pid : 1;
  return std::to_string(process.pid) + " (" + commandOf(process) + ") S " + std::to_string(parent) +
         " " + std::to_string(process.group) + " " + std::to_string(process.session) +
         " 0 -1 0 0 0 0 0 0 0 0 0 20 0 1 0 " + std::to_string(process.started / tick) + " 0\n";
}

// One each, of the process' own number.
class Threads final : public MadeUpDirectory {
 public:
  explicit Threads(std::shared_ptr<Process> process)
      : MadeUpDirectory(processDevice), process_(std::move(process)) {}

  InodePtr child(const std::string& entry) override {
    if (entry != std::to_string(process_->pid)) return nullptr;
    const auto thread = std::make_shared<MadeUpDirectory>(device);
    thread->children["children"] = madeUpFile(device, [process = process_] {
      std::string all;
      for (const Process* const each : process->children) all += std::to_string(each->pid) + " ";
      return all;
    });
    return thread;
  }
  std::vector<std::string> entries() override { return {std::to_string(process_->pid)}; }

 private:
  const std::shared_ptr<Process> process_;
};

// Who it is of, as lines of its status.
std::string usersOf(const Process& process) {
  const std::string user = "\t" + std::to_string(process.user);
  const std::string four = user + user + user + user + "\n";
  return "\nUid:" + four + "Gid:" + four;
}

class ProcessDirectory final : public MadeUpDirectory {
 public:
  explicit ProcessDirectory(std::shared_ptr<Process> process)
      : MadeUpDirectory(processDevice), process_(std::move(process)) {}

  InodePtr child(const std::string& entry) override {
    const auto process = process_;
    if (entry == "cmdline")
      return madeUpFile(device, [process] {
        std::string line;
        if (process->lives())
          for (const std::string& word : process->arguments) line += word + '\0';
        return line;
      });
    if (entry == "environ")
      return madeUpFile(device, [process] {
        std::string all;
        if (process->lives())
          for (const std::string& each : process->environmentTexts) all += each + '\0';
        return all;
      });
    if (entry == "fd") return std::make_shared<OpenFiles>(process);
    if (!process->lives()) return nullptr;
    if (entry == "task") return std::make_shared<Threads>(process);
    if (entry == "root") return process->root ? process->root : machine().files.root();
    if (entry == "exe") return madeUpLink(device, process->programPath);
    if (entry == "oom_score_adj") return scoreFile(process);
    if (entry == "comm")
      return madeUpFile(device, [process] { return commandOf(*process) + "\n"; });
    // Nobody logs in: who does something is who is root.
    if (entry == "loginuid") return madeUpFile(device, [] { return std::string("4294967295"); });
    if (entry == "stat") return madeUpFile(device, [process] { return statOf(*process); });
    if (entry == "status")
      return madeUpFile(device,
                        [process] { return "Name:\t" + commandOf(*process) + usersOf(*process); });
    machine().fail("unknown call", "/proc", "nobody has made /proc/PID/" + entry);
    return nullptr;
  }
  std::vector<std::string> entries() override {
    return {"cmdline",  "comm",          "environ", "exe",  "fd",
            "loginuid", "oom_score_adj", "root",    "stat", "status"};
  }

 private:
  InodePtr scoreFile(const std::shared_ptr<Process>& process) const {
    const auto file =
        madeUpFile(device, [process] { return std::to_string(process->outOfMemoryScore) + "\n"; });
    file->mode = S_IFREG | 0644U;
    file->written = [process](std::string_view text) {
      std::from_chars(text.data(), text.data() + text.size(), process->outOfMemoryScore);
    };
    return file;
  }

  const std::shared_ptr<Process> process_;
};

class ProcessFiles final : public MadeUpDirectory {
 public:
  ProcessFiles() : MadeUpDirectory(processDevice) {
    const auto cpus = madeUpFile(device, [] {
      return std::string("processor\t: 0\nvendor_id\t: GenuineIntel\nflags\t\t: fpu vmx sse2\n");
    });
    children["cpuinfo"] = cpus;
    const auto weight = madeUpFile(device, [] { return std::string("64\n"); });
    InodePtr directory = std::make_shared<MadeUpDirectory>(device);
    directory->children["dev_weight"] = weight;
    for (const char* const above : {"core", "net", "sys"}) {
      const auto parentDirectory = std::make_shared<MadeUpDirectory>(device);
      parentDirectory->children[above] = directory;
      directory->parent = parentDirectory;
      directory = parentDirectory;
    }
    children["sys"] = directory->children["sys"];
  }

  InodePtr child(const std::string& entry) override {
    if (entry == "self") {
      const Process* const current = machine().scheduler.current();
      return current ? madeUpLink(device, std::to_string(current->pid)) : nullptr;
    }
    const auto pid = numberFrom(entry);
    if (!pid) return Inode::child(entry);
    const auto process = machine().processes.find(*pid);
    return process ? std::make_shared<ProcessDirectory>(process) : nullptr;
  }
  std::vector<std::string> entries() override {
    std::vector<std::string> names;
    for (const auto& [pid, process] : machine().processes.all())
      names.push_back(std::to_string(pid));
    for (const char* const other : {"cpuinfo", "self", "sys"}) names.emplace_back(other);
    return names;
  }
};

class LinkDirectory final : public MadeUpDirectory {
 public:
  explicit LinkDirectory(const Link& link) : MadeUpDirectory(systemDevice) {
    const auto add = [this](const char* name, const std::string& text) {
      children[name] = madeUpFile(device, [text] { return text + "\n"; });
    };
    add("ifindex", std::to_string(link.index));
    if (link.isTap()) {
      const std::string tap = "tap" + std::to_string(link.index);
      children[tap] = std::make_shared<MadeUpDirectory>(device);
      const std::string ofDevice = "240:" + std::to_string(link.index);
      children[tap]->children["dev"] = madeUpFile(device, [ofDevice] { return ofDevice + "\n"; });
    }
    if (link.kind != "bridge") return;
    children["bridge"] = std::make_shared<MadeUpDirectory>(device);
    const std::string filtering = link.filtersVlans ? "1\n" : "0\n";
    children["bridge"]->children["vlan_filtering"] =
        madeUpFile(device, [filtering] { return filtering; });
    children["bridge"]->children["ageing_time"] =
        madeUpFile(device, [] { return std::string("30000\n"); });
  }
};

class NetworkFiles final : public MadeUpDirectory {
 public:
  NetworkFiles() : MadeUpDirectory(systemDevice) {}

  InodePtr child(const std::string& entry) override {
    const Link* const link = machine().network.find(entry);
    return link ? std::make_shared<LinkDirectory>(*link) : nullptr;
  }
  std::vector<std::string> entries() override {
    std::vector<std::string> names;
    for (const auto& [index, link] : machine().network.links()) names.push_back(link.name);
    return names;
  }
};

}  // namespace

InodePtr processFiles() { return std::make_shared<ProcessFiles>(); }
InodePtr networkFiles() { return std::make_shared<NetworkFiles>(); }

}  // namespace sim
