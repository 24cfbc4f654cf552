// What is done to devices, files and databases.
#include <net/if.h>

#include "sim/kernel/Pipe.h"
#include "sim/story/Stage.h"

namespace sim {

namespace {

using namespace std::chrono_literals;

const std::string stateFile = std::string(stateDirectory) + "/config.db";
const std::string aside = std::string(stateDirectory) + "/aside.db";
constexpr const char* endings[] = {"", "-wal", "-shm", "-bell"};

void unplug(Stage& stage, const Step& step) {
  stage.touchPort(subjectOf(step));
  stage.world.unplug(subjectOf(step));
}

void plug(Stage& stage, const Step& step) { stage.plug(subjectOf(step)); }

void replug(Stage& stage, const Step& step) {
  const Link* const link = stage.world.machine.network.find(subjectOf(step));
  if (!link) return;
  Link again = *link;
  again.index = step.amount == 1 ? link->index : 0;
  stage.touchPort(subjectOf(step));
  stage.world.machine.network.remove(link->index);
  stage.world.machine.network.add(again);
}

void flap(Stage& stage, const Step& step) {
  Step once = step;
  for (uint64_t i = 0; i <= step.amount; ++i) {
    once.amount = i % 2;
    replug(stage, once);
    if (i % 3 == 0) stage.world.pass(1ms);
  }
}

void downcast(Stage& stage, const Step& step) {
  Network& network = stage.world.machine.network;
  const Link* const link = network.find(subjectOf(step));
  if (!link) return;
  stage.touchPort(subjectOf(step));
  const unsigned flags = link->flags;
  const uint32_t index = link->index;
  network.flagsAre(index, flags & ~static_cast<unsigned>(IFF_UP | IFF_RUNNING));
  stage.world.pass(20ms);
  network.flagsAre(index, flags);
}

void takeTap(Stage& stage, const Step& step) {
  const Qemu* const qemu = stage.qemuOf(subjectOf(step));
  if (!qemu) return;
  const auto taps = qemu->devices().taps();
  if (taps.empty()) return;
  stage.ledger.touch(subjectOf(step));
  stage.world.machine.network.remove(taps[step.amount % taps.size()]->index);
}

void takeName(Stage& stage, const Step& step) {
  Link link;
  link.name = "macvtap" + std::to_string(step.amount);
  link.kind = "dummy";
  link.mac = {2, 0, 0, 0, 1, static_cast<uint8_t>(step.amount)};
  stage.world.machine.network.add(link);
}

// Nobody runs meanwhile, so more comes than a socket has room for.
void loseNews(Stage& stage, const Step& /*step*/) {
  Network& network = stage.world.machine.network;
  stage.ledger.touchAll();
  Link link;
  link.name = "busy0";
  link.kind = "dummy";
  constexpr int changes = 3000;
  for (int i = 0; i < changes; ++i)
    if (network.add(link); const Link* const made = network.find(link.name))
      network.remove(made->index);
  Step step;
  for (unsigned port = 1; port <= 2; ++port) {
    step.kind = kindFromWord("replug");
    step.subject = port;
    replug(stage, step);
  }
}

void roomIs(Stage& stage, const char* directory, size_t room) {
  Machine& machine = stage.world.machine;
  machine.files.volume(machine.files.at(directory)->device).room = room;
  stage.ledger.troubleIs("", std::string("the disk of ") + directory + " is full",
                         room != SIZE_MAX);
}

void fillDisk(Stage& stage, const Step& step) { roomIs(stage, "/var/lib", step.amount); }
void freeDisk(Stage& stage, const Step& /*step*/) { roomIs(stage, "/var/lib", SIZE_MAX); }
void fillRun(Stage& stage, const Step& step) { roomIs(stage, "/run", step.amount); }
void freeRun(Stage& stage, const Step& /*step*/) { roomIs(stage, "/run", SIZE_MAX); }

void removeImage(Stage& stage, const Step& step) {
  const Room room(stage.world.machine);
  const std::string vm = subjectOf(step);
  const InodePtr image = stage.world.machine.files.at(Stage::imageOf(vm));
  if (!image || stage.imagesAway.contains(vm)) return;
  stage.imagesAway[vm] = image;
  stage.ledger.mayEnd(vm, "its image is gone");
  stage.world.machine.files.removeAt(Stage::imageOf(vm));
}

void restoreImage(Stage& stage, const Step& step) {
  const Room room(stage.world.machine);
  const auto found = stage.imagesAway.find(subjectOf(step));
  if (found == stage.imagesAway.end()) return;
  stage.world.machine.files.removeAt(Stage::imageOf(found->first));
  stage.world.machine.files.put(Stage::imageOf(found->first), found->second);
  stage.imagesAway.erase(found);
}

void swapImage(Stage& stage, const Step& step) {
  const Room room(stage.world.machine);
  removeImage(stage, step);
  const std::string path = Stage::imageOf(subjectOf(step));
  if (!stage.imagesAway.contains(subjectOf(step)) || stage.world.machine.files.at(path)) return;
  if (step.amount == 0)
    stage.world.machine.files.directoryAt(path);
  else if (step.amount == 1)
    stage.world.machine.files.fileAt(path, "short");
  else
    stage.world.machine.files.put(
        path, std::make_shared<Inode>(S_IFIFO | 0644U, stage.world.machine.files.root()->device));
}

void spoilFile(Stage& stage, const Step& step) {
  const Room room(stage.world.machine);
  FileSystem& files = stage.world.machine.files;
  const std::string directory = "/run/vmagent/vm/" + subjectOf(step);
  const InodePtr found = files.at(directory);
  if (!found) return;
  const auto entries = found->entries();
  if (entries.empty()) return;
  constexpr uint64_t ways = 4;
  const std::string path = directory + "/" + entries[(step.amount / ways) % entries.size()];
  stage.diary.effect(path);
  stage.ledger.mayEnd(subjectOf(step), "its files are spoilt");
  stage.ledger.troubleIs(subjectOf(step), "its files are spoilt", true);
  const InodePtr file = files.at(path);
  const bool isRegular = file && file->isRegular();
  switch (step.amount % ways) {
    case 0:
      if (isRegular) file->bytes.clear();
      return;
    case 1:
      if (isRegular) file->bytes = "\x01\xff rubbish \n{";
      return;
    case 2:
      files.removeAt(path);
      return;
    default:
      files.removeAt(path);
      files.directoryAt(path);
      stage.spoiltFiles.insert(path);
  }
}

void moveStore(Stage& stage, const Step& /*step*/) {
  const Room room(stage.world.machine);
  FileSystem& files = stage.world.machine.files;
  if (stage.storeIsAway) return;
  stage.storeIsAway = true;
  stage.storeWasReplaced = true;
  stage.ledger.troubleIs("", "the configuration is away", true);
  for (const std::string& vm : stage.vms()) stage.ledger.wantedIs(vm, std::nullopt);
  for (const char* const ending : endings)
    if (const Found from = files.find(stateFile + ending, files.root()); from.inode)
      files.rename(from, files.find(aside + ending, files.root()));
}

void returnStore(Stage& stage, const Step& /*step*/) {
  const Room room(stage.world.machine);
  FileSystem& files = stage.world.machine.files;
  if (!stage.storeIsAway) return;
  for (const char* const ending : endings) {
    files.removeAt(stateFile + ending);
    if (const Found from = files.find(aside + ending, files.root()); from.inode)
      files.rename(from, files.find(stateFile + ending, files.root()));
  }
  stage.storeIsAway = false;
  stage.ledger.troubleIs("", "the configuration is away", false);
  stage.world.person.reopen();
  stage.readRows();
}

void copyStore(Stage& stage, const Step& /*step*/) {
  if (stage.storeIsAway) return;
  for (const char* const ending : {"", "-wal"}) {
    const InodePtr file = stage.world.machine.files.at(stateFile + ending);
    stage.keptStore[ending] = file ? file->bytes : "";
  }
}

void olderStore(Stage& stage, const Step& step) {
  const Room room(stage.world.machine);
  if (stage.storeIsAway || stage.keptStore.empty()) return;
  moveStore(stage, step);
  FileSystem& files = stage.world.machine.files;
  for (const char* const ending : endings) files.removeAt(aside + ending);
  stage.ledger.mayEndAll("an older configuration takes the place of the newer");
  for (const auto& [ending, bytes] : stage.keptStore)
    if (!bytes.empty() || ending.empty()) files.fileAt(stateFile + ending, bytes, 0660);
  stage.storeIsAway = false;
  stage.ledger.troubleIs("", "the configuration is away", false);
  stage.world.person.reopen();
  stage.readRows();
}

}  // namespace

const Acts& surroundingsActs() {
  static const Acts acts = {{"unplug", unplug},
                            {"plug", plug},
                            {"replug", replug},
                            {"flap", flap},
                            {"downcast", downcast},
                            {"take-tap", takeTap},
                            {"take-name", takeName},
                            {"lose-news", loseNews},
                            {"fill-disk", fillDisk},
                            {"free-disk", freeDisk},
                            {"fill-run", fillRun},
                            {"free-run", freeRun},
                            {"remove-image", removeImage},
                            {"restore-image", restoreImage},
                            {"swap-image", swapImage},
                            {"spoil-file", spoilFile},
                            {"move-store", moveStore},
                            {"return-store", returnStore},
                            {"copy-store", copyStore},
                            {"older-store", olderStore}};
  return acts;
}

}  // namespace sim
