// Looks at disk images beside the loop's thread.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>

#include "model/DiskImage.h"
#include "runtime/entity/Reactor.h"
#include "runtime/loop/Clock.h"

namespace host {

// Finds out what is at a path, in processes that may hang as long as they like. A VM waits for a
// while only; for the looks at others' images only where so many hang that there may be no more.
// One look a path at a time.
class ImageLooks final : public rt::StateMachineOf<ImageLooks> {
 public:
  struct Tools {
    // Is run in a process of its own.
    std::function<model::ImageFacts(const rt::String& path)> look;
    // There is an answer for the VM, or none after a while, or one after all.
    std::function<void(const rt::String& vm)> answered;
  };
  ImageLooks(Tools tools, rt::Clock::Ptr clock);
  ~ImageLooks() override;

  // What is at the path, if that was found out for the VM just now, and is given once. Otherwise
  // nothing: a look is under way, and `answered` follows.
  std::optional<model::ImageFacts> facts(const rt::String& vm, const rt::String& path);
  // Nothing is to be told to the VM any more.
  void forget(const rt::String& vm);

  // How old an answer may be that a start goes by.
  static constexpr rt::Seconds freshness{0.5};
  // How many looks there may be at once, those that hang among them. More wait for their turn.
  static constexpr size_t mostLooks = 32;

  static constexpr std::string_view typeName = "host::ImageLooks";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &ImageLooks::initialized>>;

 private:
  class Look;
  struct Asked {
    rt::Ptr<Look> look;  // null: it waits for its turn
    rt::Seconds lateAt;
    bool isLate = false;
    std::set<rt::String> vms;
  };
  struct Answer {
    rt::String path;
    model::ImageFacts facts;
    rt::Seconds time;
  };

  void handleInitialized();
  void handleClock();
  void begin();
  void over(const rt::String& path, const model::ImageFacts& facts);
  void finish(const rt::String& path, const model::ImageFacts& facts);
  void answer(std::set<rt::String> vms, const rt::String& path, const model::ImageFacts& facts);
  void setClock();

  const Tools tools_;
  std::map<rt::String, Asked> asked_;     // by path
  std::deque<rt::String> waiting_;        // paths whose turn is to come
  size_t looks_ = 0;                      // under way
  std::map<rt::String, Answer> answers_;  // by VM

  rt::ClockReactor<ImageLooks, &ImageLooks::handleClock> clock_;
};

}  // namespace host
