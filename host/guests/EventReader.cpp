#include "host/guests/EventReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <utility>

#include "guest/VmFiles.h"
#include "model/UserName.h"
#include "runtime/base/Descriptor.h"
#include "runtime/base/OwnFile.h"
#include "statedb/EntityDocument.h"

namespace host {

namespace {

// A shim's file has half of it.
constexpr size_t mostRead = 64 * 1024;

rt::Descriptor opened(int directory, const std::string& name) {
  constexpr int harmless = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  rt::Descriptor file(openat(directory, name.c_str(), O_RDONLY | harmless));
  if (!rt::isOwnFile(file.number())) file.reset();
  return file;
}

std::string contentOf(const rt::Descriptor& file) {
  std::string text(mostRead, '\0');
  size_t size = 0;
  while (file && size < mostRead) {
    const ssize_t count = ::read(file.number(), text.data() + size, mostRead - size);
    if (count <= 0) break;
    size += static_cast<size_t>(count);
  }
  text.resize(size);
  return text;
}

// The newer is opened first: where it becomes the older one meanwhile, it is read twice.
std::string bothOf(const rt::String& directory) {
  const rt::Descriptor in(open(directory.charPtr(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  const std::string name = guest::eventsFile;
  const rt::Descriptor newer = opened(in.number(), name);
  const rt::Descriptor older = opened(in.number(), name + ".1");
  const std::string text = contentOf(older);
  return text + contentOf(newer);
}

// One that was set aside while it was read is there twice.
bool isNew(const GuestEvent& event, const std::vector<GuestEvent::Ptr>& before) {
  return before.empty() || before.back()->run() != event.run() || before.back()->n() < event.n();
}

std::vector<GuestEvent::Ptr> eventsIn(std::string_view text, const rt::String& vm) {
  std::vector<GuestEvent::Ptr> events;
  for (size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
    auto event = rt::make<GuestEvent>(vm);
    // A shim of a later version may tell more than is known here.
    statedb::fillKnown(*event, text.substr(0, end));
    if (event->by().empty() && event->uid() >= 0)
      event->byIs(model::userName(static_cast<uint32_t>(event->uid())));
    const bool isRead = event->run() != 0 && !event->kind().empty();
    if (isRead && isNew(*event, events)) events.push_back(event);
    text.remove_prefix(end + 1);
  }
  return events;
}

// With its end, which all of the lines have.
std::string lastLineOf(std::string_view lines) {
  const size_t before = lines.substr(0, lines.size() - 1).rfind('\n');
  return std::string(lines.substr(before == std::string_view::npos ? 0 : before + 1));
}

}  // namespace

// Only what stands behind the line that was read last is taken apart: a guest can have much
// written.
std::vector<GuestEvent::Ptr> EventReader::read(const rt::String& vm) {
  const std::string all = bothOf(directory_ + "/" + vm);
  std::string_view text = all;
  std::string& last = last_[vm];
  if (const size_t at = last.empty() ? std::string::npos : text.rfind(last);
      at != std::string_view::npos)
    text.remove_prefix(at + last.size());
  text = text.substr(0, text.rfind('\n') + 1);  // whole lines: the rest is being written
  if (!text.empty()) last = lastLineOf(text);
  return eventsIn(text, vm);
}

}  // namespace host
