#include "ctl/fakes/VmctlFixture.h"

#include <poll.h>

#include <cerrno>

#include "model/Tables.h"
#include "runtime/base/Text.h"

namespace ctl::fakes {

namespace {

// Does steps of the test around each commit.
class InterferedStore final : public statedb::Store {
 public:
  InterferedStore(std::unique_ptr<Store> store, std::function<void()> beforeCommit,
                  std::function<void()> afterCommit)
      : store_(std::move(store)),
        beforeCommit_(std::move(beforeCommit)),
        afterCommit_(std::move(afterCommit)) {}

  statedb::Snapshot snapshot(const std::vector<rt::String>& tables) override {
    return store_->snapshot(tables);
  }
  std::optional<statedb::Record> record(const rt::String& table, const rt::String& key) override {
    return store_->record(table, key);
  }
  bool hasRemoved(const rt::String& table, const rt::String& key,
                  const statedb::Origin& origin) override {
    return store_->hasRemoved(table, key, origin);
  }
  statedb::Changes changes(const statedb::Cursor& since) override { return store_->changes(since); }
  void commit(const statedb::Transaction& transaction) override {
    beforeCommit_();
    store_->commit(transaction);
    afterCommit_();
  }
  int wakeUp() override { return store_->wakeUp(); }

 private:
  const std::unique_ptr<Store> store_;
  const std::function<void()> beforeCommit_;
  const std::function<void()> afterCommit_;
};

// Runs the first one, if there is one.
void step(std::deque<std::function<void()>>& steps) {
  if (steps.empty()) return;
  const std::function<void()> next = std::move(steps.front());
  steps.pop_front();
  next();
}

}  // namespace

// A file that the test's steps edit.
class VmctlFixture::PlayedFile final : public EditedFile {
 public:
  PlayedFile(VmctlFixture& fixture, const rt::String& name) : fixture_(fixture), name_(name) {}

  rt::String edit(const rt::String& editor, const rt::String& text) override {
    fixture_.editor_ = editor.str();
    fixture_.edited_.push_back(text.str());
    if (fixture_.edits_.empty()) return text;
    const auto next = std::move(fixture_.edits_.front());
    fixture_.edits_.pop_front();
    return next(text.str());
  }
  rt::String keep(const rt::String& text) override {
    rt::String path = "/tmp/" + name_;
    fixture_.files_[path.str()] = text.str();
    return path;
  }

 private:
  VmctlFixture& fixture_;
  const rt::String name_;
};

// A screen at which a person types what the test's steps say.
class VmctlFixture::PlayedScreen final : public Screen {
 public:
  explicit PlayedScreen(VmctlFixture& fixture) : fixture_(fixture) {}

  Size size() const override { return {fixture_.columns_, fixture_.lines_}; }
  bool show(const rt::String& lines) override {
    fixture_.pictures_.push_back(lines.str());
    return true;
  }
  Word listen(rt::Seconds time) override {
    const char key = fixture_.keys_.empty() ? '\0' : fixture_.keys_.front();
    fixture_.keys_.erase(0, 1);
    if (key != '\0') return {Word::Kind::key, key};
    fixture_.waitReadable({}, time);
    return {};
  }

