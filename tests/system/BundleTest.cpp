// What somebody needs who is to help, of a machine in trouble.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "tests/system/DaemonFixture.h"

namespace host::fakes {
namespace {

using testing::HasSubstr;

class Bundle : public DaemonFixture {
 protected:
  std::string in(const std::string& name) const {
    const Ended listed = run({"/bin/tar", "-tzf", file});
    const std::string directory = listed.out.substr(0, listed.out.find('/') + 1);
    return run({"/bin/tar", "-xzOf", file, directory + name}).out;
  }

  const std::string file = "/var/run/bundle.tar.gz";
};

TEST_F(Bundle, IsMadeThoughTheDaemonIsDeadAndItsDatabaseDamaged) {
  world.start();
  world.addVm("web1", {"--enabled"});
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmStatus", "web1", "Running"); }));
  EXPECT_EQ(world.end(SIGKILL), -SIGKILL);
  std::filesystem::remove(world.stateDir + "/config.db-wal");
  std::ofstream(world.stateDir + "/config.db", std::ios::trunc) << std::string(8192, 'x');
  const Ended ended = world.vmctl({"bundle", file});
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_THAT(ended.out, HasSubstr("contents.txt\n"));
  EXPECT_THAT(in("config.rows.err"), HasSubstr("config.db"));
  EXPECT_THAT(in("status.rows"), HasSubstr(R"("table":"vmStatus","key":"web1")"));
  EXPECT_THAT(in("version.json"), HasSubstr("databaseFormat"));
  EXPECT_THAT(in("links.txt"), HasSubstr("LOOPBACK"));
}

}  // namespace
}  // namespace host::fakes
