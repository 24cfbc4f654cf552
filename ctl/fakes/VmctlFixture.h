// Whole commands over a database in memory, with a daemon whose part the test plays.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ctl/Program.h"
#include "ctl/fakes/FakeMachine.h"
#include "statedb/fakes/MemoryStore.h"

namespace ctl::fakes {

// All that a command answers.
struct Answer {
  int exit = 0;
  std::string out;
  std::string err;

  friend bool operator==(const Answer&, const Answer&) = default;
  friend std::ostream& operator<<(std::ostream& stream, const Answer& answer) {
    return stream << "exit " << answer.exit << "\n--- out\n"
                  << answer.out << "--- err\n"
                  << answer.err << "---";
  }
};

class VmctlFixture : public testing::Test {
 protected:
  // The words between blanks are the arguments.
  Answer vmctl(const std::string& command);
  Answer vmctl(const std::vector<rt::String>& arguments);

  // Another program's write, such as the daemon's or an operator's.
  void put(const rt::String& table, const rt::String& key, const rt::String& doc);
  void del(const rt::String& table, const rt::String& key);
  // Both stores forget all changes until now.
  void trim();
  // The document, or "none".
  std::string doc(const rt::String& table, const rt::String& key);
  // A VM with a disk, 256 MiB and no card.
  void putVm(const rt::String& name, bool isEnabled);
  // As the daemon writes of one that runs, or is off.
  void putRunning(const rt::String& name);
  void putOff(const rt::String& name);
  // As it writes when it has heard of all configuration until now.
  void putHeard();

  // Each is done when the command waits the next time, in order.
  void onWait(std::function<void()> step) { steps_.push_back(std::move(step)); }
  // Each is done just before the command commits the next time, in order.
  void beforeCommit(std::function<void()> step) { interferences_.push_back(std::move(step)); }

  // Each changes the text of the editor the next time, in order; without one it stays as it is.
  void onEdit(std::function<std::string(const std::string& text)> edit) {
    edits_.push_back(std::move(edit));
  }
  // As when the reader of standard output goes away.
  void closeOutput() { out_.setstate(std::ios::badbit); }

  bool daemonRuns_ = true;
  bool daemonListens_ = true;  // hears of each commit at once
  bool hasStatus_ = true;      // whether the daemon ever made the status
  bool isTerminal_ = false;
  bool inIsTerminal_ = false;
  FakeMachine machine_;
  rt::String daemonSays_;     // further fields of its row
  std::string heldPty_;       // whose console was asked for last
  std::string joinedSocket_;  // likewise, by the socket
  std::string viewedSocket_;  // likewise, to look at
  std::function<ConsoleEnd()> holdConsole_ = [] { return ConsoleEnd::left; };
  std::string editor_;               // that was run last
  std::vector<std::string> edited_;  // what editors were given
  // What shims were asked, "web1 {"pause":{…}}", and what they answer; at first, that it is done.
  std::vector<std::string> shimCalls_;
  std::map<std::string, ShimAnswer> shimAnswers_;  // by VM
  size_t columns_ = 80;
  size_t lines_ = 24;
  std::vector<std::string> pictures_;                    // that the screen showed
  std::string keys_;                                     // that are pressed, one a wait; NUL: none
  double time_ = 1000;                                   // seconds; moves while the command waits
  static constexpr uint64_t timeOfDay_ = 1'700'000'000;  // at 0 of that
  uint32_t chance_ = 0x123456;                           // the number that comes up by chance
  int waits_ = 0;                                        // how often commands waited
  std::map<std::string, std::string> environment_;
  std::set<std::string> missingImages_;
  // By path; any other is a CD when it is named so, and else an empty raw disk.
  std::map<std::string, model::ImageFacts> images_;
  int looks_ = 0;                             // how often an image was looked at
  double lookTakes_ = 0;                      // seconds
  std::map<std::string, std::string> files_;  // by path
  std::map<std::string, unsigned> modes_;     // of those that were put there
  std::string head_;                          // of a question of HTTP
  std::map<std::pair<rt::String, rt::String>, rt::String> backup_;  // documents by table and key
  std::optional<statedb::Trouble> backupError_;
  std::optional<statedb::Trouble> configError_;  // of the configuration, when it is opened
  std::map<std::string, std::string> packed_;    // by name, of the last archive
  rt::String stateDir_;                          // those that the last command opened
  rt::String runDir_;

 private:
  class PlayedFile;
  class PlayedScreen;

  statedb::StateDb open(const Directories& directories);
  std::unique_ptr<statedb::Store> store(statedb::Half half);
  std::unique_ptr<statedb::Store> storeOf(const rt::String& table);
  void waitReadable(std::span<const int> descriptors, rt::Seconds time);
  ShimAnswer askShim(const ShimCall& call);
  void putFile(const FilePlace& place, const std::string& bytes);
  statedb::Snapshot readBackup(const rt::String& file);
  World world();

  const std::shared_ptr<statedb::fakes::MemoryData> config_ =
      std::make_shared<statedb::fakes::MemoryData>();
  const std::shared_ptr<statedb::fakes::MemoryData> status_ =
      std::make_shared<statedb::fakes::MemoryData>();
  std::deque<std::function<void()>> steps_;
  std::deque<std::function<void()>> interferences_;
  std::deque<std::function<std::string(const std::string&)>> edits_;
  std::ostringstream out_;
  std::ostringstream err_;
};

}  // namespace ctl::fakes
