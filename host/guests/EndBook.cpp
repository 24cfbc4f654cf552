#include "host/guests/EndBook.h"

#include <algorithm>
#include <utility>

#include "runtime/base/Text.h"
#include "runtime/entity/EntityOf.h"
#include "statedb/EntityDocument.h"

namespace host {

// A line of either file. Not in an anonymous namespace, for which g++ has no attributes.
class EndLine final : public rt::EntityOf<EndLine> {
 public:
  const rt::String& vm() const { return vm_; }
  void vmIs(const rt::String& value) { assign<&EndLine::vm>(vm_, value); }
  const rt::String& boot() const { return boot_; }
  void bootIs(const rt::String& value) { assign<&EndLine::boot>(boot_, value); }
  uint64_t run() const { return run_; }
  void runIs(uint64_t value) { assign<&EndLine::run>(run_, value); }
  uint64_t at() const { return at_; }  // ms since 1970
  void atIs(uint64_t value) { assign<&EndLine::at>(at_, value); }
  const rt::String& cause() const { return cause_; }
  void causeIs(const rt::String& value) { assign<&EndLine::cause>(cause_, value); }
  const rt::String& text() const { return text_; }
  void textIs(const rt::String& value) { assign<&EndLine::text>(text_, value); }
  const rt::String& brief() const { return brief_; }
  void briefIs(const rt::String& value) { assign<&EndLine::brief>(brief_, value); }
  const rt::String& by() const { return by_; }
  void byIs(const rt::String& value) { assign<&EndLine::by>(by_, value); }
  bool failed() const { return failed_; }
  void failedIs(bool value) { assign<&EndLine::failed>(failed_, value); }
  int32_t exit() const { return exit_; }
  void exitIs(int32_t value) { assign<&EndLine::exit>(exit_, value); }
  int32_t signal() const { return signal_; }
  void signalIs(int32_t value) { assign<&EndLine::signal>(signal_, value); }
  bool withAll() const { return withAll_; }
  void withAllIs(bool value) { assign<&EndLine::withAll>(withAll_, value); }

  static constexpr std::string_view typeName = "host::EndLine";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"vm", &EndLine::vm, &EndLine::vmIs>,
                         rt::Attribute<"boot", &EndLine::boot, &EndLine::bootIs>,
                         rt::Attribute<"run", &EndLine::run, &EndLine::runIs>,
                         rt::Attribute<"at", &EndLine::at, &EndLine::atIs>,
                         rt::Attribute<"cause", &EndLine::cause, &EndLine::causeIs>,
                         rt::Attribute<"text", &EndLine::text, &EndLine::textIs>,
                         rt::Attribute<"brief", &EndLine::brief, &EndLine::briefIs>,
                         rt::Attribute<"by", &EndLine::by, &EndLine::byIs>,
                         rt::Attribute<"failed", &EndLine::failed, &EndLine::failedIs>,
                         rt::Attribute<"exit", &EndLine::exit, &EndLine::exitIs>,
                         rt::Attribute<"signal", &EndLine::signal, &EndLine::signalIs>,
                         rt::Attribute<"withAll", &EndLine::withAll, &EndLine::withAllIs>>;

