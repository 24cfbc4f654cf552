// Streams between processes of one machine.
#pragma once

#include <sys/socket.h>

#include <deque>

#include "sim/kernel/Inode.h"

namespace sim {

// AF_UNIX, SOCK_STREAM. Descriptors travel with the first byte of what they were sent with.
class UnixSocket final : public File, public std::enable_shared_from_this<UnixSocket> {
 public:
  struct Piece {
    std::string bytes;
    std::vector<FilePtr> files;
  };

  UnixSocket();
  ~UnixSocket() override;

  static std::pair<std::shared_ptr<UnixSocket>, std::shared_ptr<UnixSocket>> pair();

  Result bind(const InodePtr& node, std::string path);
  Result listen(int backlog);
  // -EAGAIN: too many wait already.
  Result connect(const InodePtr& node);
  std::shared_ptr<UnixSocket> accept();  // null: nobody waits
  bool isBound() const { return !path_.empty(); }
  bool isListening() const { return backlog_ >= 0; }
  bool isConnected() const { return wasConnected_; }

  Result read(char* to, size_t size) override;
  Result write(const char* from, size_t size) override;
  // With the descriptors' files that came along.
  Result receive(char* to, size_t size, std::vector<FilePtr>& files, int flags);
  Result send(const char* from, size_t size, const std::vector<FilePtr>& files);
  Result shutdown(int how);

  short ready() const override;
  std::string text() const override { return "socket:[" + std::to_string(number_) + "]"; }
  unsigned mode() const override;

  const std::string& path() const { return path_; }
  size_t unread() const { return unread_; }

  pid_t owner = 0;  // of the process that made it, or whose connection was accepted

 private:
  static constexpr size_t capacity = 208 * 1024;
  static constexpr size_t pieceCost = 768;  // of the kernel's own

  size_t room() const;
  void hangUp(bool unreadWasLost);
  void nodeIs(const InodePtr& node);

  const unsigned number_;
  std::string path_;
  InodePtr node_;  // that it, or who has accepted it, is bound to
  int backlog_ = -1;
  std::deque<std::shared_ptr<UnixSocket>> waiting_;  // to be accepted
  std::weak_ptr<UnixSocket> peer_;
  bool wasConnected_ = false;
  bool receivesNoMore_ = false;
  bool sendsNoMore_ = false;
  int error_ = 0;
  std::deque<Piece> received_;
  size_t unread_ = 0;  // what they take
};

}  // namespace sim
