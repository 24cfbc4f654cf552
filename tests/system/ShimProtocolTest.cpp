// Shims outlive the daemons that started them: this build's successors meet shims of earlier ones,
// and its shims meet those of later ones. So each side is played what the other one said when the
// protocol was shipped.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <jansson.h>
#include <sys/syscall.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "shim/fakes/AdoptionWorld.h"
#include "shim/keep/VmDirectory.h"
#include "shim/keep/Wire.h"

namespace shim {
namespace {

using fakes::exited;
using fakes::signaled;
using testing::HasSubstr;

struct JsonRelease {
  void operator()(json_t* value) const { json_decref(value); }
};
using JsonPtr = std::unique_ptr<json_t, JsonRelease>;

struct Entry {
  char direction = '#';
  std::string raw;
  int descriptors = 0;
};

// A conversation, with this run's values in place of their names.
std::vector<Entry> conversation(const std::string& name,
                                const std::map<std::string, std::string>& values) {
  std::vector<Entry> entries;
  std::ifstream in(VMAGENT_TEST_DATA "/shim/" + name);
  for (std::string text; std::getline(in, text);) {
    const JsonPtr line(json_loads(text.c_str(), 0, nullptr));
    const char* direction = "";
    const char* raw = "";
    Entry entry;
    EXPECT_EQ(json_unpack(line.get(), "{s:s, s:s, s?i}", "dir", &direction, "raw", &raw, "fds",
                          &entry.descriptors),
              0)
        << text;
    entry.direction = *direction;
    entry.raw = raw;
    for (const auto& [key, value] : values)
      if (const size_t at = entry.raw.find(key); at != std::string::npos)
        entry.raw.replace(at, key.size(), value);
    if (entry.direction != '#') entries.push_back(entry);
  }
  EXPECT_GT(entries.size(), 0U) << name;
  return entries;
}

std::string listOf(const std::vector<std::string>& words) {
  const JsonPtr list(json_array());
  for (const auto& word : words) json_array_append_new(list.get(), json_string(word.c_str()));
  const std::unique_ptr<char, void (*)(void*)> text(json_dumps(list.get(), JSON_COMPACT), free);
  return text.get();
}

rt::Descriptor processOf(pid_t pid) {
  return rt::Descriptor(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
}

class ShimProtocol1 : public fakes::AdoptionWorld {
 protected:
  // The next line of a peer; empty when it has hung up.
  static Message next(Wire& wire, std::vector<Message>& heard) {
    while (heard.empty() && !wire.isClosed() && fakes::becomesReadable(wire.number()))
      for (Message& message : wire.receive()) heard.push_back(std::move(message));
    if (heard.empty()) return {};
    Message first = std::move(heard.front());
    heard.erase(heard.begin());
    return first;
  }
  // This build's shim keeps a guest, and is played what a successor said.
  void playSuccessor(const std::string& name) {
    const pid_t qemu = orphan();
    const pid_t successor = getpid();  // and its own daemon
    Wire wire(connectionTo(file("shim.sock")), 1 << 20);
    std::vector<Message> heard;
    for (const Entry& entry :
         conversation(name, {{"$SHIM", std::to_string(daemons.front()->shim())},
                             {"$QEMU", std::to_string(qemu)},
                             {"$PID", std::to_string(successor)},
                             {"$DAEMON", std::to_string(successor)},
                             {"$ARGUMENTS", listOf(arguments())}})) {
      if (entry.raw == "SIGKILL to QEMU") fakes::signalProcess(qemu, SIGKILL);
      if (entry.direction == '<') {
        EXPECT_EQ(next(wire, heard).text, entry.raw);
      }
      if (entry.direction != '>') continue;
      Message message{entry.raw + "\n", {}};
      for (int i = 0; i < entry.descriptors; ++i)
        message.descriptors.push_back(processOf(successor));
      wire.send(std::move(message));
    }
    wire.flush();
  }
  // A daemon of this build starts the VM, whose successor is played what a shim said; how it ends.
  int playShim(const std::string& name) {
    std::filesystem::create_directories(folder / "vm/guest0");
    VmLock lock(file("lock"));
    EXPECT_TRUE(lock.takeKeeping());
    ListeningSocket socket(file("shim.sock"), "control");
    fakes::ShimProcess successor(VMAGENT_SHIM, arguments(), environment());
    EXPECT_TRUE(fakes::becomesReadable(socket.number()));
    Wire wire(socket.accept(), 1 << 20);
    std::vector<Message> heard;
    for (const Entry& entry : conversation(name, {{"$SHIM", std::to_string(getpid())},
                                                  {"$QEMU", std::to_string(getpid())},
                                                  {"$PID", std::to_string(successor.pid())},
                                                  {"$DAEMON", std::to_string(getpid())},
                                                  {"$ARGUMENTS", listOf(arguments())}})) {
      if (entry.raw == "SIGTERM to the successor") successor.signal(SIGTERM);
      if (entry.direction == '<') wire.send({entry.raw + "\n", {}});
      if (entry.direction != '>') continue;
      const Message message = next(wire, heard);
      EXPECT_EQ(message.text, entry.raw);
      EXPECT_EQ(message.descriptors.size(), static_cast<size_t>(entry.descriptors));
    }
    return successor.wait();
  }
};

TEST_F(ShimProtocol1, IsUnderstoodByAShimThatIsToldToEndItsGuest) {
  playSuccessor("adoption-1.jsonl");
  expectNothingLeft();
}

TEST_F(ShimProtocol1, IsUnderstoodByAShimWhoseGuestComesToASuddenEnd) {
  playSuccessor("adoption-1-killed.jsonl");
  expectNothingLeft();
}

TEST_F(ShimProtocol1, IsUnderstoodByASuccessorThatIsToldToEnd) {
  EXPECT_EQ(exited(playShim("adoption-1.jsonl")), 0);
}

TEST_F(ShimProtocol1, IsUnderstoodByASuccessorWhoseGuestComesToASuddenEnd) {
  EXPECT_EQ(signaled(playShim("adoption-1-killed.jsonl")), SIGKILL);
}

TEST_F(ShimProtocol1, LeavesAShimThatADaemonOfThenAsksToStopToDoSo) {
  orphan();
  {
    const fakes::LineClient daemonOfThen(file("shim.sock"));
    for (const Entry& entry : conversation("stop-1.jsonl", {})) daemonOfThen.send(entry.raw + "\n");
  }
  expectNothingLeft();
  EXPECT_THAT(rt::fakes::contentOf(file("shim.log")),
              HasSubstr("gets 1000 ms to shut itself down"));
}

}  // namespace
}  // namespace shim
