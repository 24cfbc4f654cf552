// Verbs that an operator uses on a guest as he would on a machine's front: its shim does them,
// whether a daemon runs or not.
#pragma once

#include "ctl/line/Context.h"
#include "ctl/view/VmRows.h"

namespace ctl {

Exit pauseVms(Context& context, const Arguments& arguments);
Exit resumeVms(Context& context, const Arguments& arguments);
Exit resetVms(Context& context, const Arguments& arguments);
Exit interruptVms(Context& context, const Arguments& arguments);
Exit pressKeys(Context& context, const Arguments& arguments);
Exit takeScreenshot(Context& context, const Arguments& arguments);

// Asks the VM's shim to end its guest, and refuses when it cannot be asked. `seconds`: what the
// guest gets to shut itself down; empty: as its daemon said. Returns false when there is no guest.
enum class StopWait : uint8_t { forNothing, forTheEnd };
bool askShimToStop(Context& context, const rt::String& vm, const rt::String& seconds, StopWait wait,
                   rt::Seconds patience);

}  // namespace ctl
