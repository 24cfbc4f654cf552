#include "shim/keep/Viewers.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace shim {

namespace {

constexpr size_t readSize = 1024;
constexpr std::string_view viewRequest = "view\n";
constexpr std::string_view readOnlyNotice =
    "\r\n[read-only: another viewer writes on this console]\r\n";
constexpr std::string_view fullNotice = "\r\n[too many viewers on this console]\r\n";

bool isForLater(int error) { return error == EAGAIN || error == EINTR; }

}  // namespace

void Viewers::show(std::string_view bytes) {
  replay_.add(bytes);
  for (Viewer& viewer : viewers_) {
    if (!viewer.connection) continue;
    viewer.unsent += bytes;
    flush(viewer);
    if (viewer.unsent.size() > mostBehind) viewer.connection.reset();
  }
}

void Viewers::addTo(std::vector<pollfd>& polled, Typing typing) {
  std::erase_if(viewers_, [](const Viewer& viewer) { return !viewer.connection; });
  polled.push_back({socket_.number(), POLLIN, 0});
  for (const Viewer& viewer : viewers_) {
    // Whoever only reads is always heard, for its end must be seen.
    const bool isHeard = typing == Typing::taken || viewer.role == Viewer::Role::viewOnly;
    polled.push_back(
        {viewer.connection.number(),
         static_cast<short>((isHeard ? POLLIN : 0) | (viewer.unsent.empty() ? 0 : POLLOUT)), 0});
  }
}

std::string Viewers::ready(const pollfd* polled) {
  std::string typed;
  for (size_t i = 0; i < viewers_.size(); ++i) {
    const short came = polled[i + 1].revents;
    Viewer& viewer = viewers_[i];
    if (came == 0 || !viewer.connection) continue;
    flush(viewer);
    if (viewer.connection && (came & ~POLLOUT) != 0) typed += receive(viewer);
  }
  if (polled[0].revents != 0) acceptAll();
  return typed;
}

void Viewers::acceptAll() {
  std::erase_if(viewers_, [](const Viewer& viewer) { return !viewer.connection; });
  while (rt::Descriptor connection = socket_.accept()) {
    Viewer viewer{std::move(connection), std::string(replay_.newest())};
    const bool isOneTooMany = viewers_.size() >= mostViewers;
    if (isOneTooMany) viewer.unsent = fullNotice;
    flush(viewer);
    if (!isOneTooMany) viewers_.push_back(std::move(viewer));
  }
}

void Viewers::flush(Viewer& viewer) {
  while (!viewer.unsent.empty()) {
    const ssize_t count = send(viewer.connection.number(), viewer.unsent.data(),
                               viewer.unsent.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0) {
      if (!isForLater(errno)) viewer.unsent.clear();  // it reads no more
      return;
    }
    viewer.unsent.erase(0, static_cast<size_t>(count));
  }
}

std::string Viewers::receive(Viewer& viewer) {
  char bytes[readSize];
  const ssize_t count = recv(viewer.connection.number(), bytes, sizeof bytes, MSG_DONTWAIT);
  if (count > 0) return heed(viewer, {bytes, static_cast<size_t>(count)});
  if (count == 0 || !isForLater(errno)) viewer.connection.reset();
  return {};
}

std::string Viewers::heed(Viewer& viewer, std::string_view bytes) {
  using Role = Viewer::Role;
  if (viewer.role == Role::undecided && bytes.starts_with(viewRequest)) {
    viewer.role = Role::viewOnly;
    return {};
  }
  if (viewer.role == Role::viewOnly) return {};
  if (viewer.role != Role::writer && !hasWriter()) viewer.role = Role::writer;
  if (viewer.role == Role::writer) return std::string(bytes);
  if (viewer.role == Role::undecided) {
    viewer.role = Role::reader;
    viewer.unsent += readOnlyNotice;
    flush(viewer);
  }
  return {};
}

bool Viewers::hasWriter() const {
  return std::any_of(viewers_.begin(), viewers_.end(), [](const Viewer& viewer) {
    return viewer.connection && viewer.role == Viewer::Role::writer;
  });
}

}  // namespace shim
