#include "tests/system/Terminal.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "runtime/base/Check.h"
#include "tests/system/DaemonWorld.h"

namespace host::fakes {

namespace {

constexpr const char* serverSocket = "/var/run/terminal";
constexpr const char* shell = "/bin/bash --norc --noprofile -i";
// What the shell edits its lines with: nothing that is not on the screen.
constexpr const char* lineSettings = "/var/run/inputrc";

}  // namespace

Terminal::Terminal(int columns, int lines, const std::vector<std::string>& environment) {
  std::ofstream(lineSettings) << "set enable-bracketed-paste off\n";
  setenv("LC_ALL", "C.UTF-8", 1);  // without it there is no server
  std::string command = std::string("exec env -i TERM=screen LC_ALL=C.UTF-8 PS1='$ ' HISTFILE= ") +
                        "HOME=/var/run INPUTRC=" + lineSettings;
  for (const std::string& variable : environment) command += " '" + variable + "'";
  tmux({"-f", "/dev/null", "new-session", "-d", "-x", std::to_string(columns), "-y",
        std::to_string(lines), command + " " + shell});
  rt::check(shows([](const std::string& screen) { return screen == "$"; }), "no shell");
}

Terminal::~Terminal() {
  const std::string socket = serverSocket;
  run({tmuxPath, "-S", socket, "kill-server"});
}

void Terminal::clear() const {
  type("clear");
  rt::check(shows([](const std::string& screen) { return screen == "$"; }), screen().c_str());
}

void Terminal::type(const std::string& line) const {
  tmux({"send-keys", "-l", line});
  press("Enter");
}

void Terminal::press(const std::string& key) const { tmux({"send-keys", key}); }

void Terminal::columnsIs(int columns) const {
  tmux({"resize-window", "-x", std::to_string(columns)});
}

std::string Terminal::screen() const {
  std::string text = tmux({"capture-pane", "-p"});
  text.erase(text.find_last_not_of(" \n") + 1);
  return text;
}

bool Terminal::shows(const std::function<bool(const std::string& screen)>& isIt,
                     double seconds) const {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::duration<double>(seconds);
  // Looking takes a process.
  constexpr std::chrono::milliseconds pause(50);
  while (!isIt(screen())) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(pause);
  }
  return true;
}

std::string Terminal::tmux(const std::vector<std::string>& words) const {
  std::vector<std::string> all = {tmuxPath, "-u", "-S", serverSocket};
  all.insert(all.end(), words.begin(), words.end());
  const Ended ended = run(all);
  rt::check(ended.status == 0, ended.err.c_str());
  return ended.out;
}

}  // namespace host::fakes