 private:
  rt::String vm_;
  rt::String boot_;
  uint64_t run_ = 0;
  uint64_t at_ = 0;
  rt::String cause_;
  rt::String text_;
  rt::String brief_;
  rt::String by_;
  bool failed_ = false;
  int32_t exit_ = 0;
  int32_t signal_ = 0;
  bool withAll_ = false;
};

namespace {

// Hands each line to `take`; returns what is wrong with the first that is none.
template <class Take>
rt::String linesIn(std::string_view text, Take take) {
  for (size_t number = 1; !text.empty(); ++number) {
    const size_t end = text.find('\n');
    const auto line = rt::make<EndLine>();
    if (end == std::string_view::npos || !statedb::fill(*line, text.substr(0, end)).empty() ||
        line->vm().empty() || line->boot().empty())
      return "line " + rt::toText(number) + " is none of ours";
    take(*line);
    text.remove_prefix(end + 1);
  }
  return {};
}

End endIn(const EndLine& line) {
  return {endCauseFrom(line.cause()),
          line.text(),
          line.brief(),
          line.by(),
          line.failed(),
          line.at(),
          line.exit(),
          line.signal()};
}

}  // namespace

rt::String EndBook::takeEnds(std::string_view text) {
  std::map<rt::String, KeptEnd> ends;
  rt::String wrong = linesIn(text, [&](const EndLine& line) {
    ends[line.vm()] = {line.boot(), line.run(), line.withAll(), endIn(line)};
  });
  if (wrong.empty()) ends_ = std::move(ends);
  return wrong;
}

rt::String EndBook::takeRunning(std::string_view text) {
  std::map<rt::String, KeptRun> running;
  rt::String wrong = linesIn(text, [&](const EndLine& line) {
    running[line.vm()] = {line.boot(), line.run(), line.at()};
  });
  if (wrong.empty()) running_ = std::move(running);
  return wrong;
}

std::string EndBook::endsText() const {
  std::string text;
  for (const auto& [vm, kept] : ends_) {
    const auto line = rt::make<EndLine>();
    line->vmIs(vm);
    line->bootIs(kept.boot);
    line->runIs(kept.run);
    line->atIs(kept.end.at);
    line->causeIs(textOf(kept.end.cause));
    line->textIs(kept.end.text);
    line->briefIs(kept.end.brief);
    line->byIs(kept.end.by);
    line->failedIs(kept.end.isFailure);
    line->exitIs(kept.end.exit);
    line->signalIs(kept.end.signal);
    line->withAllIs(kept.isWithAll);
    text += statedb::documentOf(*line).str() + "\n";
  }
  return text;
}

std::string EndBook::runningText() const {
  std::string text;
  for (const auto& [vm, kept] : running_) {
    const auto line = rt::make<EndLine>();
    line->vmIs(vm);
    line->bootIs(kept.boot);
    line->runIs(kept.run);
    line->atIs(kept.startedAt);
    text += statedb::documentOf(*line).str() + "\n";
  }
  return text;
}

bool EndBook::hasEnded(const rt::String& vm, const KeptRun& run) const {
  const auto known = ends_.find(vm);
  return known != ends_.end() && known->second.boot == run.boot && known->second.run == run.run;
}

std::vector<rt::String> EndBook::bootIs(const rt::String& boot, uint64_t at) {
  boot_ = boot;
  std::vector<rt::String> news;
  if (boot.empty()) return news;
  for (auto& [vm, kept] : ends_) {
    if (!kept.isWithAll || kept.boot == boot) continue;
    kept.end = endWithMachine(kept.end);
    kept.isWithAll = false;
    news.push_back(vm);
  }
  for (const auto& [vm, run] : running_) {
    if (run.boot == boot || hasEnded(vm, run)) continue;
    ends_[vm] = {run.boot, run.run, false, endByReboot(at)};
    news.push_back(vm);
  }
  std::erase_if(running_, [&](const auto& each) { return each.second.boot != boot; });
  while (ends_.size() > mostVms)
    ends_.erase(std::min_element(ends_.begin(), ends_.end(), [](const auto& a, const auto& b) {
      return a.second.end.at < b.second.end.at;
    }));
  return news;
}

void EndBook::runs(const rt::String& vm, uint64_t run, uint64_t startedAt) {
  running_[vm] = {boot_, run, startedAt};
}

void EndBook::ended(const rt::String& vm, uint64_t run, const End& end, bool isWithAll) {
  running_.erase(vm);
  ends_[vm] = {boot_, run, isWithAll, end};
}

void EndBook::vmDel(const rt::String& vm) {
  running_.erase(vm);
  ends_.erase(vm);
}

const End* EndBook::end(const rt::String& vm) const {
  const auto known = ends_.find(vm);
  return known == ends_.end() ? nullptr : &known->second.end;
}

std::map<rt::String, End> EndBook::ends() const {
  std::map<rt::String, End> all;
  for (const auto& [vm, kept] : ends_) all[vm] = kept.end;
  return all;
}

}  // namespace host
