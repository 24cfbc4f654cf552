// QEMU's end of a monitor socket.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Vm::fakes {

// A descriptor of ours, closed with this.
class OwnedDescriptor {
 public:
  explicit OwnedDescriptor(int number = -1) : number_(number) {}
  OwnedDescriptor(OwnedDescriptor&& other) noexcept : number_(other.release()) {}
  OwnedDescriptor& operator=(OwnedDescriptor other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~OwnedDescriptor() { close(); }

  operator int() const { return number_; }
  int release() { return std::exchange(number_, -1); }
  void close();

 private:
  int number_;
};

// A pipe's reading end, with `text` in it and nobody left to write: a file that can be told from
// any other by reading it.
OwnedDescriptor fileWith(std::string_view text);
// A pipe's writing end that nobody will read: the loop finds it readable, and reading it fails.
OwnedDescriptor endWithoutReader();
// Whether both numbers stand for one file.
bool isSameFile(int a, int b);
bool isOpen(int number);

// Messages as QEMU sends them, each with its CRLF.
std::string greeting();
std::string returnOf(std::string_view id, std::string_view value = "{}");
std::string errorOf(std::string_view id, std::string_view description = "it cannot be done");
std::string eventOf(std::string_view name);

// What a session wrote: a whole request, or the bytes of one read, as they came.
struct Received {
  std::string text;
  std::vector<OwnedDescriptor> descriptors;  // that came along with it
};

// Holds QEMU's end of a real stream between Unix sockets. Whoever tests says what it sends, and
// when; or it answers by itself, as a running QEMU would, whenever answer() is called. Nothing in
// here blocks: what the session wrote is there, or not.
//
// A session writes to a peer that has gone: the process ignores SIGPIPE once there was one of
// these.
class QmpPeer {
 public:
  QmpPeer();
  QmpPeer(const QmpPeer&) = delete;

  // The session's end, for a FileDescriptor, which then owns it. To be taken once.
  int takeSessionEnd() { return taken_.release(); }

  void send(std::string_view bytes);

  // One read. Empty when nothing waits.
  Received receive();
  // All that waits, as whole requests. What came of an unfinished one is kept for the next call.
  std::vector<Received> take();
  // The texts of these.
  std::vector<std::string> takeTexts();
  // Whether the session closed its end and all that it wrote was received.
  bool sessionHasClosed() const;

  // Takes all requests and answers each; returns their texts.
  std::vector<std::string> answer();
  // What answer() sends for a command of that name, the value of "return"; at first what a guest
  // answers that runs and has its console at /dev/pts/3.
  void valueIs(const std::string& command, std::string value);
  // answer() sends an error for that command.
  void refusalIs(const std::string& command);
  // answer() leaves that command without an answer.
  void silenceIs(const std::string& command);

  // An orderly end: what the session wrote is received before, and forgotten.
  void close();
  // No more will be sent; what the session writes is still received.
  void shutDown();
  // Closes with data unread, so that the session's next read fails with ECONNRESET. The session's
  // end must be open.
  void reset();
  // Lets the session's end take no more: its writes give EAGAIN until the peer receives.
  void block();

 private:
  struct Answer {
    enum class Kind { value, refusal, silence } kind = Kind::value;
    std::string value = "{}";
  };

  OwnedDescriptor own_;
  OwnedDescriptor taken_;
  int sessionEnd_ = -1;  // its number, whoever owns it
  Received unfinished_;
  std::map<std::string, Answer> answers_;
};

}  // namespace Vm::fakes
