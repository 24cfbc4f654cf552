// A device's administrative state.
#pragma once

namespace netlink {

enum class AdminState { down, up };

// Sets the device `ifname` up or down; issues no request when it is so already. 0 on success, else
// an errno value, after a trace at level 1.
int ifUp(const char* ifname, AdminState state);

}  // namespace netlink
