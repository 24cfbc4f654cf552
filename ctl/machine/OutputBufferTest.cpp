// What is printed, and what becomes of it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <ostream>

#include "ctl/machine/OutputBuffer.h"

namespace ctl {
namespace {

TEST(OutputBufferTest, IsWrittenWhole) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  fcntl(ends[1], F_SETPIPE_SZ, 1024 * 1024);
  const std::string big(200'000, 'x');
  {
    OutputBuffer buffer(ends[1]);
    std::ostream out(&buffer);
    out << "begin " << big << " end";
    out.flush();
    EXPECT_EQ(buffer.error(), 0);
  }
  close(ends[1]);
  std::string read(big.size() + 100, '\0');
  size_t size = 0;
  for (ssize_t n = 0; (n = ::read(ends[0], read.data() + size, read.size() - size)) > 0;)
    size += static_cast<size_t>(n);
  close(ends[0]);
  EXPECT_EQ(read.substr(0, size), "begin " + big + " end");
}

TEST(OutputBufferTest, RemembersWhyItCouldNotBeWritten) {
  OutputBuffer buffer(-1);
  std::ostream out(&buffer);
  out << "text";
  EXPECT_EQ(buffer.error(), 0);
  out.flush();
  EXPECT_EQ(buffer.error(), EBADF);
  EXPECT_FALSE(out);
}

}  // namespace
}  // namespace ctl
