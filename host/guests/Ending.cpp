#include "host/guests/Ending.h"

#include "runtime/base/Text.h"

namespace host {

namespace {

constexpr int32_t cannotBeRun = 127;  // of a child that execs in vain

}  // namespace

rt::String textOf(const Ending& ending, const rt::String& vm) {
  const rt::String restart = "'vmctl restart " + vm + "' starts it anew";
  if (ending.signal != 0)
    return "ended by signal " + rt::toText(ending.signal) + ", by whom is not known; " + restart;
  if (ending.status == cannotBeRun)
    return "QEMU or its shim could not be executed (exit status " + rt::toText(ending.status) +
           "): 'vmctl doctor' tells what is missing, and then " + restart;
  if (ending.status != 0)
    return "ended with exit status " + rt::toText(ending.status) + ", and said nothing; " + restart;
  return {};
}

}  // namespace host
