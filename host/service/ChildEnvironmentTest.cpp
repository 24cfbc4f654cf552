#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "host/service/ChildEnvironment.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// What a child that is forked now finds in its environment.
std::vector<std::string> environmentOfAChild() {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  const pid_t child = fork();
  if (child == 0) {
    for (char** at = environ; *at; ++at) (void)!write(ends[1], *at, std::string(*at).size() + 1);
    _exit(0);
  }
  close(ends[1]);
  std::string text;
  char part[4096];
  for (ssize_t count = 0; (count = read(ends[0], part, sizeof part)) > 0;)
    text.append(part, static_cast<size_t>(count));
  close(ends[0]);
  waitpid(child, nullptr, 0);
  std::vector<std::string> values;
  for (size_t at = 0; at < text.size(); at += values.back().size() + 1)
    values.emplace_back(text.c_str() + at);
  return values;
}

TEST(ChildEnvironment, IsAllThatAChildHas) {
  setenv("TOKEN_OF_AN_OPERATOR", "secret", 1);
  ChildEnvironment environment({{"PATH", "/bin"}, {"VMAGENT_ACCEL", "tcg"}});
  EXPECT_THAT(environmentOfAChild(), ElementsAre("PATH=/bin", "VMAGENT_ACCEL=tcg"));
  EXPECT_STREQ(std::getenv("TOKEN_OF_AN_OPERATOR"), "secret") << "ours stays";
}

TEST(ChildEnvironment, HasBesideWhatWasSaidLast) {
  ChildEnvironment environment(ChildEnvironment::Values{{"PATH", "/bin"}});
  environment.extraIs({{"VMAGENT_A", "1"}, {"VMAGENT_B", ""}});
  environment.extraIs({{"VMAGENT_C", "3"}});
  EXPECT_THAT(environmentOfAChild(), ElementsAre("PATH=/bin", "VMAGENT_C=3"));
}

TEST(ChildEnvironment, MayBeEmpty) {
  ChildEnvironment environment({});
  EXPECT_THAT(environmentOfAChild(), IsEmpty());
}

TEST(ChildEnvironment, IsTheProcessesOwnAgainWhenItIsGone) {
  setenv("OWN", "yes", 1);
  { ChildEnvironment environment({}); }
  EXPECT_THAT(environmentOfAChild(), testing::Contains("OWN=yes"));
}

TEST(ChildEnvironment, KeepsPathAndLanguageOnly) {
  setenv("PATH", "/usr/bin", 1);
  setenv("LANG", "C.UTF-8", 1);
  setenv("NOTIFY_SOCKET", "/run/x", 1);
  EXPECT_EQ(keptEnvironment(),
            (ChildEnvironment::Values{{"LANG", "C.UTF-8"}, {"PATH", "/usr/bin"}}));
  unsetenv("NOTIFY_SOCKET");
  unsetenv("LANG");
  EXPECT_EQ(keptEnvironment(), (ChildEnvironment::Values{{"PATH", "/usr/bin"}}));
}

}  // namespace
}  // namespace host
