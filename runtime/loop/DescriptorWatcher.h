// Which descriptors are ready: epoll, and the order in which readiness is told.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "runtime/base/Descriptor.h"
#include "runtime/base/FirstException.h"
#include "runtime/base/Seconds.h"
#include "runtime/entity/Ptr.h"

struct epoll_event;

namespace rt {

class FileDescriptor;

// Part of the activity manager. FileDescriptor registers itself.
class DescriptorWatcher {
 public:
  // ErrnoException when the kernel gives no epoll descriptor.
  DescriptorWatcher();
  DescriptorWatcher(const DescriptorWatcher&) = delete;
  ~DescriptorWatcher();

  // `events` is not 0. ErrnoException when the descriptor cannot be watched.
  void watch(FileDescriptor& descriptor, uint32_t events);
  void unwatch(FileDescriptor& descriptor);

  // Waits until a descriptor is ready or `atMost` has passed, and returns whether one is. Those
  // found are kept for dispatch(). Looks at nothing that handlers change, so it needs no lock.
  bool wait(Seconds atMost);
  // Whether more may be ready than the last wait() could find.
  bool moreMayBeReady() const;
  // Tells those found. What a handler unwatches meanwhile is passed over; an exception of a handler
  // goes to `failures`, and the round goes on.
  //
  // A pipe at its end comes first. When more streams have hung up than pipes, pipes get another
  // 5 ms to do so: an ending QEMU closes its monitor shortly before its end of the pipe, and who is
  // told of the monitor first would try to reconnect to a dying process. A stream is waited for
  // once.
  void dispatch(FirstException& failures);

 private:
  struct Watched {
    FileDescriptor* descriptor;
    int number;
    bool pipe;
    bool awaited = false;  // pipes were given their time for this stream
  };
  struct Ready {
    uint64_t id;
    uint32_t events;
  };

  int waitFor(epoll_event* events, Seconds atMost);
  void pipeEndsFirst();
  void awaitPipeEnds(size_t missing);
  bool hasEnded(uint64_t pipe) const;
  bool isPipeEnd(const Ready& ready) const;
  bool isStreamEnd(const Ready& ready) const;  // one that pipes were not given time for yet
  const Watched* find(uint64_t id) const;

  const Descriptor epoll_;
  bool waitsExactly_ = true;  // until the kernel, older than 5.11, knows milliseconds only
  uint64_t nextId_ = 1;       // events carry ids, because descriptor numbers are used again
  std::unordered_map<uint64_t, Watched> watched_;
  std::vector<Ready> ready_;
  int found_ = 0;  // by the last wait()
};

}  // namespace rt
