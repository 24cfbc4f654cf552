// A QEMU's monitor with a memory, in place of a process.
#pragma once

#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "shim/decide/QmpStream.h"
#include "shim/decide/QmpText.h"

namespace shim::fakes {

// Answers as QEMU 7.2 does, in order; what it is asked while it is stopped waits. It knows the
// requests that a shim sends.
class FakeQemu {
 public:
  // With the cards of these ids, each on a hub.
  explicit FakeQemu(const std::vector<std::string>& cards);

  static std::string greeting();

  // A request comes in. What QEMU says to it is in take().
  void hear(Message message);
  // What it said since the last call, without line ends.
  std::vector<std::string> take();

  // Like SIGSTOP and SIGCONT.
  void stop() { stopped_ = true; }
  void go();

  // All that it was asked, as it came.
  const std::vector<std::string>& asked() const { return asked_; }
  // The netdevs that it has, hub ports among them: what each is connected to.
  const std::map<std::string, std::string>& netdevs() const { return netdevs_; }
  // Cards whose guest sent, as one that runs always may, when nobody took it: they are stuck.
  const std::set<std::string>& stuck() const { return stuck_; }
  // Whether the guest sees a carrier.
  bool hasLink(const std::string& name) const { return down_.count(name) == 0; }
  // A second hub port to one netdev ends QEMU.
  bool hasAborted() const { return aborted_; }
  bool hasQuit() const { return quit_; }
  size_t descriptorsHeld() const { return descriptors_.size(); }
  // Who looks at the guest's screen.
  rt::Descriptors& viewers() { return viewers_; }

  // The next request of that name is refused with these words.
  void refusalIs(const std::string& execute, const std::string& words) {
    refusals_[execute] = words;
  }

 private:
  void answer(Message message);
  std::string answerTo(const qmp::Request& request, Message& message);
  std::string netdevAdd(const qmp::Request& request);
  std::string netdevDel(const qmp::Request& request);
  void letGuestSend();
  std::string getfd(const qmp::Request& request, Message& message);
  std::string addClient(const qmp::Request& request);
  std::string servers() const;

  bool stopped_ = false;
  bool aborted_ = false;
  bool quit_ = false;
  bool guestRuns_ = false;
  std::map<std::string, std::string> hubs_;  // of cards
  std::map<std::string, std::string> netdevs_;
  std::map<std::string, std::string> hubByPort_;  // of other ports
  std::set<std::string> stuck_;
  std::set<std::string> down_;
  std::map<std::string, rt::Descriptors> descriptors_;
  rt::Descriptors viewers_;
  std::map<std::string, std::string> refusals_;
  std::deque<Message> waiting_;
  std::vector<std::string> asked_;
  std::vector<std::string> said_;
};

}  // namespace shim::fakes
