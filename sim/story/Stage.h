// A machine on which a story is played, and who looks on.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "sim/oracle/Diary.h"
#include "sim/oracle/Ledger.h"
#include "sim/oracle/Watch.h"
#include "sim/story/Story.h"
#include "sim/story/Weather.h"
#include "sim/world/Command.h"

namespace sim {

using Rows = std::map<std::string, std::string>;  // by "table/key"

// Somebody's program that holds a database for a while.
inline constexpr const char* holderPath = "/usr/bin/holder";

class Stage {
 public:
  Stage();
  Stage(const Stage&) = delete;

  // Brings the machine there; false when it does not get there.
  bool prepare(Beginning beginning);
  // Before a story's first step; what has happened so far is past.
  void begin(const Story& story);
  // What passes before the step, and then the step.
  void play(const Step& step);

  bool hasFailed() const { return world.machine.verdict.failed(); }
  void fail(const std::string& clause, const std::string& about, const std::string& text);

  // Runs vmctl to its end, which must come in time.
  CommandEnd vmctl(const std::vector<std::string>& words, Duration time = std::chrono::seconds(30));
  // The same for a change of one VM's configuration. Afterwards all rows must be as before, or,
  // where it has succeeded, that VM's be what `isRight` says; it is given the row before and after.
  using IsRight = std::function<bool(const std::string& before, const std::string& after)>;
  CommandEnd change(const std::string& vm, const std::vector<std::string>& words,
                    const IsRight& isRight);
  // It was successful and ends the VM's guest. Where the configuration is away it was about another
  // one's VM of that name.
  void handleEnding(const std::string& vm, const std::string& why, std::optional<Time> began);
  // What another program has made of the configuration, and the ledger is to know; false when it
  // cannot be read.
  bool readRows();
  const Rows& rows() const { return rows_; }
  std::string row(const std::string& vm) const;
  // Its row can be read: it was written by the command line.
  bool isValid(const std::string& vm) const { return valid_.contains(vm); }
  void isInvalid(const std::string& vm) { valid_.erase(vm); }

  void startDaemon();
  void plug(const std::string& port);
  // The VMs with a card on that port are disturbed.
  void touchPort(const std::string& port);
  const Qemu* qemuOf(const std::string& vm) const;
  std::vector<std::string> vms() const;  // that have a row
  bool storeIsThere() const { return !storeIsAway; }

  // Each call of a program is kept in `calls`; for stages that are made from then on.
  static bool keepsCalls;
  std::string calls;

  static std::string imageOf(const std::string& vm) { return "/var/lib/images/" + vm + ".img"; }
  static std::string macOf(const std::string& vm, unsigned card);

  World world;
  Ledger ledger;
  Diary diary;
  Watch watch;
  Weather weather;

  // Until somebody puts it right again.
  std::map<std::string, InodePtr> imagesAway;
  std::map<std::string, QemuManner> nextManners;
  std::set<std::string> spoiltFiles;  // where a directory stands now
  bool storeIsAway = false;
  bool storeWasReplaced = false;  // so a guest may be in no configuration
  std::map<std::string, std::string> keptStore;
  Rows lastStatus;  // as it was read last

 private:
  bool needsProgram(const std::vector<std::string>& words);
  QemuManner mannerOf(const std::string& vm);
  void judge(const std::string& vm, Time began);
  void checkChange(const std::string& vm, const CommandEnd& end, const Rows& before,
                   const IsRight& isRight);

  Rows rows_;
  Time commandBegan_{};
  std::map<std::string, std::string> valid_;  // rows as the command line has left them
};

// While it is there, no disk is full: for who makes the world.
class Room {
 public:
  explicit Room(Machine& machine);
  Room(const Room&) = delete;
  ~Room();

 private:
  Machine& machine_;
  std::map<dev_t, size_t> rooms_;
};

// What each kind of step does.
using Act = void (*)(Stage& stage, const Step& step);
using Acts = std::map<std::string_view, Act>;
const Acts& operatorActs();
const Acts& processActs();
const Acts& surroundingsActs();

}  // namespace sim
