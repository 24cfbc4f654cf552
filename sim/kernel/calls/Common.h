// What the calls have in common.
#pragma once

#include <vector>

#include "sim/kernel/Machine.h"

namespace sim::sys {

inline Process& self() { return *machine().scheduler.current(); }
inline FilePtr fileOf(int number) { return self().descriptors.file(number); }

// The current process sleeps until something happens to one of these, or until then.
Sleep::End sleepOn(const std::vector<File*>& files, Time deadline, const char* call);

// -EBADF, -EMFILE; else a number for it.
Result addDescriptor(FilePtr file, int openFlags);

// Does it again and again until it does not say -EAGAIN, sleeping in between, if the file is to be
// waited for.
template <class Act>
Result untilDone(const FilePtr& file, bool waits, const char* call, Act act) {
  while (true) {
    const Result result = act();
    if (result != -EAGAIN || !waits) return result;
    if (sleepOn({file.get()}, never, call) == Sleep::End::interrupted) return -EINTR;
  }
}

// What was to be written has nobody who reads it.
Result brokenPipe(Result result, bool silently);

}  // namespace sim::sys
