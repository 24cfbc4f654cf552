#include "runtime/base/Exception.h"

#include <system_error>

#include "runtime/base/Format.h"

namespace rt {

ErrnoException::ErrnoException(int error, const String& message)
    : Exception(format("%s: %s (errno %d)", message.charPtr(),
                       std::generic_category().message(error).c_str(), error)),
      error_(error) {}

NullArgumentException::NullArgumentException(const String& type, const String& attribute)
    : Exception(
          format("%s::%s: a null pointer is not allowed", type.charPtr(), attribute.charPtr())) {}

ReinstantiationException::ReinstantiationException(const String& type, const String& attribute)
    : Exception(format("%s::%s: it exists already with a different value", type.charPtr(),
                       attribute.charPtr())),
      attribute_(attribute) {}

QueueFullException::QueueFullException(const String& queue, uint32_t capacity)
    : Exception(format("%s: the queue is full (%u entries)", queue.charPtr(), capacity)) {}

}  // namespace rt
