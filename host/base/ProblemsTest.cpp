// Of all that is wrong with a VM, what is shown.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/base/Problems.h"

namespace host {
namespace {

class ProblemsTest : public testing::Test {
 protected:
  void is(ProblemSource source, const char* text) { problems.problemIs("web1", source, text); }
  // "config: TEXT (since 5)"; empty without a record.
  std::string shown(const char* vm = "web1") const {
    const auto record = status->vmProblem(vm);
    if (!record) return "";
    return record->source().str() + ": " + record->problem().str() + " (since " +
           std::to_string(record->since()) + ")";
  }

  uint64_t now = 5;
  const HostStatus::Ptr status = rt::make<HostStatus>();
  Problems problems{status, [this] { return now; }};
};

TEST(TextOfProblems, HasAllOfAFewAndCountsTheRestOfMany) {
  const rt::Problem one{"memory", "0", "must be 1"};
  const std::string each = "memory: '0' is refused: must be 1";
  EXPECT_EQ(textOf({}), "");
  EXPECT_EQ(textOf({one, one}), each + "; " + each);
  const rt::String many = textOf(std::vector<rt::Problem>(100'000, one));
  EXPECT_LT(many.size(), 1200U);
  EXPECT_THAT(many.str(), testing::EndsWith(each + "; and 99970 more"));
}

TEST_F(ProblemsTest, AreShownWithTheirSourceAndTime) {
  is(ProblemSource::agent, "no monitor");
  EXPECT_EQ(shown(), "agent: no monitor (since 5)");
}

TEST_F(ProblemsTest, AreToldToWhoListensAndSoIsThatThereIsNoneAnyMore) {
  std::vector<std::string> told;
  problems.listenerIs([&](const rt::String& vm, const rt::String& text, ProblemSource source) {
    told.push_back(vm.str() + " " + std::string(model::textOf(source)) + ":" + text.str());
  });
  is(ProblemSource::agent, "no monitor");
  is(ProblemSource::image, "no image");
  is(ProblemSource::image, "");
  is(ProblemSource::agent, "");
  EXPECT_THAT(told, testing::ElementsAre("web1 agent:no monitor", "web1 image:no image",
                                         "web1 agent:no monitor", "web1 config:"));
}

TEST_F(ProblemsTest, AreShownByWeight) {
  const std::pair<ProblemSource, const char*> byWeight[] = {
      {ProblemSource::restart, "restart"}, {ProblemSource::card, "card"},
      {ProblemSource::guest, "guest"},     {ProblemSource::agent, "agent"},
      {ProblemSource::qemu, "qemu"},       {ProblemSource::image, "image"},
      {ProblemSource::config, "config"}};
  for (const auto& [source, name] : byWeight) {
    is(source, "x");
    EXPECT_EQ(shown(), std::string(name) + ": x (since 5)");
  }
  is(ProblemSource::restart, "y");
  EXPECT_EQ(shown(), "config: x (since 5)");
}

TEST_F(ProblemsTest, GiveWayToTheNextWhenTheyAreGone) {
  is(ProblemSource::image, "no image");
  now = 6;
  is(ProblemSource::agent, "start failed");
  now = 7;
  is(ProblemSource::image, "");
  EXPECT_EQ(shown(), "agent: start failed (since 6)");
  is(ProblemSource::agent, "");
  EXPECT_EQ(shown(), "");
}

TEST_F(ProblemsTest, AreAsOldAsTheirText) {
  is(ProblemSource::agent, "a");
  now = 6;
  is(ProblemSource::agent, "a");
  EXPECT_EQ(shown(), "agent: a (since 5)");
  is(ProblemSource::agent, "b");
  EXPECT_EQ(shown(), "agent: b (since 6)");
}

TEST_F(ProblemsTest, AreNewWhenTheyComeBack) {
  is(ProblemSource::agent, "a");
  is(ProblemSource::agent, "");
  now = 9;
  is(ProblemSource::agent, "a");
  EXPECT_EQ(shown(), "agent: a (since 9)");
}

TEST_F(ProblemsTest, AreOfOneVmEach) {
  is(ProblemSource::agent, "a");
  problems.problemIs("web2", ProblemSource::qemu, "b");
  is(ProblemSource::agent, "");
  EXPECT_EQ(shown("web2"), "qemu: b (since 5)");
}

TEST_F(ProblemsTest, AllGoWithTheirVm) {
  is(ProblemSource::agent, "a");
  is(ProblemSource::qemu, "b");
  problems.vmDel("web1");
  EXPECT_EQ(shown(), "");
  is(ProblemSource::restart, "c");
  EXPECT_EQ(shown(), "restart: c (since 5)") << "the others are forgotten";
}

TEST(ProblemText, HasAllOfThemOnOneLine) {
  EXPECT_EQ(textOf({{"memory", "0", "must be more"}, {"diskImage", "", "must be a path"}}),
            "memory: '0' is refused: must be more; diskImage: '' is refused: must be a path");
  EXPECT_EQ(textOf({}), "");
}

}  // namespace
}  // namespace host
