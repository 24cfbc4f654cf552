#include "ctl/verbs/BundleVerbs.h"

#include <algorithm>
#include <ctime>
#include <set>
#include <sstream>

#include "ctl/line/Json.h"
#include "ctl/verbs/Verbs.h"
#include "ctl/view/VmRows.h"
#include "guest/VmFiles.h"
#include "model/Tables.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

constexpr const char* journalLines = "5000";
constexpr const char* defaultsFile = "/etc/default/vmagentd";
// Where guests' groups are, whether the database can tell or not.
constexpr const char* groupPlaces[] = {"/sys/fs/cgroup/vmagent.slice/vmagent-guests.service",
                                       "/sys/fs/cgroup/vmagent"};
constexpr const char* groupFiles[] = {
    "cgroup.events",  "cgroup.controllers", "cgroup.procs", "memory.max",
    "memory.current", "memory.events",      "memory.peak",  "cpu.max",
    "cpu.weight",     "cpu.stat",           "io.weight",    "io.stat",
    "pids.max",       "pids.current"};
constexpr const char* machineFiles[] = {"/proc/sys/kernel/osrelease",
                                        "/etc/os-release",
                                        "/proc/uptime",
                                        "/proc/loadavg",
                                        "/proc/meminfo",
                                        "/proc/pressure/cpu",
                                        "/proc/pressure/memory",
                                        "/proc/pressure/io",
                                        defaultsFile};

// What the verbs write is taken, and no terminal's, as long as this lives.
class Captured {
 public:
  explicit Captured(World& world)
      : world_(world),
        outBefore_(world.out.rdbuf(out_.rdbuf())),
        errBefore_(world.err.rdbuf(err_.rdbuf())),
        wasTerminal_(std::exchange(world.outIsTerminal, false)),
        wasErrTerminal_(std::exchange(world.errIsTerminal, false)) {}
  Captured(const Captured&) = delete;
  ~Captured() {
    world_.out.rdbuf(outBefore_);
    world_.err.rdbuf(errBefore_);
    world_.outIsTerminal = wasTerminal_;
    world_.errIsTerminal = wasErrTerminal_;
  }
  rt::String out() const { return out_.str(); }
  rt::String err() const { return err_.str(); }

 private:
  World& world_;
  std::ostringstream out_;
  std::ostringstream err_;
  std::streambuf* const outBefore_;
  std::streambuf* const errBefore_;
  const bool wasTerminal_;
  const bool wasErrTerminal_;
};

class Bundle {
 public:
  explicit Bundle(Context& context) : context_(context) {}

  const std::vector<PackedFile>& files() const { return files_; }
  size_t failures() const { return failures_; }

  // What a verb writes; what goes wrong is in a file beside it, NAME.err.
  void verb(const rt::String& name, const std::vector<rt::String>& words) {
    part(name, [&] { run(words); });
  }
  void verbForEach(const rt::String& name, const char* verb, const std::set<rt::String>& vms) {
    part(name, [&] {
      for (const rt::String& vm : vms) {
        try {
          run({verb, "--", vm});
        } catch (const Refusal& refusal) {  // it has gone meanwhile
          for (const rt::String& sentence : refusal.sentences())
            context_.world().err << visible(sentence) << '\n';
        }
      }
    });
  }
  void tables(const rt::String& name, bool ofStatus) {
    part(name, [&] {
      std::vector<rt::String> names;
      for (const model::Table& table : model::tables)
        if (table.isStatus == ofStatus) names.emplace_back(table.name);
      for (const statedb::Record& record : context_.db().snapshot(names).records)
        context_.world().out << R"({"table":)" << quoted(record.table) << R"(,"key":)"
                             << quoted(record.key) << R"(,"revision":)" << record.revision
                             << R"(,"doc":)" << record.doc << "}\n";
    });
  }
  void program(const rt::String& name, const std::vector<rt::String>& words) {
    part(name, [&] {
      const ProgramEnd end = context_.world().machine.run(words);
      context_.world().out << end.output;
      if (end.status != 0)
        context_.world().err << words.front()
                             << (end.status < 0 ? rt::String(" could not be run")
                                                : " ended with " + rt::toText(end.status))
                             << '\n';
    });
  }
  // Those that there are of these files, each under its path.
  void texts(const rt::String& name, const std::vector<rt::String>& paths) {
    part(name, [&] {
      for (const rt::String& path : paths)
        if (const auto text = context_.world().machine.text(path))
          context_.world().out << "== " << path << '\n' << *text << '\n';
    });
  }
  // A file as it is, if it is there.
  void file(const rt::String& name, const rt::String& path) {
    if (const auto text = context_.world().machine.text(path)) files_.push_back({name, *text});
  }
  void contents() {
    rt::String text = "Written by vmctl bundle. Of a part that failed, NAME.err says why.\n\n";
    for (const PackedFile& file : files_)
      text += rt::toText(file.bytes.size()) + "\t" + file.name + "\n";
    files_.insert(files_.begin(), {"contents.txt", text});
  }

