#include "ctl/verbs/ConsoleVerbs.h"

#include <cerrno>

#include "ctl/view/VmRows.h"
#include "guest/VmFiles.h"

namespace ctl {

namespace {

Refusal noGuest(const VmRow& row) {
  return {Exit::conflict, row.name + ": no guest runs, so there is no console; 'vmctl logs " +
                              row.name + "' shows what one wrote"};
}

// Refuses when there is none, or may be none any more: what has its number then may be anybody's
// terminal.
rt::String ptyOf(Context& context, const VmRow& row) {
  if (row.process->process() != "running") throw noGuest(row);
  constexpr std::string_view prefix = "pty:";
  std::string_view path = row.status ? std::string_view(row.status->consolePtyPath()) : "";
  if (path.substr(0, prefix.size()) == prefix) path.remove_prefix(prefix.size());
  if (path.empty())
    throw Refusal(Exit::conflict,
                  row.name + ": the guest's console is not known yet: try again in a moment");
  if (!context.daemonRuns())
    throw Refusal(Exit::failed, row.name + ": vmagentd is not running, so whether " +
                                    rt::String(path) +
                                    " still is its console is not known: start vmagentd");
  return path;
}

// What cannot be opened, and who could.
ConsoleEnd opened(const rt::String& name, const std::function<ConsoleEnd()>& open) {
  try {
    return open();
  } catch (const rt::ErrnoException& exception) {
    const bool isDenied = exception.error() == EACCES || exception.error() == EPERM;
    throw Refusal(Exit::failed, name + ": " + exception.what() +
                                    (isDenied ? ": run vmctl as root, or as a member of the group "
                                                "vmagent"
                                              : ""));
  }
}

rt::String socketOf(Context& context, const VmRow& row) {
  return guest::fileOf(context.directories().run, row.name, guest::consoleSocket);
}

// The agent, who would know its pty, has nothing to do with it.
ConsoleEnd join(Context& context, const VmRow& row) {
  if (row.process->process() == "none") throw noGuest(row);
  context.tell(row.name + ": this is its console; Ctrl-] leaves it");
  const rt::String socket = socketOf(context, row);
  return opened(row.name, [&] { return context.world().joinConsole(socket); });
}

ConsoleEnd use(Context& context, const VmRow& row) {
  const rt::String pty = ptyOf(context, row);
  context.tell(row.name + ": this is its console; Ctrl-] leaves it");
  const ConsoleEnd end = opened(row.name, [&] { return context.world().holdConsole(pty); });
  if (end == ConsoleEnd::taken)
    throw Refusal(Exit::conflict, row.name +
                                      ": another 'vmctl console' has its console; 'vmctl "
                                      "console --view " +
                                      row.name + "' shows the same to any number");
  return end;
}

ConsoleEnd view(Context& context, const VmRow& row) {
  if (row.process->process() == "none") throw noGuest(row);
  const rt::String socket = socketOf(context, row);
  context.tell(row.name + ": this is its console, to look at only; Ctrl-] leaves it");
  return opened(row.name, [&] { return context.world().viewConsole(socket); });
}

}  // namespace

Exit openConsole(Context& context, const Arguments& arguments) {
  const rt::String& name = arguments.words().front();
  if (!context.world().inIsTerminal)
    throw Refusal(Exit::usage, "'console' needs a terminal as standard input; 'vmctl logs -f " +
                                   name + "' shows what the guest writes without one");
  const VmRow row = presentVm(context, name);
  const bool isAgents = row.status != nullptr || !row.isUnknown();
  const ConsoleEnd end = arguments.has("view") ? view(context, row)
                         : isAgents            ? use(context, row)
                                               : join(context, row);
  // Whatever stood on the last line.
  context.world().err << '\n';
  context.tell(name + (end == ConsoleEnd::guestEnd ? ": its console has ended" : ": left"));
  return Exit::done;
}

}  // namespace ctl
