// Which guest one is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "host/guests/GuestMark.h"

namespace host {
namespace {

using namespace std::string_literals;
using statedb::Origin;
using testing::StartsWith;

std::string environment(const std::vector<std::string>& variables) {
  std::string text;
  for (const auto& variable : variables) text += variable + '\0';
  return text;
}

TEST(GuestMark, IsTheRowThatItsDaemonToldItOf) {
  EXPECT_EQ(rowIn(environment({"PATH=/bin", "VMAGENT_STORE=6f1c", "VMAGENT_ROW=42"})),
            (Origin{"6f1c", 42}));
}

TEST(GuestMark, IsUnderstoodAsItIsTold) {
  const Origin row{"6f1c", 18446744073709551615U};
  std::vector<std::string> variables;
  for (const auto& [name, value] : variablesOf(row))
    variables.push_back(name.str() + "=" + value.str());
  EXPECT_EQ(rowIn(environment(variables)), row);
  for (const auto& [name, value] : variablesOf({"6f1c", 1})) {
    if (name != "VMAGENT_ROW") continue;
    EXPECT_EQ(value.size(), 20U) << "there is room for any other";
  }
}

// As the shim leaves it that writes a shorter one, or is at it.
TEST(GuestMark, IsFoundAmongWhatIsLeftOfALongerOne) {
  const std::string text = "VMAGENT_STORE=6f\0\0VMAGENT_ROW=7\0\0\0LANG=C\0"s;
  EXPECT_EQ(rowIn(text), (Origin{"6f", 7}));
  EXPECT_EQ(rowIn(environment({"VMAGENT_STORE=6f1c", "VMAGENT_ROW="})), std::nullopt);
}

TEST(GuestMark, IsNoneWithoutAllOfIt) {
  for (const auto& variables :
       std::vector<std::vector<std::string>>{{},
                                             {"VMAGENT_ROW=42"},
                                             {"VMAGENT_STORE=6f1c"},
                                             {"VMAGENT_STORE=", "VMAGENT_ROW=42"},
                                             {"VMAGENT_STORE=6f1c", "VMAGENT_ROW=0"},
                                             {"VMAGENT_STORE=6f1c", "VMAGENT_ROW=-1"},
                                             {"VMAGENT_STORE=6f1c", "VMAGENT_ROW=x"},
                                             {"XVMAGENT_STORE=6f1c", "VMAGENT_ROWS=42"}})
    EXPECT_EQ(rowIn(environment(variables)), std::nullopt) << testing::PrintToString(variables);
}

// A process that ends with this.
class Child {
 public:
  Child() : pid_(fork()) {
    while (pid_ == 0) pause();
  }
  Child(const Child&) = delete;
  ~Child() { end(); }
  void end() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = 0;
  }
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_;
};

TEST(GuestName, IsOfOneProcessAsLongAsItIsThere) {
  Child child;
  const pid_t pid = child.pid();
  const rt::String name = guestName(pid);
  EXPECT_THAT(name.str(), StartsWith(std::to_string(pid) + "."));
  EXPECT_EQ(guestName(pid), name);
  EXPECT_NE(guestName(getpid()), name);
  child.end();
  EXPECT_EQ(guestName(pid), "");
}

TEST(GuestProcesses, AreSortedByTheirAgeAndTheGoneComeLast) {
  Child child;
  Child gone;
  std::vector<GuestProcess> guests{
      {"gone", gone.pid()}, {"child", child.pid()}, {"we", getpid()}, {"first", 1}};
  gone.end();
  sortByAge(guests);
  std::vector<std::string> names;
  for (const auto& guest : guests) names.push_back(guest.vm.str());
  EXPECT_EQ(names.front(), "first");
  EXPECT_EQ(names.back(), "gone");
}

TEST(GuestRow, IsReadOfTheProcessItself) {
  setenv("VMAGENT_STORE", "6f1c", 1);
  setenv("VMAGENT_ROW", "42", 1);
  int in[2];
  int out[2];
  ASSERT_EQ(pipe(in), 0);
  ASSERT_EQ(pipe(out), 0);
  const pid_t child = fork();
  if (child == 0) {
    dup2(in[0], STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    // The shell's own command: a program that is just being started has no environment.
    execl("/bin/sh", "sh", "-c", "echo; read line", nullptr);
    _exit(127);
  }
  unsetenv("VMAGENT_STORE");
  unsetenv("VMAGENT_ROW");
  close(in[0]);
  close(out[1]);
  char ready = 0;
  EXPECT_EQ(read(out[0], &ready, 1), 1);
  close(out[0]);
  EXPECT_EQ(rowOf({"web1", child}), (Origin{"6f1c", 42}));
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(in[1]);
  EXPECT_EQ(rowOf({"web1", child}), std::nullopt);
  EXPECT_EQ(rowOf({"web1", getpid()}), std::nullopt);
}

}  // namespace
}  // namespace host
