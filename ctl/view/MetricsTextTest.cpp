// What is so of all VMs, for Prometheus.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "ctl/view/MetricsText.h"
#include "runtime/base/fakes/TestFolder.h"

namespace ctl {
namespace {

using testing::HasSubstr;
using testing::Not;

class MetricsText : public testing::Test {
 protected:
  MetricsText() {
    facts_.version = "1.2";
    facts_.daemonRuns = true;
    facts_.daemon = rt::make<model::DaemonStatus>("vmagentd");
    facts_.daemon->versionIs("1.1");
    facts_.daemon->memoryCapIs(1);
    facts_.vms.resize(2);
    VmRow& db = facts_.vms[0];
    db.name = "db";
    db.process->actualIs("stopped");
    VmRow& web = facts_.vms[1];
    web.name = "web";
    web.config = rt::make<Vm::VmConfig>("web");
    web.config->enabledIs(true);
    web.process->actualIs("running");
    web.process->startedAtIs(1'700'000'000);
    web.process->resetsIs(3);
    web.process->endCauseIs("memory-limit");
    web.process->endAtIs(1'600'000'000);
    web.process->startsIs(5);
    web.process->endsIs("asked:3 memory-limit:1");
    GuestFacts& guest = facts_.guests["web"];
    guest.name = "web";
    guest.counters.cpu = 1'234'567;
    guest.counters.memory = 9;
    guest.counters.disk = DiskCounters{1, 2, 3, 4};
    guest.cards.push_back({"nic00", "Ethernet1", "52:54:00:00:00:01"});
    guest.counters.cards.push_back({"macvtap0", CardCounters{11, 12, 13, 14, 15, 16}, true});
  }
  std::string text() const { return metricsText(facts_).str(); }

  MetricsFacts facts_;
};

TEST_F(MetricsText, HasEachStateOfEachVmRunningOrNot) {
  const std::string text = this->text();
  for (const char* const line :
       {"\nvmagent_vm_state{vm=\"db\",state=\"stopped\"} 1\n",
        "\nvmagent_vm_state{vm=\"db\",state=\"running\"} 0\n",
        "\nvmagent_vm_state{vm=\"web\",state=\"running\"} 1\n",
        "\nvmagent_vm_state{vm=\"web\",state=\"hung\"} 0\n", "\nvmagent_vm_up{vm=\"db\"} 0\n",
        "\nvmagent_vm_up{vm=\"web\"} 1\n", "\nvmagent_vm_wanted{vm=\"web\"} 1\n",
        "\nvmagent_vm_wanted{vm=\"db\"} 0\n", "\nvmagent_up 1\n"})
    EXPECT_THAT(text, HasSubstr(line));
}

TEST_F(MetricsText, HasWhatAGuestTakes) {
  const std::string text = this->text();
  for (const char* const line :
       {"vmagent_vm_cpu_seconds_total{vm=\"web\"} 1.234567\n",
        "vmagent_vm_memory_bytes{vm=\"web\"} 9\n",
        "vmagent_vm_disk_written_bytes_total{vm=\"web\"} 2\n",
        "vmagent_card_receive_bytes_total{vm=\"web\",card=\"nic00\"} 11\n",
        "vmagent_card_transmit_drops_total{vm=\"web\",card=\"nic00\"} 16\n",
        "vmagent_card_carrier{vm=\"web\",card=\"nic00\"} 1\n",
        "vmagent_card_info{vm=\"web\",card=\"nic00\",interface=\"Ethernet1\","
        "mac=\"52:54:00:00:00:01\"} 1\n",
        "vmagent_vm_guest_resets_total{vm=\"web\"} 3\n",
        "vmagent_vm_last_end_timestamp_seconds{vm=\"web\",cause=\"memory-limit\"} 1600000000\n"})
    EXPECT_THAT(text, HasSubstr(line));
  EXPECT_THAT(text, Not(HasSubstr("vmagent_vm_memory_limit_bytes{")));
}

TEST_F(MetricsText, CountEndsByEachCauseFromZeroOn) {
  const std::string text = this->text();
  for (const char* const line :
       {"\nvmagent_vm_starts_total{vm=\"web\"} 5\n", "\nvmagent_vm_starts_total{vm=\"db\"} 0\n",
        "\nvmagent_vm_ends_total{vm=\"web\",cause=\"asked\"} 3\n",
        "\nvmagent_vm_ends_total{vm=\"web\",cause=\"memory-limit\"} 1\n",
        "\nvmagent_vm_ends_total{vm=\"web\",cause=\"killed\"} 0\n",
        "\nvmagent_vm_ends_total{vm=\"db\",cause=\"unknown\"} 0\n"})
    EXPECT_THAT(text, HasSubstr(line));
}

TEST_F(MetricsText, OfADaemonThatIsDeadSaysThatStatesAreUnknown) {
  facts_.daemonRuns = false;
  const std::string text = this->text();
  for (const char* const line :
       {"\nvmagent_up 0\n", "\nvmagent_vm_state{vm=\"web\",state=\"unknown\"} 1\n",
        "\nvmagent_vm_state{vm=\"web\",state=\"running\"} 0\n", "\nvmagent_vm_up{vm=\"web\"} 1\n",
        "\nvmagent_vm_up{vm=\"db\"} 0\n"})
    EXPECT_THAT(text, HasSubstr(line));
}

TEST_F(MetricsText, NamesNoFamilyTwiceAndEachBeforeItsValues) {
  std::istringstream lines(text());
  std::set<std::string> families;
  std::string family;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string mark, kind, name;
    words >> mark >> kind >> name;
    if (kind == "HELP") EXPECT_TRUE(families.insert(family = name).second) << line;
    if (kind == "TYPE") EXPECT_EQ(name, family);
    if (mark != "#") EXPECT_EQ(line.substr(0, line.find_first_of("{ ")), family);
  }
  EXPECT_GE(families.size(), 30U);
}

TEST_F(MetricsText, WritesNamesOfAnyCharactersAsTheyAre) {
  EXPECT_EQ(labelValue("a\"b\\c\nd"), R"("a\"b\\c\nd")");
  EXPECT_EQ(labelValue("ä\xff\xc3"), "\"ä\xef\xbf\xbd\xef\xbf\xbd\"");
  EXPECT_EQ(labelValue(""), "\"\"");
}

TEST_F(MetricsText, IsWhatPrometheusTakesWithoutAWord) {
  constexpr const char* tool = "/usr/bin/promtool";
  if (access(tool, X_OK) != 0) {
    std::printf("this is left out: it needs %s\n", tool);
    EXPECT_FALSE(std::getenv("CI") || std::getenv("VMAGENT_REQUIRE_ALL"));
    return;
  }
  facts_.vms[0].name = "quote\" stroke\\ line\n \xff";
  const rt::fakes::TestFolder folder;
  const std::string file = folder.path() + "/metrics";
  const std::string said = folder.path() + "/said";
  std::ofstream(file) << text();
  const std::string command = std::string(tool) + " check metrics <" + file + " >" + said + " 2>&1";
  EXPECT_EQ(std::system(command.c_str()), 0);  // NOLINT(cert-env33-c): no word of others is in it
  std::ifstream words(said);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(words), {}), "");
}

}  // namespace
}  // namespace ctl
