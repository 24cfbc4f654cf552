// One QMP request as a value and as text.
#include <gtest/gtest.h>

#include <type_traits>

#include "Vm/Monitor/MonitorSm.h"
#include "Vm/Monitor/QmpRequestType.h"

namespace Vm {

namespace {

static_assert(std::is_same_v<MonitorSm::QmpRequestType, QmpRequestType>);

const QmpRequestType getfd{MonitorCommand::backendAdd, 7, "{ \"a\": 1 }\n",
                           QmpIdTypes::getfd,          9, true};

TEST(QmpRequestType, DefaultHasNoText) {
  const QmpRequestType request;
  EXPECT_EQ(request.val, "");
  EXPECT_EQ(request.cmdId, 0U);
  EXPECT_FALSE(request.more);
}

TEST(QmpRequestType, IsEqualOnlyInAllFields) {
  QmpRequestType other = getfd;
  EXPECT_EQ(other, getfd);
  other.cmd = MonitorCommand::backendDel;
  EXPECT_NE(other, getfd);
  other = getfd;
  other.cmdId = 8;
  EXPECT_NE(other, getfd);
  other = getfd;
  other.val = "";
  EXPECT_NE(other, getfd);
  other = getfd;
  other.id = QmpIdTypes::closefd;
  EXPECT_NE(other, getfd);
  other = getfd;
  other.fd = QmpRequestType::noFd;
  EXPECT_NE(other, getfd);
  other = getfd;
  other.more = false;
  EXPECT_NE(other, getfd);
}

TEST(QmpRequestType, TextNamesItsFieldsInOrder) {
  EXPECT_EQ(getfd.text(),
            "Value('Vm::MonitorSm::QmpRequestType', ** {'cmd': backendAdd, 'cmdId': 7, 'val': "
            "{ \"a\": 1 }\n, 'id': getfd, 'fd': 9, 'more': true})");
}

TEST(QmpRequestType, NoDescriptorReadsAsTheLargestNumber) {
  QmpRequestType request;
  request.fd = QmpRequestType::noFd;
  EXPECT_EQ(request.text(),
            "Value('Vm::MonitorSm::QmpRequestType', ** {'cmd': enterCmdMode, 'cmdId': 0, 'val': , "
            "'id': hello, 'fd': 4294967295, 'more': false})");
}

class QmpRequestText : public testing::TestWithParam<const char*> {};

TEST_P(QmpRequestText, IsParsedBackWithAnyValue) {
  QmpRequestType request = getfd;
  request.val = GetParam();
  EXPECT_EQ(rt::fromText<QmpRequestType>(rt::toText(request)), request);
}

INSTANTIATE_TEST_SUITE_P(Values, QmpRequestText,
                         testing::Values("", "{ \"execute\": \"cont\",\"id\": \"cont\" }\n",
                                         ", 'id': ", ", 'id': getfd", ", 'id': nobody, 'fd': 1",
                                         "})", "'more': true})", ", 'val': x, 'val': y"));

TEST(QmpRequestType, DefaultIsParsedBack) {
  EXPECT_EQ(rt::fromText<QmpRequestType>(rt::toText(QmpRequestType())), QmpRequestType());
}

TEST(QmpRequestType, MalformedTextIsRefused) {
  const rt::String whole = getfd.text();
  for (size_t length = 0; length < whole.size(); ++length)
    EXPECT_FALSE(rt::fromText<QmpRequestType>(whole.substr(0, length))) << length;
  EXPECT_FALSE(rt::fromText<QmpRequestType>(whole + "x"));
  const auto with = [](const char* cmd, const char* cmdId, const char* id, const char* fd,
                       const char* more) {
    return rt::format(
        "Value('Vm::MonitorSm::QmpRequestType', ** {'cmd': %s, 'cmdId': %s, 'val': v, 'id': %s, "
        "'fd': %s, 'more': %s})",
        cmd, cmdId, id, fd, more);
  };
  EXPECT_TRUE(rt::fromText<QmpRequestType>(with("startVm", "1", "cont", "2", "false")));
  EXPECT_FALSE(rt::fromText<QmpRequestType>(with("stopVm", "1", "cont", "2", "false")));
  EXPECT_FALSE(rt::fromText<QmpRequestType>(with("startVm", "", "cont", "2", "false")));
  EXPECT_FALSE(rt::fromText<QmpRequestType>(with("startVm", "1", "stop", "2", "false")));
  EXPECT_FALSE(rt::fromText<QmpRequestType>(with("startVm", "1", "cont", "-1", "false")));
  EXPECT_FALSE(rt::fromText<QmpRequestType>(with("startVm", "1", "cont", "2", "no")));
}

}  // namespace

}  // namespace Vm