 private:
  VmctlFixture& fixture_;
};

Answer VmctlFixture::vmctl(const std::string& command) {
  std::istringstream words(command);
  std::vector<rt::String> arguments;
  for (std::string word; words >> word;) arguments.emplace_back(word);
  return vmctl(arguments);
}

Answer VmctlFixture::vmctl(const std::vector<rt::String>& arguments) {
  out_.str("");
  out_.clear();
  err_.str("");
  if (daemonListens_) putHeard();
  World world = this->world();
  const int exit = static_cast<int>(run(arguments, world));
  return {exit, out_.str(), err_.str()};
}

World VmctlFixture::world() {
  const auto environment = [this](const char* name) -> std::optional<rt::String> {
    const auto found = environment_.find(name);
    return found == environment_.end() ? std::nullopt : std::optional<rt::String>(found->second);
  };
  const auto imageFacts = [this](const rt::String& path) {
    ++looks_;
    time_ += lookTakes_;
    if (const auto found = images_.find(path.str()); found != images_.end()) return found->second;
    model::ImageFacts facts;
    facts.error = missingImages_.count(path.str()) != 0 ? ENOENT : 0;
    facts.kind = model::ImageFacts::Kind::regular;
    facts.size = model::smallestImage;
    facts.isCd = path.str().ends_with(".iso");
    return facts;
  };
  const auto readFile = [this](const rt::String& path) -> rt::String {
    const auto found = files_.find(path.str());
    if (found == files_.end()) throw rt::ErrnoException(ENOENT, path + " cannot be read");
    return found->second;
  };
  const auto waitWhileRead = [this](auto descriptors, rt::Seconds time) {
    waitReadable(descriptors, time);
  };
  const auto holdConsole = [this](const rt::String& pty) {
    heldPty_ = pty.str();
    return holdConsole_();
  };
  const auto joinConsole = [this](const rt::String& socket) {
    joinedSocket_ = socket.str();
    return holdConsole_();
  };
  const auto viewConsole = [this](const rt::String& socket) {
    viewedSocket_ = socket.str();
    return holdConsole_();
  };
  return {.openDb = [this](const Directories& directories) { return open(directories); },
          .ownerIsAlive = [this](const rt::String&) { return daemonRuns_; },
          .environment = environment,
          .now = [this] { return rt::Seconds(time_); },
          .timeOfDay = [this] { return timeOfDay_ + static_cast<uint64_t>(time_); },
          .timeOfDayMs =
              [this] { return timeOfDay_ * 1000 + static_cast<uint64_t>(time_ * 1000 + 0.5); },
          .chance = [this] { return chance_; },
          .waitReadable = [this](auto descriptors,
                                 rt::Seconds time) { waitReadable(descriptors, time); },
          .waitWhileRead = waitWhileRead,
          .imageFacts = imageFacts,
          .workingDirectory = [] { return rt::String("/here"); },
          .readFile = readFile,
          .makeEditedFile =
              [this](const rt::String& name) { return std::make_unique<PlayedFile>(*this, name); },
          .holdConsole = holdConsole,
          .joinConsole = joinConsole,
          .viewConsole = viewConsole,
          .takeScreen = [this] { return std::make_unique<PlayedScreen>(*this); },
          .askShim = [this](const ShimCall& call) { return askShim(call); },
          .userName = [] { return rt::String("op1"); },
          .writeFile = [this](const rt::String& path,
                              const rt::String& bytes) { files_[path.str()] = bytes.str(); },
          .putFile = [this](const FilePlace& place,
                            std::string_view bytes) { putFile(place, std::string(bytes)); },
          .readHead = [this](rt::Seconds) { return rt::String(head_); },
          .backUpConfig = [this](const rt::String& stateDir,
                                 const FilePlace& place) { putFile(place, stateDir.str()); },
          .readConfigBackup = [this](const rt::String& file) { return readBackup(file); },
          .pack =
              [this](const std::vector<PackedFile>& files, const rt::String& directory,
                     const FilePlace& place) {
                putFile(place, directory.str());
                packed_.clear();
                for (const PackedFile& file : files) packed_[file.name.str()] = file.bytes.str();
              },
          .machine = machine_,
          .limits = {.memory = 8192},
          .out = out_,
          .err = err_,
          .inIsTerminal = inIsTerminal_,
          .outIsTerminal = isTerminal_,
          .errIsTerminal = isTerminal_,
          .columns = columns_};
}

statedb::StateDb VmctlFixture::open(const Directories& directories) {
  stateDir_ = directories.state;
  runDir_ = directories.run;
  const auto config = [this] {
    const auto hear = [this] {
      if (daemonListens_) putHeard();
    };
    if (configError_) throw statedb::Error(*configError_, stateDir_ + "/config.db cannot be used");
    return std::make_unique<InterferedStore>(
        store(statedb::Half::config), [this] { step(interferences_); }, hear);
  };
  const auto status = [this, runDir = directories.run] {
    if (!hasStatus_)
      throw statedb::Error(
          statedb::Trouble::missing,
          runDir + "/status.db does not exist: start or restart vmagentd, which makes it");
    return store(statedb::Half::status);
  };
  return {config, status, model::isStatus};
}

std::unique_ptr<statedb::Store> VmctlFixture::storeOf(const rt::String& table) {
  return store(model::isStatus(table) ? statedb::Half::status : statedb::Half::config);
}

std::unique_ptr<statedb::Store> VmctlFixture::store(statedb::Half half) {
  return std::make_unique<statedb::fakes::MemoryStore>(
      half == statedb::Half::config ? config_ : status_, half, model::isStatus);
}

ShimAnswer VmctlFixture::askShim(const ShimCall& call) {
  const std::string path = call.socket.str();
  const std::string directory = path.substr(0, path.rfind('/'));
  const std::string vm = directory.substr(directory.rfind('/') + 1);
  shimCalls_.push_back(vm + " " + call.request.str());
  const auto found = shimAnswers_.find(vm);
  return found == shimAnswers_.end() ? ShimAnswer{ShimAnswer::Kind::done, {}, {}} : found->second;
}

// As NewFile does.
void VmctlFixture::putFile(const FilePlace& place, const std::string& bytes) {
  if (place.standing == FilePlace::Standing::stays && files_.contains(place.path.str()))
    throw rt::Exception(place.path + " is there already: --force writes over it");
  files_[place.path.str()] = bytes;
  modes_[place.path.str()] = place.mode;
}

statedb::Snapshot VmctlFixture::readBackup(const rt::String& file) {
  if (backupError_) throw statedb::Error(*backupError_, file + " cannot be used");
  statedb::Snapshot backup;
  for (const auto& [place, doc] : backup_)
    backup.records.push_back({place.first, place.second, doc, 1, 1});
  return backup;
}

// Like poll(): over at once when something happened.
void VmctlFixture::waitReadable(std::span<const int> descriptors, rt::Seconds time) {
  constexpr double instant = 0.1;
  ++waits_;
  step(steps_);
  bool isReadable = false;
  for (const int descriptor : descriptors) {
    pollfd look{descriptor, POLLIN, 0};
    isReadable = poll(&look, 1, 0) == 1 || isReadable;
  }
  time_ += isReadable ? instant : time.value();
}

void VmctlFixture::put(const rt::String& table, const rt::String& key, const rt::String& doc) {
  storeOf(table)->commit(statedb::Transaction().put(table, key, doc));
}

void VmctlFixture::del(const rt::String& table, const rt::String& key) {
  storeOf(table)->commit(statedb::Transaction().del(table, key));
}

void VmctlFixture::trim() {
  for (const auto& data : {config_, status_}) statedb::fakes::MemoryStore(data).trim();
}

std::string VmctlFixture::doc(const rt::String& table, const rt::String& key) {
  const auto record = storeOf(table)->record(table, key);
  return record ? record->doc.str() : "none";
}

void VmctlFixture::putVm(const rt::String& name, bool isEnabled) {
  put("vmConfig", name,
      R"({"enabled":)" + rt::toText(isEnabled) +
          R"(,"diskImage":"/images/web.iso","memory":256,"vncPort":0,"vnicConfig":{}})");
}

void VmctlFixture::putRunning(const rt::String& name) {
  put("vmStatus", name,
      R"({"enabled":true,"state":"Running","consolePtyPath":"/dev/pts/4","cmdStatusStr":""})");
  put("vmProcess", name,
      R"({"process":"running","pid":4711,"restarts":0,"wanted":"running","actual":"running",)"
      R"("severity":"ok","since":1700000940})");
}

void VmctlFixture::putOff(const rt::String& name) {
  put("vmStatus", name,
      R"({"enabled":false,"state":"Stopped","consolePtyPath":"","cmdStatusStr":""})");
  put("vmProcess", name,
      R"({"process":"none","pid":0,"restarts":0,"wanted":"stopped","actual":"stopped",)"
      R"("severity":"ok","since":1700000940})");
}

void VmctlFixture::putHeard() {
  const statedb::Cursor now = store(statedb::Half::config)->snapshot({}).cursor;
  put("daemon", "vmagentd",
      R"({"configStore":")" + now.storeId + R"(","configSequence":)" + rt::toText(now.sequence) +
          (daemonSays_.empty() ? "" : "," + daemonSays_) + "}");
}

}  // namespace ctl::fakes
