#include "ctl/verbs/PowerVerbs.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "ctl/line/Json.h"
#include "guest/ShimProtocol.h"
#include "guest/VmFiles.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

namespace word = guest::word;

// Longer than a shim waits for its QEMU.
constexpr rt::Seconds patience(10);
constexpr std::string_view pngHead = "\x89PNG\r\n\x1a\n";

rt::String requestOf(Context& context, const char* what, const rt::String& members = {}) {
  return rt::String("{\"") + what + "\":{" + (members.empty() ? "" : members + ",") + "\"" +
         word::by + "\":" + quoted(context.world().userName()) + "}}";
}

Refusal refusalOf(const rt::String& vm, const ShimAnswer& answer) {
  switch (answer.kind) {
    case ShimAnswer::Kind::absent:
      return {Exit::conflict, vm + ": no guest runs: 'vmctl start " + vm + "' starts one"};
    case ShimAnswer::Kind::denied:
      return {Exit::failed, vm +
                                ": its guest's keeper may not be asked: run vmctl as root, or as a "
                                "member of the group vmagent"};
    case ShimAnswer::Kind::silent:
      return {Exit::timedOut, vm + ": its guest's keeper does not answer"};
    case ShimAnswer::Kind::ended:
      return {Exit::conflict, vm + ": its guest has ended meanwhile"};
    default:
      break;
  }
  const auto line = JsonValue::parse(answer.line);
  const rt::String why = line ? line->text(word::error).value_or("") : rt::String();
  const bool isOld = why.str().find("is not understood") != std::string::npos;
  if (isOld)
    return {Exit::failed,
            vm + ": its guest's keeper is of an earlier version, which cannot do that: "
                 "it can from the guest's next start on"};
  // Not now, though it may be soon; and of a QEMU or a shim that is silent the same.
  const bool isWrongTime = why == "QEMU is not ready" || why == "the guest is being ended";
  if (isWrongTime) return {Exit::conflict, vm + ": " + why};
  const bool isSilent = why == "QEMU does not answer";
  return {isSilent ? Exit::timedOut : Exit::failed, vm + ": " + why};
}

ShimAnswer asked(Context& context, const rt::String& vm, const rt::String& request) {
  ShimAnswer answer = context.world().askShim(
      {guest::fileOf(context.directories().run, vm, guest::shimSocket), request, patience});
  if (answer.kind != ShimAnswer::Kind::done) throw refusalOf(vm, answer);
  return answer;
}

// Those that have a guest.
std::vector<rt::String> namesOf(Context& context, const Arguments& arguments) {
  if (!arguments.has("all")) {
    if (arguments.words().empty()) throw Refusal(Exit::usage, "which VM? Name one, or say --all");
    return arguments.words();
  }
  if (!arguments.words().empty())
    throw Refusal(Exit::usage, "--all takes no names: say one or the other");
  std::vector<rt::String> names;
  for (const VmRow& row : allVms(context))
    if (row.process->process() != "none") names.push_back(row.name);
  if (names.empty()) context.tell("no guest runs");
  return names;
}

Exit doEach(Context& context, const Arguments& arguments, const char* what, const char* done) {
  return forEach(context, namesOf(context, arguments), [&](const rt::String& name) {
    (void)presentVm(context, name);
    asked(context, name, requestOf(context, what));
    context.tell(name + ": " + done);
  });
}

struct KeyName {
  std::string_view common;
  std::string_view qemus;
};
constexpr std::array keyNames{
    KeyName{"control", "ctrl"}, KeyName{"del", "delete"},    KeyName{"enter", "ret"},
    KeyName{"return", "ret"},   KeyName{"escape", "esc"},    KeyName{"ins", "insert"},
    KeyName{"space", "spc"},    KeyName{"super", "meta_l"},  KeyName{"win", "meta_l"},
    KeyName{"pageup", "pgup"},  KeyName{"pagedown", "pgdn"}, KeyName{"altgr", "alt_r"}};

rt::String qemusName(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  for (const KeyName& key : keyNames)
    if (key.common == text) return key.qemus;
  return text;
}

