// What the daemon's starter left open.
#pragma once

namespace host {

// Keeps all descriptors above standard error from the programs that this process starts. To be
// called before it opens any that are meant for them.
void keepInheritedDescriptors();

}  // namespace host
