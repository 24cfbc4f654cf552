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

void follow(Context& context, LogFile& log) {
  const int news[] = {log.follow()};
  (void)show(context, log);
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
  const rt::String path = guest::fileOf(context.directories().run, name,
                                        arguments.has("shim") ? guest::shimLog : guest::consoleLog);
  try {
    LogFile log(path);
    if (!log.exists()) {
      (void)presentVm(context, name);  // a removed one's may still be there
      throw nothingYet(name, path);
    }
    if (arguments.has("follow"))
      follow(context, log);
    else if (!show(context, log) && !arguments.has("shim"))
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