// "keys":["ctrl","alt","delete"] of "ctrl-alt-delete", also with '+' between them.
rt::String keysOf(const rt::String& combination) {
  std::string text = combination.str();
  if (text.size() > 1) std::replace(text.begin(), text.end(), '+', '-');
  rt::String list;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find('-', at), text.size());
    const std::string key = text.substr(at, end - at);
    if (key.empty())
      throw Refusal(Exit::invalid, "'" + combination +
                                       "' is refused: must be names of keys with '-' between them, "
                                       "such as ctrl-alt-delete");
    list += (list.empty() ? "" : ",") + quoted(qemusName(key));
    at = end + 1;
  }
  return rt::String("\"") + word::keys + "\":[" + list + "]";
}

// QEMU alone knows all names of keys.
void press(Context& context, const rt::String& vm, const rt::String& request,
           const rt::String& typed) {
  const ShimAnswer answer = context.world().askShim(
      {guest::fileOf(context.directories().run, vm, guest::shimSocket), request, patience});
  if (answer.kind == ShimAnswer::Kind::done) return;
  const auto line = JsonValue::parse(answer.line);
  const std::string why = line ? line->text(word::error).value_or("").str() : std::string();
  const bool isName = why.find("does not accept value") != std::string::npos ||
                      why.find("a name is refused") != std::string::npos;
  if (!isName) throw refusalOf(vm, answer);
  throw Refusal(Exit::invalid, "'" + typed +
                                   "' is refused: must be QEMU's names of keys with '-' between "
                                   "them, such as ctrl-alt-delete, a, f1 or kp_enter");
}

}  // namespace

Exit pauseVms(Context& context, const Arguments& arguments) {
  return doEach(context, arguments, word::pause, "paused");
}

Exit resumeVms(Context& context, const Arguments& arguments) {
  return doEach(context, arguments, word::resume, "goes on");
}

Exit resetVms(Context& context, const Arguments& arguments) {
  return doEach(context, arguments, word::reset, "reset");
}

Exit interruptVms(Context& context, const Arguments& arguments) {
  return doEach(context, arguments, word::interrupt, "has got its interrupt");
}

Exit pressKeys(Context& context, const Arguments& arguments) {
  const rt::String& name = arguments.words().front();
  std::vector<rt::String> requests;
  for (size_t i = 1; i < arguments.words().size(); ++i)
    requests.push_back(requestOf(context, word::key, keysOf(arguments.words()[i])));
  (void)presentVm(context, name);
  for (size_t i = 0; i < requests.size(); ++i)
    press(context, name, requests[i], arguments.words()[i + 1]);
  context.tell(name + ": pressed");
  return Exit::done;
}

Exit takeScreenshot(Context& context, const Arguments& arguments) {
  const rt::String& name = arguments.words()[0];
  const rt::String& path = arguments.words()[1];
  if (path == "-" && context.world().outIsTerminal)
    throw Refusal(Exit::usage, "a picture is nothing for a terminal: name a file");
  (void)presentVm(context, name);
  const rt::String picture = asked(context, name, requestOf(context, word::screenshot)).picture;
  // Its QEMU may be the guest's by now.
  if (!picture.str().starts_with(pngHead) || picture.size() >= mostPicture)
    throw Refusal(Exit::failed, name + ": what its QEMU made is no picture");
  if (path == "-")
    context.world().out << picture.str() << std::flush;
  else
    context.world().writeFile(path, picture);
  context.tell(name + ": its screen is in " + (path == "-" ? rt::String("the output") : path));
  return Exit::done;
}

bool askShimToStop(Context& context, const rt::String& vm, const rt::String& seconds, StopWait wait,
                   rt::Seconds patienceForEnd) {
  const bool untilEnd = wait == StopWait::forTheEnd;
  const rt::String time =
      seconds.empty() ? rt::String() : rt::String("\"") + word::timeout + "\":" + seconds;
  const ShimAnswer answer = context.world().askShim(
      {guest::fileOf(context.directories().run, vm, guest::shimSocket),
       requestOf(context, word::stop, time), untilEnd ? patienceForEnd : patience, untilEnd});
  if (answer.kind == ShimAnswer::Kind::absent) return false;
  if (untilEnd && answer.kind == ShimAnswer::Kind::silent)
    throw Refusal(Exit::timedOut,
                  vm + ": timed out after " + rt::toText(patienceForEnd) + " s: its guest goes on");
  const bool isDone =
      answer.kind == ShimAnswer::Kind::done || answer.kind == ShimAnswer::Kind::ended;
  if (!isDone) throw refusalOf(vm, answer);
  return true;
}

}  // namespace ctl
