// What operators do, and other programs that write the configuration.
#include <sqlite3.h>
#include <unistd.h>

#include "sim/oracle/Document.h"
#include "sim/story/Stage.h"
#include "statedb/StateDb.h"

namespace sim {

namespace {

using namespace std::chrono_literals;

constexpr unsigned furtherCard = 7;  // its number
constexpr size_t diskSize = 64 * 1024;

void makeImage(Stage& stage, const std::string& vm) {
  const std::string path = Stage::imageOf(vm);
  const Room room(stage.world.machine);
  if (!stage.imagesAway.contains(vm) && !stage.world.machine.files.at(path))
    stage.world.machine.files.fileAt(path, std::string(diskSize, '\0'));
}

std::string cardWords(const std::string& vm, unsigned card, unsigned port) {
  return "model=e1000,mac=" + Stage::macOf(vm, card) + ",intf=Ethernet" + std::to_string(port);
}

std::vector<std::string> addWords(const Step& step) {
  const std::string vm = subjectOf(step);
  std::vector<std::string> words = {"add", vm, "--disk", Stage::imageOf(vm), "--memory", "64"};
  for (unsigned card = 0; card < step.amount % 3; ++card) {
    words.emplace_back("--nic");
    words.push_back(cardWords(vm, card, 1 + (step.subject + card) % 4));
  }
  if (step.amount < 3) words.emplace_back("--enabled");
  return words;
}

// What an earlier VM of that name has left while no daemon ran is looked for at the first start.
void keepOrphans(Stage& stage, const std::string& vm) {
  for (unsigned card = 0; card < 2; ++card)
    if (const std::string mac = Stage::macOf(vm, card); stage.ledger.isOrphan(mac))
      stage.ledger.handleOrphan("off " + mac);
}

void add(Stage& stage, const Step& step) {
  makeImage(stage, subjectOf(step));
  if (step.amount >= 3 && stage.row(subjectOf(step)).empty()) keepOrphans(stage, subjectOf(step));
  const std::string enabled = step.amount < 3 ? "true" : "false";
  stage.change(subjectOf(step), addWords(step), [&](const std::string& was, const std::string& is) {
    return was.empty() && memberOf(is, "enabled") == enabled &&
           memberOf(is, "diskImage") == Stage::imageOf(subjectOf(step)) &&
           memberOf(is, "memory") == "64" && cardsOf(is).size() == step.amount % 3;
  });
}

void set(Stage& stage, const Step& step) {
  const bool isMemory = step.amount < 3;
  const char* const member = isMemory ? "memory" : "vncPort";
  const std::string value = std::to_string(isMemory ? 64 + step.amount : 5900 + step.subject);
  stage.change(subjectOf(step), {"set", subjectOf(step), std::string(member) + "=" + value},
               [&](const std::string& was, const std::string& is) {
                 return memberOf(is, member) == value && areEqualBut(was, is, member);
               });
}

void addCard(Stage& stage, const Step& step) {
  const std::string vm = subjectOf(step);
  stage.change(
      vm,
      {"nic", "add", vm, cardWords(vm, furtherCard, 1 + unsigned(step.amount)), "--key", "more"},
      [](const std::string& was, const std::string& is) {
        return cardsOf(is).size() == cardsOf(was).size() + 1 && areEqualBut(was, is, "vnicConfig");
      });
}

void removeCard(Stage& stage, const Step& step) {
  // A daemon that takes the guest up meanwhile may give it a device that it has no card for.
  stage.ledger.handleOrphan(Stage::macOf(subjectOf(step), furtherCard));
  stage.change(subjectOf(step), {"nic", "remove", subjectOf(step), "more"},
               [](const std::string& was, const std::string& is) {
                 return cardsOf(is).size() + 1 == cardsOf(was).size() &&
                        areEqualBut(was, is, "vnicConfig");
               });
}

void switchTo(Stage& stage, const std::string& vm, bool on) {
  if (!on) stage.ledger.mayEnd(vm, "it is disabled");
  stage.ledger.touch(vm);
  const CommandEnd end = stage.change(vm, {on ? "enable" : "disable", vm},
                                      [on](const std::string& was, const std::string& is) {
                                        return memberOf(is, "enabled") == (on ? "true" : "false") &&
                                               areEqualBut(was, is, "enabled");
                                      });
  if (!on && end.status() == 0) stage.handleEnding(vm, "it is disabled", std::nullopt);
}

void enable(Stage& stage, const Step& step) { switchTo(stage, subjectOf(step), true); }
void disable(Stage& stage, const Step& step) { switchTo(stage, subjectOf(step), false); }

void toggle(Stage& stage, const Step& step) {
  for (uint64_t i = 0; i <= step.amount && !stage.hasFailed(); ++i)
    switchTo(stage, subjectOf(step), i % 2 == 1);
}

void restart(Stage& stage, const Step& step) {
  const std::string vm = subjectOf(step);
  const auto isAsBefore = [](const std::string& was, const std::string& is) { return was == is; };
  if (stage.row(vm).empty()) {
    stage.change(vm, {"restart", vm}, isAsBefore);
    return;
  }
  stage.ledger.mayEnd(vm, "it is restarted");
  const CommandEnd end = stage.change(vm, {"restart", vm}, isAsBefore);
  if (end.status() != 0) return;
  stage.handleEnding(vm, "it is restarted", end.began);
}

void removeVm(Stage& stage, const std::string& vm) {
  stage.ledger.mayEnd(vm, "it is removed");
  const CommandEnd end =
      stage.change(vm, {"remove", vm, "--force"},
                   [](const std::string& /*was*/, const std::string& is) { return is.empty(); });
  if (end.status() != 0) return;
  stage.handleEnding(vm, "it is removed", end.began);
}

void remove(Stage& stage, const Step& step) { removeVm(stage, subjectOf(step)); }

void renew(Stage& stage, const Step& step) {
  removeVm(stage, subjectOf(step));
  if (!stage.hasFailed()) add(stage, step);
}

void look(Stage& stage, const Step& step) {
  const std::string vm = subjectOf(step);
  const std::vector<std::vector<std::string>> verbs = {
      {"list"}, {"show", vm}, {"export"}, {"list", "-o", "json"}, {"interface", "list"}};
  const CommandEnd end = stage.vmctl(verbs[step.amount % verbs.size()]);
  if (end.status() == 2 || end.status() == 5) stage.fail("command", vm, end.output);
}

void wait(Stage& stage, const Step& step) {
  stage.vmctl({"wait", subjectOf(step), "--for", "state=Running", "--timeout", "5"});
}

void rest(Stage& stage, const Step& step) { stage.world.pass(std::chrono::seconds(step.amount)); }

// A program of somebody's, which knows nothing of VMs.
bool write(Stage& stage, const std::string& key, const std::optional<std::string>& document,
           bool removesFirst = false) {
  if (stage.storeIsAway) return false;
  const std::string refusal = stage.world.person.run([&](statedb::StateDb& database) {
    statedb::Transaction transaction;
    if (removesFirst || !document) transaction.del("vmConfig", rt::String(key));
    if (document) transaction.put("vmConfig", rt::String(key), rt::String(*document));
    database.commit(transaction);
  });
  if (!refusal.empty()) stage.diary.effect(refusal);
  stage.readRows();
  return refusal.empty();
}

void writeRubbish(Stage& stage, const Step& step) {
  const std::vector<std::string> documents = {
      "{}",
      "[]",
      "{\"enabled\":true}",
      R"({"enabled":true,"diskImage":"relative.img","memory":64})",
      R"({"enabled":"perhaps","diskImage":"/a.img","memory":-1})",
      R"({"enabled":true,"diskImage":"/a.img","memory":64,"vnicConfig":{"a":{"model":"none"}}})",
      R"({"enabled":true,"diskImage":"/a.img","memory":64,"further":1})",
      R"({"enabled":true,"diskImage":")" + std::string(5000, 'x') + R"(","memory":64})"};
  stage.isInvalid(subjectOf(step));
  stage.ledger.mayEnd(subjectOf(step), "its row is rubbish");
  stage.ledger.wantedIs(subjectOf(step), std::nullopt);
  write(stage, subjectOf(step), documents[step.amount % documents.size()]);
}

void writeStranger(Stage& stage, const Step& step) {
  const std::vector<std::string> keys = {"..", "a/b", "", "-name", "x\ny", std::string(300, 'v')};
  write(stage, keys[step.amount % keys.size()],
        R"({"enabled":true,"diskImage":"/nothing.img","memory":64})");
}

void renewAtOnce(Stage& stage, const Step& step) {
  const std::string vm = subjectOf(step);
  if (stage.row(vm).empty() || !stage.isValid(vm)) return;
  stage.ledger.mayEnd(vm, "it is made anew");
  const Time at = stage.world.machine.now();
  if (!write(stage, vm, stage.row(vm), true)) return;
  stage.ledger.askToEnd(vm, "it is made anew");
  stage.ledger.handleAsked(vm, at);
}

void removeAtOnce(Stage& stage, const Step& step) {
  const std::string vm = subjectOf(step);
  stage.ledger.mayEnd(vm, "it is removed");
  if (write(stage, vm, std::nullopt)) stage.ledger.askToEnd(vm, "it is removed");
}

// Somebody writes into one of the databases, and takes his time.
void holdDatabase(Stage& stage, const Step& step) {
  const Duration time = std::chrono::milliseconds(step.amount);
  const std::string path =
      step.amount % 2 == 0 ? "/var/lib/vmagent/config.db" : "/run/vmagent/status.db";
  const Room room(stage.world.machine);
  stage.world.machine.files.fileAt(holderPath, "program", 0755)->program = [time, path](int,
                                                                                        char**) {
    sqlite3* database = nullptr;
    if (sqlite3_open_v2(path.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK &&
        sqlite3_exec(database, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK) {
      usleep(static_cast<useconds_t>(time / 1us));
      sqlite3_exec(database, "COMMIT", nullptr, nullptr, nullptr);
    }
    sqlite3_close(database);
    return 0;
  };
  stage.world.machine.processes.spawn(holderPath, {"holder"}, usualEnvironment());
}

}  // namespace

const Acts& operatorActs() {
  static const Acts acts = {{"add", add},
                            {"set", set},
                            {"add-card", addCard},
                            {"remove-card", removeCard},
                            {"enable", enable},
                            {"disable", disable},
                            {"restart", restart},
                            {"remove", remove},
                            {"renew", renew},
                            {"toggle", toggle},
                            {"look", look},
                            {"wait", wait},
                            {"rest", rest},
                            {"write-rubbish", writeRubbish},
                            {"write-stranger", writeStranger},
                            {"renew-at-once", renewAtOnce},
                            {"remove-at-once", removeAtOnce},
                            {"hold-database", holdDatabase}};
  return acts;
}

}  // namespace sim