 private:
  void run(const std::vector<rt::String>& words) {
    Arguments arguments(words);
    const Verb& verb = takeVerb(arguments);
    Context part(context_.world(), context_.directories(), formatOf(verb, arguments));
    (void)verb.run(part, arguments);
  }
  void part(const rt::String& name, const std::function<void()>& act) {
    const Captured captured(context_.world());
    rt::String wrong;
    try {
      act();
    } catch (const Refusal& refusal) {
      for (const rt::String& sentence : refusal.sentences()) wrong += sentence + "\n";
    } catch (const rt::Exception& exception) {
      wrong = rt::String(exception.what()) + "\n";
    }
    if (!wrong.empty()) ++failures_;
    files_.push_back({name, captured.out()});
    if (const rt::String said = captured.err() + wrong; !said.empty())
      files_.push_back({name + ".err", said});
  }

  Context& context_;
  std::vector<PackedFile> files_;
  size_t failures_ = 0;
};

// Of the database, as far as it can be read, and of what has files.
std::set<rt::String> vmsOf(Context& context) {
  const rt::String place = guest::vmsDirectoryOf(context.directories().run);
  std::set<rt::String> names;
  for (const rt::String& name : context.world().machine.names(place))
    if (!name.str().starts_with('.')) names.insert(name);
  try {
    for (const VmRow& row : allVms(context)) names.insert(row.name);
  } catch (const rt::Exception&) {
    // A part says so.
  }
  return names;
}

std::vector<rt::String> groupPaths(const Machine& machine) {
  std::vector<rt::String> groups;
  for (const char* const place : groupPlaces) {
    groups.emplace_back(place);
    const rt::String guests = rt::String(place) + "/guests";
    groups.push_back(guests);
    for (const rt::String& name : machine.names(guests))
      if (name.str().starts_with("vm-")) groups.push_back(guests + "/" + name);
  }
  std::vector<rt::String> paths;
  for (const rt::String& group : groups)
    for (const char* const file : groupFiles) paths.push_back(group + "/" + file);
  return paths;
}

void addLogs(Bundle& bundle, const rt::String& runDir, const std::set<rt::String>& vms) {
  for (const rt::String& vm : vms)
    for (const char* const file :
         {guest::shimLog, guest::eventsFile, guest::lastErrorFile, guest::problemFile})
      for (const char* const age : {".1", ""})
        bundle.file("vm." + vm + "." + file + age, guest::fileOf(runDir, vm, file) + age);
}

void addAll(Bundle& bundle, Context& context) {
  const std::set<rt::String> vms = vmsOf(context);
  bundle.verb("version.json", {"version", "-o", "json"});
  bundle.verb("doctor.txt", {"doctor"});
  bundle.verb("list.json", {"list", "-o", "json"});
  bundle.verbForEach("why.txt", "why", vms);
  bundle.verb("events.json", {"events", "-o", "json"});
  bundle.verb("top.json", {"top", "-n", "1", "-o", "json"});
  bundle.verb("metrics.txt", {"metrics"});
  bundle.verb("interfaces.json", {"interface", "list", "-o", "json"});
  bundle.verb("fdb.json", {"fdb", "list", "-o", "json"});
  bundle.tables("config.rows", false);
  bundle.tables("status.rows", true);
  addLogs(bundle, context.directories().run, vms);
  bundle.program("journal.txt",
                 {"journalctl", "--no-pager", "--output=short-iso-precise", "--lines", journalLines,
                  "--unit=vmagentd", "--unit=vmagent-guests"});
  bundle.program("units.txt", {"systemctl", "--no-pager", "--full", "show", "vmagentd.service",
                               "vmagent-guests.service"});
  bundle.program("links.txt", {"ip", "-details", "-statistics", "link"});
  const Machine& machine = context.world().machine;
  bundle.texts("groups.txt", groupPaths(machine));
  bundle.texts("machine.txt", {std::begin(machineFiles), std::end(machineFiles)});
  bundle.contents();
}

// "vmagent-20231114-221320".
rt::String nameAt(uint64_t time) {
  const auto seconds = static_cast<time_t>(time);
  tm parts{};
  char text[64] = "vmagent";
  if (gmtime_r(&seconds, &parts)) std::strftime(text, sizeof text, "vmagent-%Y%m%d-%H%M%S", &parts);
  return text;
}

}  // namespace

Exit bundle(Context& context, const Arguments& arguments) {
  constexpr unsigned ownerOnly = 0600;
  const rt::String name = nameAt(context.world().timeOfDay());
  const rt::String file = arguments.words().empty() ? name + ".tar.gz" : arguments.words().front();
  Bundle bundle(context);
  addAll(bundle, context);
  context.world().pack(bundle.files(), name,
                       {.path = file,
                        .mode = ownerOnly,
                        .standing = arguments.has("force") ? FilePlace::Standing::isReplaced
                                                           : FilePlace::Standing::stays});
  for (const PackedFile& each : bundle.files())
    context.world().out << rt::format("%9zu  ", each.bytes.size()) << visible(each.name) << '\n';
  if (bundle.failures() > 0)
    context.complain(rt::toText(bundle.failures()) +
                     " parts could not be made; files that end in .err say why");
  context.tell(file +
               ": written. It has names, addresses, paths and logs of this machine, and "
               "nothing of disks, screens and consoles");
  return Exit::done;
}

}  // namespace ctl
