// Standard output that remembers why it could not be written.
#pragma once

#include <streambuf>
#include <vector>

namespace ctl {

// Does not own the descriptor.
class OutputBuffer final : public std::streambuf {
 public:
  explicit OutputBuffer(int descriptor);
  ~OutputBuffer() override { sync(); }

  // The errno of the first write that failed, or 0. What came after it is dropped.
  int error() const { return error_; }

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* text, std::streamsize size) override;
  int sync() override;

 private:
  bool write(const char* text, size_t size);

  const int descriptor_;
  int error_ = 0;
  std::vector<char> buffer_;
};

}  // namespace ctl
