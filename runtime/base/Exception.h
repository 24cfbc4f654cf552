// What the runtime and the agent throw. The agent catches none of it; the host's loop reports it.
#pragma once

#include <cstdint>
#include <exception>

#include "runtime/base/String.h"

namespace rt {

class Exception : public std::exception {
 public:
  explicit Exception(String message) : message_(std::move(message)) {}
  const char* what() const noexcept override { return message_.charPtr(); }

 private:
  String message_;
};

// A failed system call; what() is "MESSAGE: TEXT OF THE ERRNO (errno N)".
class ErrnoException : public Exception {
 public:
  ErrnoException(int error, const String& message);
  int error() const { return error_; }

 private:
  int error_;
};

// A value outside its attribute's range. `value` is what was refused, as text; what() is `message`.
class RangeException : public Exception {
 public:
  RangeException(const String& message, String value)
      : Exception(message), value_(std::move(value)) {}
  const String& value() const { return value_; }

 private:
  String value_;
};

// A mutator was given a null pointer.
class NullArgumentException : public Exception {
 public:
  NullArgumentException(const String& type, const String& attribute);
};

// An existing member or entity-valued attribute was asked for with another constructor argument.
class ReinstantiationException : public Exception {
 public:
  ReinstantiationException(const String& type, const String& attribute);
  const String& attribute() const { return attribute_; }

 private:
  String attribute_;
};

// An ordered queue is full.
class QueueFullException : public Exception {
 public:
  QueueFullException(const String& queue, uint32_t capacity);
};

// Something that ought to work did not, and no errno tells why.
class InternalException : public Exception {
 public:
  using Exception::Exception;
};

// Generic access by name was refused: no such attribute, a read-only one, or text that is no value
// of its type. Nothing was changed.
class AttributeException : public Exception {
 public:
  using Exception::Exception;
};

}  // namespace rt
