// What a process of root's may do beyond what other users may.
#pragma once

#include <initializer_list>

namespace shim {

// From now on this process, and what it becomes, has these capabilities at most, and nothing that
// it runs gains any. Throws Failure when they cannot be given up.
void keepOnlyRights(std::initializer_list<int> capabilities);

// Becomes that user and group, of no other group, without any right. Throws Failure.
void becomeUser(unsigned user);

}  // namespace shim
