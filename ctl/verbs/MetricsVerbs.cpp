#include "ctl/verbs/MetricsVerbs.h"

#include "ctl/line/Http.h"
#include "ctl/verbs/GuestSampler.h"
#include "ctl/verbs/VersionVerbs.h"
#include "ctl/view/MetricsText.h"

namespace ctl {

namespace {

rt::String metricsNow(Context& context) {
  MetricsFacts facts{.version = ownVersion(),
                     .daemonRuns = context.daemonRuns(),
                     .daemon = daemonStatus(context),
                     .vms = allVms(context),
                     .guests = {}};
  for (GuestFacts& guest : GuestSampler(context, {}).take().guests)
    facts.guests[guest.name] = std::move(guest);
  return metricsText(facts);
}

// Who asks is told of trouble, too.
Exit answerQuestion(Context& context) {
  constexpr rt::Seconds patience(5);
  std::ostream& out = context.world().out;
  const rt::String head = context.world().readHead(patience);
  try {
    out << httpAnswer(head, [&] { return metricsNow(context); });
  } catch (const rt::Exception& exception) {
    out << httpFailure(exception.what());
    throw;
  }
  return Exit::done;
}

}  // namespace

Exit writeMetrics(Context& context, const Arguments& arguments) {
  const auto file = arguments.value("textfile");
  if (file && arguments.has("http"))
    throw Refusal(Exit::usage, "'metrics' takes --textfile or --http, and not both");
  if (arguments.has("http")) return answerQuestion(context);
  const rt::String text = metricsNow(context);
  if (!file) {
    context.world().out << text;
    return Exit::done;
  }
  constexpr unsigned everyone = 0644;
  context.world().putFile({.path = *file,
                           .mode = everyone,
                           .standing = FilePlace::Standing::isReplaced,
                           .life = FilePlace::Life::passing},
                          text);
  return Exit::done;
}

}  // namespace ctl
