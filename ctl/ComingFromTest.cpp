// Holds docs/coming-from.md to what vmctl does.
#include <filesystem>
#include <fstream>
#include <regex>

#include "ctl/fakes/VmctlFixture.h"
#include "runtime/base/fakes/TestFolder.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

// A line of the page's table: what is typed here, and as elsewhere, without "vmctl".
struct Task {
  std::string name;
  std::vector<std::string> here;
  std::vector<std::string> elsewhere;
};

std::vector<std::string> quotedIn(const std::string& cell, const std::string& prefix) {
  std::vector<std::string> found;
  const std::regex quoted("`" + prefix + "([^`]+)`");
  for (std::sregex_iterator each(cell.begin(), cell.end(), quoted), end; each != end; ++each)
    found.push_back((*each)[1]);
  return found;
}

std::vector<Task> tasks() {
  std::ifstream file(std::string(DOCS) + "/coming-from.md");
  std::vector<Task> all;
  const std::regex row(R"(\| ([^|]+) \| ([^|]+) \|([^|]*)\|)");
  std::smatch cells;
  for (std::string line; std::getline(file, line);)
    if (std::regex_match(line, cells, row) && cells[1] != "Task" && cells[1] != "---")
      all.push_back({cells[1], quotedIn(cells[2], "vmctl "), quotedIn(cells[3], "")});
  return all;
}

class ComingFrom : public fakes::VmctlFixture {
 protected:
  // As somebody who came from elsewhere would have it: one that runs, one that is off, and one
  // that was removed.
  void prepare() {
    for (const char* name : {"web9", "db2", "store", "old"})
      for (const char* table : {"vmConfig", "vmImage", "vmPolicy", "vmLimits", "vmIntent"})
        del(table, name);
    environment_["VMAGENT_RUN_DIR"] = run_.path();
    std::filesystem::create_directories(run_ / "vm/web1");
    std::ofstream(run_ / "vm/web1/console.log") << "login:\n";
    put("vmConfig", "web1",
        R"({"enabled":true,"diskImage":"/images/web.iso","memory":256,"vnicConfig":{"nic00":)"
        R"({"model":"e1000","macAddr":"52:54:00:00:00:01","intfName":"Vlan1"}}})");
    putRunning("web1");
    putVm("db1", false);
    putOff("db1");
    del("vmConfig", "old");
    put("removed", "000000000001",
        R"({"at":1,"by":"op1","vm":{"name":"old","config":{"diskImage":"/images/web.iso"}}})");
    put("interfaceStatus", "Vlan1", R"({"deviceName":"br0.1","present":true})");
    files_ = {{"vms.json", R"({"version":1,"vms":[]})"}};
    backup_.clear();
    time_ = 1000;  // who waits for ever has come to its end
    shimAnswers_["web1"] = {ShimAnswer::Kind::done, R"({"return":{}})", "\x89PNG\r\n\x1a\n more"};
    for (const char* name : {"web1", "db1"}) del("vmIntent", name);
  }
  Answer typed(const std::string& line) {
    prepare();
    inIsTerminal_ = line.starts_with("console");
    if (line.starts_with("watch")) onWait([this] { closeOutput(); });
    return vmctl(line);
  }

  const rt::fakes::TestFolder run_;
};

TEST_F(ComingFrom, HasTheTasksThatPeopleTry) {
  EXPECT_GE(tasks().size(), 42U);
  size_t served = 0;
  for (const Task& task : tasks()) served += task.here.empty() ? 0 : 1;
  EXPECT_GE(served, 42U - 6U);
}

TEST_F(ComingFrom, IsServedByWhatThePageSays) {
  for (const Task& task : tasks())
    for (const std::string& line : task.here) {
      const Answer answer = typed(line);
      // Nobody reads what goes on, and the machine of this test has nothing of what it takes.
      const bool mayFail = line.starts_with("watch") || line == "doctor";
      EXPECT_THAT(answer.exit, mayFail ? AnyOf(0, 1) : AnyOf(0, 0))
          << task.name << ": vmctl " << line << "\n"
          << answer;
    }
}

TEST_F(ComingFrom, IsToldInOneLineWhereItIsTypedAsElsewhere) {
  for (const Task& task : tasks())
    for (const std::string& line : task.elsewhere) {
      const Answer answer = typed(line);
      EXPECT_EQ(answer.exit, 2) << "vmctl " << line << "\n" << answer;
      EXPECT_EQ(std::count(answer.err.begin(), answer.err.end(), '\n'), 1) << answer;
      EXPECT_THAT(answer.err, Not(HasSubstr("--help"))) << line;
      const std::regex command("'vmctl ([a-z]+)");
      std::smatch named;
      if (task.here.empty() || !std::regex_search(answer.err, named, command)) continue;
      bool isNamed = false;
      for (const std::string& ours : task.here)
        isNamed = isNamed ||
                  answer.err.find("'vmctl " + ours.substr(0, ours.find(' '))) != std::string::npos;
      EXPECT_TRUE(isNamed) << task.name << ": vmctl " << line << "\n" << answer;
    }
}

}  // namespace
}  // namespace ctl
