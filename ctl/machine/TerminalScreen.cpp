#include "ctl/machine/TerminalScreen.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "ctl/machine/HeldTerminal.h"

namespace ctl {

namespace {

// The other screen, no cursor, and what is beyond the last column is left out; and back.
constexpr std::string_view enter = "\x1b[?1049h\x1b[?25l\x1b[?7l";
constexpr std::string_view leave = "\x1b[?7h\x1b[?25h\x1b[?1049l";
constexpr std::string_view home = "\x1b[H";
constexpr std::string_view clearToEndOfLine = "\x1b[K";
constexpr std::string_view clearToEnd = "\x1b[J";

constexpr char interrupt = 3;  // Ctrl-C, which is no signal on a raw terminal

class TerminalScreen final : public Screen {
 public:
  TerminalScreen(int input, int output) : input_(input), output_(output), raw_(input) {
    (void)writeAll(output_, enter);
  }
  ~TerminalScreen() override { (void)writeAll(output_, leave); }

  Size size() const override {
    winsize size{};
    if (ioctl(output_, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) return {};
    return {size.ws_col, size.ws_row};
  }

  // Line by line over what is there, so that nothing flickers.
  bool show(const rt::String& lines) override {
    std::string picture(home);
    std::string_view left = lines;
    while (!left.empty()) {
      const size_t end = std::min(left.find('\n'), left.size());
      (picture += left.substr(0, end)) += clearToEndOfLine;
      left.remove_prefix(std::min(end + 1, left.size()));
      if (!left.empty()) picture += "\r\n";
    }
    return writeAll(output_, picture += clearToEnd);
  }

  Word listen(rt::Seconds time) override {
    constexpr double longest = 3600;
    const double milliseconds = std::ceil(std::clamp(time.value(), 0.0, longest) * 1000);
    pollfd looks[] = {{input_, POLLIN, 0}, {signals_.descriptor(), POLLIN, 0}};
    if (poll(looks, 2, static_cast<int>(milliseconds)) <= 0) return {};
    char key = 0;
    if (looks[1].revents != 0) {
      signals_.take();
      return {Word::Kind::end, 0};
    }
    if (read(input_, &key, 1) <= 0 || key == interrupt) return {Word::Kind::end, 0};
    return {Word::Kind::key, key};
  }

 private:
  const int input_;
  const int output_;
  HeldSignals signals_;
  const RawTerminal raw_;
};

}  // namespace

std::unique_ptr<Screen> takeScreen(int input, int output) {
  return std::make_unique<TerminalScreen>(input, output);
}

}  // namespace ctl
