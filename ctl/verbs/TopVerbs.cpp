#include "ctl/verbs/TopVerbs.h"

#include <algorithm>

#include "ctl/verbs/GuestSampler.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

struct Wish {
  std::optional<uint64_t> count;  // nothing: until it is interrupted
  rt::Seconds interval{2};
};

Wish wishOf(const Arguments& arguments) {
  constexpr rt::Seconds least(0.1);
  constexpr rt::Seconds most(86400);
  Wish wish;
  if (const auto text = arguments.value("count")) {
    wish.count = rt::fromText<uint64_t>(*text);
    if (!wish.count || *wish.count == 0)
      throw Refusal(Exit::usage, "-n: '" + *text + "' is refused: must be 1 or more");
  }
  if (const auto text = arguments.value("interval")) {
    const auto interval = rt::fromText<rt::Seconds>(*text);
    if (!interval || *interval < least || *interval > most)
      throw Refusal(Exit::usage, "--interval: '" + *text +
                                     "' is refused: must be from 0.1 to 86400 seconds, such as 2");
    wish.interval = *interval;
  }
  return wish;
}

// Takes one sample after the other, at the same distance from each other as far as can be.
class Series {
 public:
  Series(Context& context, const std::vector<rt::String>& names, rt::Seconds interval)
      : context_(context), sampler_(context, names), interval_(interval) {}

  void take() {
    before_ = std::move(now_);
    now_ = sampler_.take();
    rates_ = ratesOf(before_ ? &*before_ : nullptr, *now_);
    due_ = due_ + interval_;
    if (!before_ || due_ <= now_->clock) due_ = now_->clock + interval_;
  }
  // Until the next one is to be taken.
  rt::Seconds pause() const { return std::max(due_ - context_.world().now(), rt::Seconds(0)); }
  TopPicture picture() const { return {*now_, rates_, sampler_.share(), !context_.daemonRuns()}; }
  Rate interval() const {
    if (!before_) return std::nullopt;
    return (now_->clock - before_->clock).value();
  }

 private:
  Context& context_;
  GuestSampler sampler_;
  const rt::Seconds interval_;
  rt::Seconds due_;
  std::optional<Sample> before_;
  std::optional<Sample> now_;
  std::vector<GuestRates> rates_;
};

// Until that many were shown; false: nobody reads them any more.
bool showLines(Context& context, Series& series, const Wish& wish) {
  std::ostream& out = context.world().out;
  const bool isJson = context.format() == Format::json;
  series.take();
  for (uint64_t shown = 0; !wish.count || shown < *wish.count; ++shown) {
    // In a table there is nothing to see before there are rates.
    if (shown > 0 || !isJson) {
      context.world().waitWhileRead({}, series.pause());
      series.take();
    }
    const TopPicture picture = series.picture();
    if (isJson)
      out << topJson(picture, series.interval()) << '\n';
    else
      out << (shown > 0 ? "\n" : "") << topHead(picture) << '\n'
          << topTable(picture, context.format(), context.style()).text(context.style());
    if (!out.flush()) return false;
  }
  return true;
}

void showScreen(Context& context, Series& series) {
  const std::unique_ptr<Screen> screen = context.world().takeScreen();
  while (true) {
    series.take();
    const Screen::Size size = screen->size();
    TableStyle style = context.style();
    style.columns = size.columns;
    if (!screen->show(topScreen(series.picture(), context.format(), style, size.lines))) return;
    for (rt::Seconds pause = series.pause(); pause > rt::Seconds(0); pause = series.pause()) {
      const Screen::Word word = screen->listen(pause);
      if (word.kind == Screen::Word::Kind::end || word.key == 'q' || word.key == 'Q') return;
    }
  }
}

}  // namespace

Exit showTop(Context& context, const Arguments& arguments) {
  const Wish wish = wishOf(arguments);
  const World& world = context.world();
  Series series(context, arguments.words(), wish.interval);
  const bool isScreen =
      !wish.count && context.format() != Format::json && world.outIsTerminal && world.inIsTerminal;
  if (!isScreen) {
    if (!context.daemonRuns()) complainOfStaleness(context);
    return showLines(context, series, wish) ? Exit::done : Exit::failed;
  }
  showScreen(context, series);
  return Exit::done;
}

}  // namespace ctl
