#include "ctl/verbs/LogVerbs.h"

#include <cerrno>

#include "ctl/machine/LogFile.h"
#include "ctl/view/VmRows.h"
#include "guest/VmFiles.h"

namespace ctl {

namespace {

void require(const rt::String& name) {
  // It becomes a part of a path.
  if (const auto right = model::nameRight(name))
    throw Refusal(Exit::noSuch, name + ": there is no such VM: a name " + *right);
}

// Whether there was anything.
bool show(Context& context, LogFile& log) {
  std::ostream& out = context.world().out;
  bool isEmpty = true;
  TerminalText text;
  const bool isTerminal = context.world().outIsTerminal;
  log.read([&](std::string_view bytes) {
    isEmpty = false;
    if (isTerminal)
      out << text.of(bytes);
    else
      out << bytes;
  });
  out.flush();
  return !isEmpty;
}

// Where the last so many lines of it begin; one that is not ended counts.
size_t beginOfLast(std::string_view text, size_t lines) {
  size_t at = text.ends_with('\n') ? text.size() - 1 : text.size();
  while (lines > 0 && at > 0) {
    const size_t end = text.rfind('\n', at - 1);
    if (end == std::string_view::npos) return 0;
    at = end;
    --lines;
  }
  return lines == 0 ? at + 1 : 0;
}

// What there is at first: all of it, or the last so many lines.
bool showFirst(Context& context, LogFile& log, std::optional<size_t> lines) {
  if (!lines) return show(context, log);
  std::string all;
  log.read([&](std::string_view bytes) { all += bytes; });
  const std::string_view last = std::string_view(all).substr(beginOfLast(all, *lines));
  TerminalText text;
  if (context.world().outIsTerminal)
    context.world().out << text.of(last);
  else
    context.world().out << last;
  context.world().out.flush();
  return !all.empty();
}

void follow(Context& context, LogFile& log, std::optional<size_t> lines) {
  const int news[] = {log.follow()};
  (void)showFirst(context, log, lines);
  while (context.world().out) {
    context.world().waitWhileRead(news, rt::Seconds::infinity());
    if (!context.world().out) return;
    const bool isThere = log.takeNews();
    (void)show(context, log);
    if (!isThere) return;
  }
}

Refusal nothingYet(const rt::String& name, const rt::String& path) {
  return {Exit::failed, name + ": there is no " + path +
                            ": its guest has not been started since "
                            "the machine was"};
}

}  // namespace

Exit showLogs(Context& context, const Arguments& arguments) {
  const rt::String& name = arguments.words().front();
  require(name);
  const std::optional<size_t> lines = arguments.tail();
  const rt::String path = guest::fileOf(context.directories().run, name,
                                        arguments.has("shim") ? guest::shimLog : guest::consoleLog);
  try {
    LogFile log(path);
    if (!log.exists()) {
      (void)presentVm(context, name);  // a removed one's may still be there
      throw nothingYet(name, path);
    }
    if (arguments.has("follow"))
      follow(context, log, lines);
    else if (!showFirst(context, log, lines) && !arguments.has("shim"))
      context.tell(name + ": its guest has written nothing; 'vmctl logs " + name +
                   " --shim' shows what QEMU said");
  } catch (const rt::ErrnoException& exception) {
    const bool isDenied = exception.error() == EACCES || exception.error() == EPERM;
    throw Refusal(Exit::failed, name + ": " + exception.what() +
                                    (isDenied ? ": run vmctl as root, or as a member of the group "
                                                "vmagent"
                                              : ""));
  }
  return Exit::done;
}

}  // namespace ctl
