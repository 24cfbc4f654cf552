#include "host/guests/ImageLooks.h"

#include <cerrno>
#include <utility>

#include "model/ImageLook.h"
#include "runtime/base/Exception.h"
#include "runtime/loop/FileDescriptor.h"

namespace host {

// One that is under way.
class ImageLooks::Look final : public rt::StateMachineOf<ImageLooks::Look> {
 public:
  Look(ImageLooks& owner, rt::String path)
      : owner_(owner),
        path_(std::move(path)),
        look_([this] { return owner_.tools_.look(path_); }),
        over_(*this, rt::make<rt::FileDescriptor>("look at " + path_)) {
    over_->descriptorIs(look_.descriptor());
    over_->notifyOnReadableIs(true);
    handleInitialized();
  }

  static constexpr std::string_view typeName = "host::ImageLooks::Look";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &Look::initialized>>;

 private:
  void handleInitialized() { initializedIs(true); }
  void handleOver() { owner_.over(path_, look_.facts()); }

  ImageLooks& owner_;
  const rt::String path_;
  const model::ImageLook look_;

  rt::Reactor<Look, rt::FileDescriptor, rt::On<&rt::FileDescriptor::readable, &Look::handleOver>>
      over_;
};

ImageLooks::ImageLooks(Tools tools, rt::Clock::Ptr clock)
    : tools_(std::move(tools)), clock_(*this, std::move(clock)) {
  handleInitialized();
}

ImageLooks::~ImageLooks() = default;

void ImageLooks::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
}

std::optional<model::ImageFacts> ImageLooks::facts(const rt::String& vm, const rt::String& path) {
  const rt::Seconds now = clock_.notifier()->now();
  if (const auto known = answers_.extract(vm)) {
    const Answer& answer = known.mapped();
    if (answer.path == path && now - answer.time <= freshness) return answer.facts;
  }
  const auto [found, isNew] = asked_.try_emplace(path);
  Asked& asked = found->second;
  asked.vms.insert(vm);
  // It hangs still. Once it does no more, the VM is told.
  if (asked.isLate) return model::unreadable(ETIMEDOUT);
  if (!isNew) return std::nullopt;
  asked.lateAt = now + model::imagePatience;
  waiting_.push_back(path);
  begin();
  setClock();
  return std::nullopt;
}

void ImageLooks::forget(const rt::String& vm) {
  answers_.erase(vm);
  for (auto& [path, asked] : asked_) asked.vms.erase(vm);
}

void ImageLooks::begin() {
  while (!waiting_.empty() && looks_ < mostLooks) {
    const rt::String path = waiting_.front();
    waiting_.pop_front();
    ++looks_;
    try {
      asked_.at(path).look = rt::make<Look>(*this, path);
    } catch (const rt::ErrnoException& error) {
      finish(path, model::unreadable(error.error()));
    }
  }
}

void ImageLooks::over(const rt::String& path, const model::ImageFacts& facts) {
  finish(path, facts);
  begin();
  setClock();
}

void ImageLooks::finish(const rt::String& path, const model::ImageFacts& facts) {
  auto asked = asked_.extract(path);  // which keeps the path, and the look that may be asking
  --looks_;
  answer(std::move(asked.mapped().vms), asked.key(), facts);
}

void ImageLooks::answer(std::set<rt::String> vms, const rt::String& path,
                        const model::ImageFacts& facts) {
  const rt::Seconds now = clock_.notifier()->now();
  while (!vms.empty()) {
    const rt::String vm = std::move(vms.extract(vms.begin()).value());
    answers_.insert_or_assign(vm, Answer{path, facts, now});
    tools_.answered(vm);
  }
}

void ImageLooks::handleClock() {
  const rt::Seconds now = clock_.notifier()->now();
  for (auto& [path, asked] : asked_) {
    if (asked.isLate || now < asked.lateAt) continue;
    asked.isLate = true;
    answer(asked.vms, path, model::unreadable(ETIMEDOUT));
  }
  setClock();
}

void ImageLooks::setClock() {
  rt::Seconds next = rt::Seconds::infinity();
  for (const auto& [path, asked] : asked_)
    if (!asked.isLate && asked.lateAt < next) next = asked.lateAt;
  clock_.timeMinIs(next);
}

}  // namespace host
