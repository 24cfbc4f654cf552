#include "host/base/Report.h"

#include "runtime/base/Trace.h"

namespace host {

void report(const rt::String& text) { VM_TRACE(1) << "vmagentd: " << text; }

}  // namespace host
