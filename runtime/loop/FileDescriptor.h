// Watched descriptors.
#pragma once

#include "runtime/base/Trace.h"
#include "runtime/entity/EntityOf.h"

namespace rt {

class DescriptorWatcher;

// A descriptor of the operating system that the activity manager watches for its owner's reactor,
// on `readable`, `writable` or `exception`. Owns what it is bound to.
//
// Notification is by level: the reactor is called on every turn of the loop for as long as the
// condition holds. The end of a stream and errors are told as whatever is asked for.
class FileDescriptor final : public EntityOf<FileDescriptor> {
 public:
  // `name` is for diagnostics.
  explicit FileDescriptor(String name) : name_(std::move(name)) {}
  ~FileDescriptor() override;

  const String& name() const { return name_; }

  // -1: none. Closes what was bound before; the same number again changes nothing.
  int descriptor() const { return descriptor_; }
  void descriptorIs(int descriptor);
  // Closes what is bound and forgets it.
  void close() { descriptorIs(-1); }

  // O_NONBLOCK, of what is bound now and of what is bound later. ErrnoException if that fails.
  bool nonBlocking() const { return nonBlocking_; }
  void nonBlockingIs(bool nonBlocking);

  // The events that are watched for; none at first. ErrnoException for a descriptor that cannot be
  // watched, such as a regular file's.
  bool notifyOnReadable() const { return notifyOnReadable_; }
  void notifyOnReadableIs(bool notify);
  bool notifyOnWritable() const { return notifyOnWritable_; }
  void notifyOnWritableIs(bool notify);
  bool notifyOnException() const { return notifyOnException_; }
  void notifyOnExceptionIs(bool notify);

  // True while the reactors are being told so.
  bool readable() const { return readable_; }
  bool writable() const { return writable_; }
  bool exception() const { return exception_; }

  // Off: not watched at all, else the loop would spin on what nobody handles. Likewise a descriptor
  // that has an event while no reactor is attached is not watched until one of these is set again.
  void hasNotificationActiveIs(bool active) override;

  static constexpr std::string_view typeName = "rt::FileDescriptor";
  using Attributes = AttributeTable<
      Attribute<"name", &FileDescriptor::name>,
      Attribute<"descriptor", &FileDescriptor::descriptor>,
      Attribute<"nonBlocking", &FileDescriptor::nonBlocking, &FileDescriptor::nonBlockingIs>,
      Attribute<"notifyOnReadable", &FileDescriptor::notifyOnReadable,
                &FileDescriptor::notifyOnReadableIs>,
      Attribute<"notifyOnWritable", &FileDescriptor::notifyOnWritable,
                &FileDescriptor::notifyOnWritableIs>,
      Attribute<"notifyOnException", &FileDescriptor::notifyOnException,
                &FileDescriptor::notifyOnExceptionIs>,
      Attribute<"readable", &FileDescriptor::readable>,
      Attribute<"writable", &FileDescriptor::writable>,
      Attribute<"exception", &FileDescriptor::exception>>;

 private:
  friend class DescriptorWatcher;

  void applyNonBlocking() const;
  void watch();
  void unwatch();
  // The epoll events that are asked for; 0 when there is nothing to watch.
  uint32_t interest() const;
  void handleEvents(uint32_t events);

  const String name_;
  int descriptor_ = -1;
  DescriptorWatcher* watcher_ = nullptr;  // where it is registered, if it is
  uint64_t watchId_ = 0;
  bool nonBlocking_ = false;
  bool notifyOnReadable_ = false;
  bool notifyOnWritable_ = false;
  bool notifyOnException_ = false;
  bool readable_ = false;
  bool writable_ = false;
  bool exception_ = false;
};

// In a message: "NAME (descriptor N)".
TraceHelper& operator<<(TraceHelper& message, const FileDescriptor& descriptor);

}  // namespace rt
