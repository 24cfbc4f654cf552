#include "ctl/machine/OutputBuffer.h"

#include <unistd.h>

#include <cerrno>

namespace ctl {

OutputBuffer::OutputBuffer(int descriptor) : descriptor_(descriptor), buffer_(64 * 1024) {
  setp(buffer_.data(), buffer_.data() + buffer_.size());
}

bool OutputBuffer::write(const char* text, size_t size) {
  while (size > 0 && error_ == 0) {
    const ssize_t written = ::write(descriptor_, text, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) {
      error_ = errno;
      break;
    }
    text += written;
    size -= static_cast<size_t>(written);
  }
  return error_ == 0;
}

int OutputBuffer::sync() {
  const bool done = write(pbase(), static_cast<size_t>(pptr() - pbase()));
  setp(buffer_.data(), buffer_.data() + buffer_.size());
  return done ? 0 : -1;
}

OutputBuffer::int_type OutputBuffer::overflow(int_type c) {
  if (sync() != 0) return traits_type::eof();
  if (!traits_type::eq_int_type(c, traits_type::eof())) return sputc(traits_type::to_char_type(c));
  return traits_type::not_eof(c);
}

std::streamsize OutputBuffer::xsputn(const char* text, std::streamsize size) {
  if (size < epptr() - pptr()) return std::streambuf::xsputn(text, size);
  return sync() == 0 && write(text, static_cast<size_t>(size)) ? size : 0;
}

}  // namespace ctl
