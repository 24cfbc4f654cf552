#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <vector>

#include "runtime/base/Trace.h"
#include "runtime/fakes/TraceRecorder.h"

namespace rt {
namespace {

using namespace std::string_view_literals;

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

enum class Colour : uint8_t { red, green };
constexpr EnumNames<2> enumNames(Colour) { return {"red", "green"}; }

TEST(Trace, MessageIsThePiecesJoinedAsTheyAre) {
  fakes::TraceRecorder recorder;
  VM_TRACE(8) << "doTryEnable"
              << " " << String("path") << std::string(" removed") << std::string_view(".");
  EXPECT_THAT(recorder.take(), ElementsAre("8 doTryEnable path removed."));
}

TEST(Trace, PiecesOfEachTypeAreText) {
  fakes::TraceRecorder recorder;
  const int number = -7;
  const uint8_t byte = 255;
  VM_TRACE(1) << true << "," << false << "," << number << "," << byte << ","
              << uint64_t{18446744073709551615U} << "," << Colour::green << "," << Seconds(0.5)
              << "," << ssize_t{-1};
  EXPECT_THAT(recorder.take(),
              ElementsAre("1 true,false,-7,255,18446744073709551615,green,0.5,-1"));
}

TEST(Trace, PointerIsAHexadecimalAddressAndNoTruthValue) {
  fakes::TraceRecorder recorder;
  const int* const null = nullptr;
  const auto* const address = reinterpret_cast<const int*>(uintptr_t{0xbeef});
  VM_TRACE(1) << address << " " << null;
  EXPECT_THAT(recorder.take(), ElementsAre("1 0xbeef 0x0"));
}

TEST(Trace, EmptyMessageIsAMessage) {
  fakes::TraceRecorder recorder;
  VM_TRACE(3) << "";
  EXPECT_THAT(recorder.take(), ElementsAre("3 "));
}

TEST(Trace, PiecesAreNotEvaluatedWhenTheLevelIsOff) {
  fakes::TraceRecorder recorder;
  vmTrace().levelsIs(1U << 1);
  int evaluated = 0;
  VM_TRACE(9) << ++evaluated;
  EXPECT_EQ(evaluated, 0);
  VM_TRACE(1) << ++evaluated;
  EXPECT_EQ(evaluated, 1);
  EXPECT_THAT(recorder.take(), ElementsAre("1 1"));
}

TEST(Trace, IsOneStatementWithinIfAndElse) {
  fakes::TraceRecorder recorder;
  for (const bool first : {true, false})
    if (first)
      VM_TRACE(1) << "first";
    else
      VM_TRACE(1) << "second";
  EXPECT_THAT(recorder.take(), ElementsAre("1 first", "1 second"));
}

TEST(Trace, HandleIsNamedVmAndHasLevelsOneAndTwoOnAtFirst) {
  const TraceHandle fresh("Fresh");
  EXPECT_STREQ(vmTrace().name(), "Vm");
  EXPECT_EQ(fresh.levels(), 0x6U);
  for (unsigned level = 0; level < 32; ++level)
    EXPECT_EQ(fresh.enabled(level), level == 1 || level == 2) << level;
}

TEST(Trace, LevelsOfOneHandleAreItsOwn) {
  TraceHandle one("One");
  const TraceHandle other("Other");
  one.levelsIs(1U << 31);
  EXPECT_TRUE(one.enabled(31));
  EXPECT_FALSE(one.enabled(1));
  EXPECT_TRUE(other.enabled(1));
  EXPECT_FALSE(other.enabled(31));
}

TEST(Trace, LevelsComeFromText) {
  EXPECT_EQ(traceLevelsFromText("none"), 0U);
  EXPECT_EQ(traceLevelsFromText("all"), 0xffffffffU);
  EXPECT_EQ(traceLevelsFromText("1,2,7"), 0x86U);
  EXPECT_EQ(traceLevelsFromText("0"), 0x1U);
  EXPECT_EQ(traceLevelsFromText("31"), 0x80000000U);
  EXPECT_EQ(traceLevelsFromText("2,2"), 0x4U);
}

TEST(Trace, LevelsRefuseBadText) {
  for (const char* text : {"", ",", "1,", ",1", "1,,2", "32", "256", "-1", "1, 2", " 1", "1;2",
                           "all,1", "none,1", "ALL", "x"})
    EXPECT_EQ(traceLevelsFromText(text), std::nullopt) << text;
}

// A record of level 7 at a place of this file.
TraceRecord record(std::string_view message) {
  return {vmTrace(), 7, "Some.cpp", 42, "function", message};
}

TEST(Trace, LineIsTimeLevelPlaceAndMessage) {
  EXPECT_EQ(traceLine(record("enable FAIL: no file"), 1'700'000'000'000'012),
            "2023-11-14T22:13:20.000012Z 7 Some.cpp:42 enable FAIL: no file\n");
  EXPECT_EQ(traceLine(record(""), 0), "1970-01-01T00:00:00.000000Z 7 Some.cpp:42 \n");
  EXPECT_EQ(traceLine(record("x"), 999'999), "1970-01-01T00:00:00.999999Z 7 Some.cpp:42 x\n");
}

TEST(Trace, LineEscapesControlCharactersAndNothingElse) {
  const std::string_view message = "a\nb\rc\td\x1b[0m\x7f\0e \"\\%s \xc3\xa9"sv;
  EXPECT_EQ(traceLine(record(message), 0),
            "1970-01-01T00:00:00.000000Z 7 Some.cpp:42 "
            "a\\nb\\rc\\x09d\\x1b[0m\\x7f\\x00e \"\\%s \xc3\xa9\n");
}

TEST(Trace, LineShowsOthersTextAsItIs) {
  EXPECT_EQ(traceLine(record("VM \u202egnp\xff"), 0),
            "1970-01-01T00:00:00.000000Z 7 Some.cpp:42 VM \\u202egnp\\xff\n");
}

// What a sink is told of one message.
struct Told {
  std::string handle;
  unsigned level;
  std::string file;
  unsigned line;
  std::string function;
};
class PlaceSink final : public TraceSink {
 public:
  void write(const TraceRecord& record) override {
    told.push_back({record.handle.name(), record.level, record.file, record.line, record.function});
  }
  std::vector<Told> told;
};

TEST(Trace, SinkIsToldHandleLevelAndPlace) {
  PlaceSink sink;
  traceSinkIs(&sink);
  const unsigned line = __LINE__ + 1;
  VM_TRACE(1) << "x";
  traceSinkIs(nullptr);
  ASSERT_EQ(sink.told.size(), 1U);
  EXPECT_EQ(sink.told[0].handle, "Vm");
  EXPECT_EQ(sink.told[0].level, 1U);
  EXPECT_THAT(sink.told[0].file, ::testing::EndsWith("base/TraceTest.cpp"));
  EXPECT_EQ(sink.told[0].line, line);
  EXPECT_EQ(sink.told[0].function, "TestBody");
}

TEST(Trace, RecorderPutsBackTheSinkAndTheLevels) {
  TraceSink* const sink = traceSink();
  const TraceLevels levels = vmTrace().levels();
  {
    fakes::TraceRecorder recorder;
    EXPECT_EQ(traceSink(), &recorder);
    EXPECT_EQ(vmTrace().levels(), 0xffffffffU);
  }
  EXPECT_EQ(traceSink(), sink);
  EXPECT_EQ(vmTrace().levels(), levels);
}

TEST(Trace, WithoutASinkALineGoesToStandardErrorAtOnce) {
  ASSERT_EQ(traceSink(), nullptr);
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const int saved = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  ::dup2(ends[1], STDERR_FILENO);
  VM_TRACE(1) << "first\nmessage";
  char buffer[512];
  const ssize_t length = ::read(ends[0], buffer, sizeof buffer);  // nothing was flushed
  ::dup2(saved, STDERR_FILENO);
  for (const int descriptor : {saved, ends[0], ends[1]}) ::close(descriptor);
  ASSERT_GT(length, 0);
  EXPECT_THAT(std::string(buffer, static_cast<size_t>(length)),
              MatchesRegex("20[0-9][0-9]-[0-9][0-9]-[0-9][0-9]T[0-9:]+\\.[0-9]+Z 1 "
                           ".*TraceTest.cpp:[0-9]+ first\\\\nmessage\n"));
}

TEST(Trace, WithoutASinkALevelThatIsOffWritesNothing) {
  ASSERT_EQ(traceSink(), nullptr);
  ::testing::internal::CaptureStderr();
  VM_TRACE(9) << "unseen";
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), IsEmpty());
}

}  // namespace
}  // namespace rt
