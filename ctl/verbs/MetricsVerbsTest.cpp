// What is so, for Prometheus.
#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;
using testing::StartsWith;

class MetricsVerb : public fakes::VmctlFixture {
 protected:
  MetricsVerb() {
    daemonSays_ = R"("guestsGroup":"/g","version":"1.1")";
    putVm("web1", true);
    putRunning("web1");
    putVm("off", false);
    putOff("off");
    machine_.texts["/g/vm-web1.256/cpu.stat"] = "usage_usec 2500000\n";
  }
};

TEST_F(MetricsVerb, WritesWhatIsSoAndWhatGuestsTake) {
  const Answer answer = vmctl("metrics");
  EXPECT_EQ(answer.exit, 0);
  EXPECT_EQ(answer.err, "");
  for (const char* const line :
       {"vmagent_vm_up{vm=\"web1\"} 1\n", "vmagent_vm_state{vm=\"off\",state=\"stopped\"} 1\n",
        "vmagent_vm_cpu_seconds_total{vm=\"web1\"} 2.500000\n", "daemon_version=\"1.1\""})
    EXPECT_THAT(answer.out, HasSubstr(line));
}

TEST_F(MetricsVerb, OfAMachineWithoutADaemonAreWrittenAllTheSame) {
  hasStatus_ = daemonRuns_ = daemonListens_ = false;
  EXPECT_THAT(vmctl("metrics").out, HasSubstr("vmagent_up 0\n"));
  EXPECT_THAT(vmctl("metrics").out, HasSubstr("vmagent_vm_wanted{vm=\"web1\"} 1\n"));
}

TEST_F(MetricsVerb, ReplacesATextFileThatAllMayRead) {
  files_["/t/vmagent.prom"] = "old";
  EXPECT_EQ(vmctl("metrics --textfile /t/vmagent.prom"), (Answer{0, "", ""}));
  EXPECT_THAT(files_["/t/vmagent.prom"], StartsWith("# HELP vmagent_build_info "));
  EXPECT_EQ(modes_["/t/vmagent.prom"], 0644U);
}

TEST_F(MetricsVerb, AnswersOneQuestionOfHttp) {
  head_ = "GET /metrics HTTP/1.1\r\n\r\n";
  EXPECT_THAT(vmctl("metrics --http").out, StartsWith("HTTP/1.1 200 OK\r\n"));
  EXPECT_THAT(vmctl("metrics --http").out, HasSubstr("\r\n\r\n# HELP vmagent_build_info "));
  head_ = "GET /favicon.ico HTTP/1.1\r\n\r\n";
  EXPECT_THAT(vmctl("metrics --http").out, StartsWith("HTTP/1.1 404 "));
  head_ = "";
  EXPECT_EQ(vmctl("metrics --http").exit, 0);
}

TEST_F(MetricsVerb, TellsHimWhoAskedThatTheDatabaseCannotBeRead) {
  put("daemon", "vmagentd", "{}");
  head_ = "GET /metrics HTTP/1.1\r\n\r\n";
  configError_ = statedb::Trouble::corrupt;
  const Answer answer = vmctl("metrics --http");
  EXPECT_EQ(answer.exit, 6);
  EXPECT_THAT(answer.out, StartsWith("HTTP/1.1 503 "));
  EXPECT_THAT(answer.out, HasSubstr("config.db"));
}

TEST_F(MetricsVerb, IsOneWayAtATime) { EXPECT_EQ(vmctl("metrics --http --textfile /t").exit, 2); }

}  // namespace
}  // namespace ctl
