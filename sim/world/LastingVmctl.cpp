#include "sim/world/LastingVmctl.h"

#include <poll.h>
#include <time.h>

#include <sstream>
#include <stdexcept>
#include <type_traits>

#include "ctl/Program.h"
#include "ctl/machine/LinuxMachine.h"
#include "ctl/machine/ShimCall.h"
#include "model/ImageLook.h"
#include "model/Tables.h"
#include "statedb/OwnerSign.h"

namespace sim {

namespace {

using statedb::Half;

// A store that is another's, for one command.
class LentStore final : public statedb::Store {
 public:
  LentStore(statedb::Store& owned, bool& hasFailed) : owned_(owned), hasFailed_(hasFailed) {}

  statedb::Snapshot snapshot(const std::vector<rt::String>& tables) override {
    return noted([&] { return owned_.snapshot(tables); });
  }
  std::optional<statedb::Record> record(const rt::String& table, const rt::String& key) override {
    return noted([&] { return owned_.record(table, key); });
  }
  bool hasRemoved(const rt::String& table, const rt::String& key,
                  const statedb::Origin& origin) override {
    return noted([&] { return owned_.hasRemoved(table, key, origin); });
  }
  statedb::Changes changes(const statedb::Cursor& since) override {
    return noted([&] { return owned_.changes(since); });
  }
  void commit(const statedb::Transaction& transaction) override {
    noted([&] { owned_.commit(transaction); });
  }
  int wakeUp() override {
    throw std::logic_error("nobody waits in a command that is lent a store");
  }

 private:
  template <class Act>
  std::invoke_result_t<Act> noted(const Act& act) {
    try {
      return act();
    } catch (...) {
      hasFailed_ = true;
      throw;
    }
  }

  statedb::Store& owned_;
  bool& hasFailed_;
};

statedb::StateDb lent(statedb::StateDb& database, bool& hasFailed) {
  const auto opener = [&](Half half) {
    return [&database, &hasFailed, half]() -> std::unique_ptr<statedb::Store> {
      return std::make_unique<LentStore>(database.store(half), hasFailed);
    };
  };
  return {opener(Half::config), opener(Half::status), model::isStatus};
}

rt::Seconds now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  constexpr double perSecond = 1e9;
  return rt::Seconds(static_cast<double>(time.tv_sec) +
                     static_cast<double>(time.tv_nsec) / perSecond);
}

void waitReadable(std::span<const int> descriptors, rt::Seconds time) {
  std::vector<pollfd> looks;
  for (const int each : descriptors) looks.push_back({each, POLLIN, 0});
  constexpr double perSecond = 1e3;
  (void)poll(looks.data(), looks.size(), static_cast<int>(time.value() * perSecond) + 1);
}

}  // namespace

CommandWords runVmctl(const std::vector<std::string>& words, statedb::StateDb& database) {
  CommandWords end;
  std::ostringstream output;
  const ctl::LinuxMachine machine;
  ctl::World world{.openDb = [&](const ctl::Directories&) { return lent(database, end.hasFailed); },
                   .ownerIsAlive = statedb::ownerIsAlive,
                   .environment = [](const char*) { return std::nullopt; },
                   .now = now,
                   .timeOfDay = [] { return static_cast<uint64_t>(time(nullptr)); },
                   .timeOfDayMs = {},
                   .waitReadable = waitReadable,
                   .waitWhileRead = {},
                   .imageFacts = [](const rt::String& path) { return model::imageFacts(path); },
                   .workingDirectory = [] { return rt::String("/"); },
                   .readFile = {},
                   .makeEditedFile = {},
                   .holdConsole = {},
                   .joinConsole = {},
                   .viewConsole = {},
                   .takeScreen = {},
                   .askShim = ctl::askShim,
                   .userName = [] { return rt::String("root"); },
                   .writeFile = {},
                   .putFile = {},
                   .readHead = {},
                   .backUpConfig = {},
                   .readConfigBackup = {},
                   .pack = {},
                   .machine = machine,
                   .limits = model::machineLimits(),
                   .out = output,
                   .err = output};
  end.status =
      static_cast<int>(ctl::run(std::vector<rt::String>(words.begin(), words.end()), world));
  end.output = output.str();
  return end;
}

}  // namespace sim
