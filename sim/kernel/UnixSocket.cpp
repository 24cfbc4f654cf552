#include "sim/kernel/UnixSocket.h"

#include <algorithm>
#include <cstring>

#include "sim/kernel/Machine.h"

namespace sim {

UnixSocket::UnixSocket() : number_(static_cast<unsigned>(machine().files.nextInodeNumber())) {}

UnixSocket::~UnixSocket() {
  if (node_) {
    --node_->users;
    machine().files.handleUnused(*node_);
  }
  for (const auto& each : waiting_)
    if (const auto client = each->peer_.lock()) client->hangUp(true);
  if (const auto other = peer_.lock()) other->hangUp(!received_.empty());
}

// The other end is gone. Had it not read all, that is told as an error, once.
void UnixSocket::hangUp(bool unreadWasLost) {
  receivesNoMore_ = sendsNoMore_ = true;
  if (unreadWasLost) error_ = ECONNRESET;
  changed.wake();
}

std::pair<std::shared_ptr<UnixSocket>, std::shared_ptr<UnixSocket>> UnixSocket::pair() {
  const auto a = std::make_shared<UnixSocket>();
  const auto b = std::make_shared<UnixSocket>();
  a->peer_ = b;
  b->peer_ = a;
  a->wasConnected_ = b->wasConnected_ = true;
  return {a, b};
}

void UnixSocket::nodeIs(const InodePtr& node) {
  node_ = node;
  ++node->users;
}

Result UnixSocket::bind(const InodePtr& node, std::string path) {
  if (isBound()) return -EINVAL;
  path_ = std::move(path);
  nodeIs(node);
  node->listener = weak_from_this();
  return 0;
}

Result UnixSocket::listen(int backlog) {
  if (!isBound() || wasConnected_) return -EINVAL;
  backlog_ = std::max(backlog, 0);
  return 0;
}

Result UnixSocket::connect(const InodePtr& node) {
  const auto listener = node->listener.lock();
  if (!listener || !listener->isListening() || listener->receivesNoMore_) return -ECONNREFUSED;
  if (listener->waiting_.size() > static_cast<size_t>(listener->backlog_)) return -EAGAIN;
  if (isListening()) return -EINVAL;
  if (wasConnected_) return -EISCONN;
  const auto served = std::make_shared<UnixSocket>();
  served->peer_ = weak_from_this();
  served->wasConnected_ = true;
  served->path_ = listener->path_;
  served->nodeIs(listener->node_);
  served->owner = listener->owner;
  peer_ = served;
  wasConnected_ = true;
  listener->waiting_.push_back(served);
  listener->changed.wake();
  changed.wake();
  return 0;
}

std::shared_ptr<UnixSocket> UnixSocket::accept() {
  if (waiting_.empty()) return nullptr;
  const auto first = waiting_.front();
  waiting_.pop_front();
  changed.wake();
  return first;
}

Result UnixSocket::read(char* to, size_t size) {
  if (size == 0) return 0;
  std::vector<FilePtr> dropped;
  return receive(to, size, dropped, 0);
}

Result UnixSocket::write(const char* from, size_t size) { return send(from, size, {}); }

Result UnixSocket::receive(char* to, size_t size, std::vector<FilePtr>& files, int how) {
  if (isListening() || !wasConnected_) return -EINVAL;
  size_t count = 0;
  size_t piece = 0;
  // A look ahead goes on to the next descriptors that come, though there is no room for bytes.
  while ((count < size || (how & MSG_PEEK) != 0) && piece < received_.size()) {
    Piece& next = received_[piece];
    const size_t part = std::min(size - count, next.bytes.size());
    std::memcpy(to + count, next.bytes.data(), part);
    count += part;
    const bool hasFiles = !next.files.empty();
    if ((how & MSG_PEEK) != 0) {
      ++piece;
      files = next.files;
      if (hasFiles) break;
      continue;
    }
    files = std::exchange(next.files, {});
    next.bytes.erase(0, part);
    unread_ -= part;
    if (next.bytes.empty()) {
      unread_ -= pieceCost;
      received_.pop_front();
    }
    if (hasFiles) break;
  }
  if (count > 0) {
    if (const auto other = peer_.lock()) other->changed.wake();
    return static_cast<Result>(count);
  }
  if (size == 0) return 0;
  if (error_ != 0) return -std::exchange(error_, 0);
  return receivesNoMore_ ? 0 : -EAGAIN;
}

size_t UnixSocket::room() const {
  const auto other = peer_.lock();
  const size_t used = other ? other->unread_ : 0;
  return used < capacity ? capacity - used : 0;
}

Result UnixSocket::send(const char* from, size_t size, const std::vector<FilePtr>& files) {
  if (!wasConnected_) return -ENOTCONN;
  const auto other = peer_.lock();
  if (sendsNoMore_ || !other || other->receivesNoMore_) return -EPIPE;
  if (size == 0) return 0;
  const size_t free = room();
  if (free <= pieceCost) return -EAGAIN;
  const size_t count = std::min(size, free - pieceCost);
  other->received_.push_back({std::string(from, count), files});
  other->unread_ += count + pieceCost;
  other->changed.wake();
  return static_cast<Result>(count);
}

Result UnixSocket::shutdown(int how) {
  const bool reads = how == SHUT_RD || how == SHUT_RDWR;
  const bool writes = how == SHUT_WR || how == SHUT_RDWR;
  receivesNoMore_ |= reads;
  sendsNoMore_ |= writes;
  changed.wake();
  const auto other = peer_.lock();
  if (!other) return 0;
  other->sendsNoMore_ |= reads;
  other->receivesNoMore_ |= writes;
  other->changed.wake();
  return 0;
}

short UnixSocket::ready() const {
  int events = 0;
  if (error_ != 0) events |= POLLERR;
  if (receivesNoMore_) events |= POLLRDHUP | POLLIN;
  if (receivesNoMore_ && sendsNoMore_) events |= POLLHUP;
  if (isListening()) return static_cast<short>(events | (waiting_.empty() ? 0 : POLLIN));
  if (!wasConnected_) return static_cast<short>(events | POLLHUP | POLLOUT);
  if (!received_.empty()) events |= POLLIN;
  constexpr size_t quarter = capacity / 4;
  if (room() >= quarter * 3) events |= POLLOUT;
  return static_cast<short>(events);
}

unsigned UnixSocket::mode() const { return S_IFSOCK | 0777U; }

}  // namespace sim
