// A terminal that a person sits at: typed at, and looked at.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace host::fakes {

// A shell in a terminal emulator (tmux), with a server of its own that ends with it.
class Terminal {
 public:
  // `environment`: "NAME=value", all that the shell has besides what a terminal needs.
  Terminal(int columns, int lines, const std::vector<std::string>& environment);
  Terminal(const Terminal&) = delete;
  ~Terminal();

  // Empties the screen; the shell must be waiting for a command.
  void clear() const;
  void type(const std::string& line) const;  // and Enter
  void press(const std::string& key) const;  // such as "C-c"
  void columnsIs(int columns) const;
  // What is on the screen now, without what is blank at the ends.
  std::string screen() const;
  // Waits until the screen is so; whether it became so.
  bool shows(const std::function<bool(const std::string& screen)>& isIt, double seconds = 30) const;

 private:
  std::string tmux(const std::vector<std::string>& words) const;
};

// The terminal emulator.
inline constexpr const char* tmuxPath = "/usr/bin/tmux";

}  // namespace host::fakes
