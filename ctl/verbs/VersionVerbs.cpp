#include "ctl/verbs/VersionVerbs.h"

#include "ctl/line/Json.h"
#include "runtime/base/Text.h"
#include "statedb/sqlite/SqliteDb.h"

namespace ctl {

namespace {

constexpr const char* version = VMAGENT_VERSION;

}  // namespace

rt::String ownVersion() { return version; }

Exit showVersion(Context& context, const Arguments&) {
  if (context.format() == Format::json)
    context.printJson(jsonHead(false) + R"("vmctl":")" + version + R"(","runDir":)" +
                      quoted(context.directories().run) + R"(,"databaseFormat":)" +
                      rt::toText(statedb::sqlite::newestFormat()) + "}");
  else
    context.world().out << "vmctl " << version << '\n';
  return Exit::done;
}

}  // namespace ctl
