// What disk images are opened as.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/database/ImageRows.h"
#include "host/fakes/TroubledStore.h"
#include "runtime/fakes/TraceRecorder.h"

namespace host {
namespace {

using guest::ImageFormat;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;

constexpr const char* path = "/images/web.img";
constexpr const char* qcow2Doc = R"({"diskImage":"/images/web.img","format":"qcow2"})";
constexpr const char* rawDoc = R"({"diskImage":"/images/web.img","format":"raw"})";

class ImageRowsTest : public testing::Test {
 protected:
  std::optional<statedb::Record> row() {
    return file_.other(statedb::Half::config)->record("vmImage", "web1");
  }
  std::string doc() {
    const auto record = row();
    return record ? record->doc.str() : "none";
  }
  void operatorWrites(const char* doc) {
    file_.other(statedb::Half::config)->commit(statedb::Transaction().put("vmImage", "web1", doc));
  }
  // As the daemon hears of it.
  void hear() { rows_.rowIs("web1", row()); }

  fakes::StoreFile file_;
  fakes::StoreFile status_;
  statedb::StateDb db_ = fakes::troubledDb(file_, status_);
  ImageRows rows_{db_};
  rt::fakes::TraceRecorder traces_;
};

TEST_F(ImageRowsTest, SayNothingOfAnImageThatNobodyHasNamed) {
  EXPECT_EQ(rows_.format("web1", path), std::nullopt);
  EXPECT_EQ(rows_.problem("web1"), "");
}

TEST_F(ImageRowsTest, AreAnOperatorsWordForHisImageOnly) {
  operatorWrites(qcow2Doc);
  hear();
  EXPECT_THAT(rows_.format("web1", path), Optional(ImageFormat::qcow2));
  EXPECT_EQ(rows_.format("web1", "/images/other.img"), std::nullopt);
  EXPECT_EQ(rows_.format("web2", path), std::nullopt);
}

TEST_F(ImageRowsTest, AreWrittenOnceWhereNobodyHasSpoken) {
  EXPECT_TRUE(rows_.formatIs("web1", path, ImageFormat::raw));
  EXPECT_EQ(doc(), rawDoc);
  const auto first = row();
  EXPECT_TRUE(rows_.formatIs("web1", path, ImageFormat::qcow2)) << "before it was heard of";
  hear();
  EXPECT_TRUE(rows_.formatIs("web1", path, ImageFormat::qcow2));
  EXPECT_EQ(row(), first);
  EXPECT_THAT(rows_.format("web1", path), Optional(ImageFormat::raw));
}

TEST_F(ImageRowsTest, OfAnotherImageAreReplaced) {
  operatorWrites(R"({"diskImage":"/images/old.img","format":"qcow2"})");
  hear();
  EXPECT_TRUE(rows_.formatIs("web1", path, ImageFormat::raw));
  EXPECT_EQ(doc(), rawDoc);
}

TEST_F(ImageRowsTest, AreNotWrittenOverAnOperatorsWordOfThisMoment) {
  operatorWrites(qcow2Doc);  // and nobody has heard of it yet
  EXPECT_FALSE(rows_.formatIs("web1", path, ImageFormat::raw));
  EXPECT_EQ(doc(), qcow2Doc);
  hear();
  EXPECT_THAT(rows_.format("web1", path), Optional(ImageFormat::qcow2));
}

TEST_F(ImageRowsTest, FollowAnOperatorWhoThinksBetterOfIt) {
  rows_.formatIs("web1", path, ImageFormat::raw);
  hear();
  operatorWrites(qcow2Doc);
  hear();
  EXPECT_THAT(rows_.format("web1", path), Optional(ImageFormat::qcow2));
}

TEST_F(ImageRowsTest, ThatCannotBeWrittenHoldAllTheSameAndAreTriedAgain) {
  file_.trouble = statedb::Trouble::failed;
  EXPECT_TRUE(rows_.formatIs("web1", path, ImageFormat::raw));
  EXPECT_TRUE(rows_.formatIs("web1", path, ImageFormat::qcow2)) << "it is not guessed again";
  EXPECT_THAT(rows_.format("web1", path), Optional(ImageFormat::raw));
  EXPECT_THAT(traces_.take(1), ElementsAre(HasSubstr("the file is in trouble"))) << "once";
  file_.trouble.reset();
  EXPECT_TRUE(rows_.formatIs("web1", path, ImageFormat::qcow2));
  EXPECT_EQ(doc(), rawDoc);
}

TEST_F(ImageRowsTest, ThatCannotBeWrittenAgainAreToldOfAgain) {
  file_.trouble = statedb::Trouble::full;
  rows_.formatIs("web1", path, ImageFormat::raw);
  EXPECT_EQ(traces_.take(1).size(), 1U);
  file_.trouble = std::nullopt;
  rows_.formatIs("web1", path, ImageFormat::raw);
  file_.trouble = statedb::Trouble::full;
  rows_.formatIs("web2", path, ImageFormat::raw);
  EXPECT_EQ(traces_.take(1).size(), 1U);
}

TEST_F(ImageRowsTest, OfAnotherImageTakeNothingBackOfWhatWasSaidOfThisOne) {
  rows_.formatIs("web1", path, ImageFormat::raw);
  operatorWrites(R"({"diskImage":"/images/old.img","format":"qcow2"})");
  hear();
  EXPECT_THAT(rows_.format("web1", path), Optional(ImageFormat::raw));
}

TEST_F(ImageRowsTest, ThatAreNotValidSayWhatWouldBeRight) {
  operatorWrites(R"({"diskImage":"/images/web.img","format":"vmdk"})");
  hear();
  EXPECT_EQ(rows_.problem("web1"), "vmImage: format: 'vmdk' is refused: must be raw or qcow2");
  EXPECT_EQ(rows_.format("web1", path), std::nullopt);
  operatorWrites(R"({"diskImage":"/images/web.img","format":"raw","size":1})");
  hear();
  EXPECT_THAT(rows_.problem("web1").str(), HasSubstr("size: '1' is refused"));
  operatorWrites(rawDoc);
  hear();
  EXPECT_EQ(rows_.problem("web1"), "");
}

// The store of the day before took the place of this one: the guest has written into its disk
// since.
TEST_F(ImageRowsTest, ThatAreLostHoldAndAreWrittenAgain) {
  operatorWrites(rawDoc);
  hear();
  file_.other(statedb::Half::config)->commit(statedb::Transaction().del("vmImage", "web1"));
  rows_.rowIsLost("web1");
  EXPECT_THAT(rows_.format("web1", path), Optional(ImageFormat::raw));
  EXPECT_TRUE(rows_.formatIs("web1", path, ImageFormat::qcow2));
  EXPECT_EQ(doc(), rawDoc);
}

TEST_F(ImageRowsTest, ThatAreLostSayNoMoreThanTheySaid) {
  rows_.rowIsLost("web1");
  EXPECT_EQ(rows_.format("web1", path), std::nullopt);
  operatorWrites(R"({"diskImage":"/images/web.img","format":"vmdk"})");
  hear();
  rows_.rowIsLost("web1");
  EXPECT_EQ(rows_.problem("web1"), "");
  EXPECT_EQ(rows_.format("web1", path), std::nullopt);
}

TEST_F(ImageRowsTest, ThatAreGoneSayNothingAnyMore) {
  operatorWrites(qcow2Doc);
  hear();
  rows_.rowIs("web1", std::nullopt);
  EXPECT_EQ(rows_.format("web1", path), std::nullopt);
}

}  // namespace
}  // namespace host
