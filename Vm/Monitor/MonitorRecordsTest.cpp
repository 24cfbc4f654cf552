// The records between a VM's machine and its monitor session.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Vm/Monitor/MonitorRecords.h"
#include "runtime/entity/TypeRegistry.h"
#include "runtime/fakes/ChangeRecorder.h"

namespace Vm {

namespace {

using Lines = std::vector<std::string>;
using MonitorState = MonitorStatus::MonitorState;
using MonitorCommandStatus = MonitorOutput::MonitorCommandStatus;

static_assert(sizeof(MonitorCommand) == 1);
static_assert(sizeof(MonitorCommandStatus) == 1);
static_assert(sizeof(MonitorState) == 1);

// The texts of the values 0 to count - 1, checked to stand for these values.
template <class E>
Lines namesOf(size_t count) {
  Lines names;
  for (size_t i = 0; i < count; ++i) {
    const auto value = static_cast<E>(i);
    names.push_back(rt::toText(value).str());
    EXPECT_EQ(rt::fromText<E>(names.back()), value);
  }
  return names;
}

TEST(MonitorCommand, HasItsNamesInOrder) {
  EXPECT_EQ(namesOf<MonitorCommand>(6), (Lines{"enterCmdMode", "queryStatus", "startVm",
                                               "queryChardev", "backendAdd", "backendDel"}));
}

TEST(MonitorCommand, UnknownNameIsNoValue) {
  EXPECT_FALSE(rt::fromText<MonitorCommand>("stopVm"));
  EXPECT_FALSE(rt::fromText<MonitorCommand>(""));
  EXPECT_FALSE(rt::fromText<MonitorCommand>("queryStatus "));
  EXPECT_FALSE(rt::fromText<MonitorCommand>("1"));
}

TEST(MonitorCommand, ValueWithoutANameReadsAsItsNumber) {
  EXPECT_EQ(rt::toText(static_cast<MonitorCommand>(6)), "6");
}

TEST(MonitorCommandStatus, HasItsNamesInOrder) {
  EXPECT_EQ(namesOf<MonitorCommandStatus>(2), (Lines{"success", "failure"}));
}

TEST(MonitorState, HasItsNamesInOrder) {
  EXPECT_EQ(namesOf<MonitorState>(3), (Lines{"uninitialized", "connected", "disconnected"}));
}

TEST(MonitorCommandArg, DefaultIsEmptyTextsAndZero) {
  EXPECT_EQ(MonitorCommandArg{}, (MonitorCommandArg{"", 0, ""}));
}

TEST(MonitorCommandArg, IsEqualOnlyInAllFields) {
  const MonitorCommandArg arg{"fd", 7, "x"};
  EXPECT_EQ(arg, (MonitorCommandArg{"fd", 7, "x"}));
  EXPECT_NE(arg, (MonitorCommandArg{"f", 7, "x"}));
  EXPECT_NE(arg, (MonitorCommandArg{"fd", 8, "x"}));
  EXPECT_NE(arg, (MonitorCommandArg{"fd", 7, ""}));
}

TEST(MonitorCommandArg, TextNamesItsFields) {
  EXPECT_EQ((MonitorCommandArg{"backendId", 4294967295, "tap1"}.text()),
            "Value('Vm::MonitorCommandArg', ** {'argName': backendId, 'u32Val': 4294967295, "
            "'strVal': tap1})");
  EXPECT_EQ(MonitorCommandArg{}.text(),
            "Value('Vm::MonitorCommandArg', ** {'argName': , 'u32Val': 0, 'strVal': })");
}

class MonitorCommandArgText : public testing::TestWithParam<MonitorCommandArg> {};

TEST_P(MonitorCommandArgText, IsParsedBack) {
  EXPECT_EQ(rt::fromText<MonitorCommandArg>(rt::toText(GetParam())), GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    Values, MonitorCommandArgText,
    testing::Values(MonitorCommandArg{}, MonitorCommandArg{"fd", 4294967295, ""},
                    MonitorCommandArg{"fdname", 0, "a name, 'quoted' {and} \"more\"\n"},
                    MonitorCommandArg{"nicId", 1, "})"}, MonitorCommandArg{"nicId", 1, "})})"},
                    MonitorCommandArg{"nicId", 1, ", 'strVal': "},
                    MonitorCommandArg{", 'u32Val': ", 5, "x"},
                    MonitorCommandArg{", 'u32Val': 5, 'u32Val': ", 6, ", 'u32Val': 7"}));

// Which values such a text was made of cannot be known; all of it is kept in some field.
TEST(MonitorCommandArg, AmbiguousTextGivesTheShortestName) {
  const MonitorCommandArg arg{"a, 'u32Val': 5, 'strVal': b", 6, "c"};
  EXPECT_EQ(rt::fromText<MonitorCommandArg>(rt::toText(arg)),
            (MonitorCommandArg{"a", 5, "b, 'u32Val': 6, 'strVal': c"}));
}

TEST(MonitorCommandArg, MalformedTextIsRefused) {
  const rt::String whole = MonitorCommandArg{"fd", 7, "x"}.text();
  ASSERT_TRUE(rt::fromText<MonitorCommandArg>(whole));
  for (size_t length = 0; length < whole.size(); ++length)
    EXPECT_FALSE(rt::fromText<MonitorCommandArg>(whole.substr(0, length))) << length;
  EXPECT_FALSE(rt::fromText<MonitorCommandArg>(whole + " "));
  for (const char* text :
       {"Value('Vm::Other', ** {'argName': fd, 'u32Val': 7, 'strVal': x})",
        "Value('Vm::MonitorCommandArg', ** {'argName': fd, 'u32Val': , 'strVal': x})",
        "Value('Vm::MonitorCommandArg', ** {'argName': fd, 'u32Val': -1, 'strVal': x})",
        "Value('Vm::MonitorCommandArg', ** {'argName': fd, 'u32Val': 4294967296, 'strVal': x})",
        "Value('Vm::MonitorCommandArg', ** {'argName': fd, 'strVal': x, 'u32Val': 7})",
        "Value('Vm::MonitorCommandArg', ** {'argName': fd, 'u32Val': 7})"})
    EXPECT_FALSE(rt::fromText<MonitorCommandArg>(text)) << text;
}

class MonitorRecords : public testing::Test {
 protected:
  template <class T>
  void watch(const T& entity) {
    changes_->watch(entity);
  }
  Lines told() { return changes_->take(); }

  const rt::Ptr<rt::fakes::ChangeRecorder> changes_ = rt::make<rt::fakes::ChangeRecorder>();
  const MonitorCommandArgs::Ptr args_ = rt::make<MonitorCommandArgs>();
  const MonitorInput::Ptr input_ = rt::make<MonitorInput>(0U);
  const MonitorOutput::Ptr output_ = rt::make<MonitorOutput>(0U);
};

TEST_F(MonitorRecords, AbsentArgumentReadsAsItsDefault) {
  args_->argIs({"fdname", 0, "tap1"});
  EXPECT_EQ(args_->arg("nicId"), MonitorCommandArg{});
}

TEST_F(MonitorRecords, ArgumentOfAKnownNameIsReplaced) {
  args_->argIs({"fd", 7, "x"});
  args_->argIs({"fd", 8, ""});
  EXPECT_EQ(args_->args().size(), 1U);
  EXPECT_EQ(args_->arg("fd"), (MonitorCommandArg{"fd", 8, ""}));
}

TEST_F(MonitorRecords, DeletedArgumentIsAbsent) {
  args_->argIs({"fd", 7, ""});
  args_->argIs({"fdname", 0, "tap1"});
  args_->argDel("fd");
  EXPECT_EQ(args_->arg("fd"), MonitorCommandArg{});
  EXPECT_EQ(args_->arg("fdname").strVal, "tap1");
}

TEST_F(MonitorRecords, AllArgumentsCanBeDeleted) {
  for (const char* name : {"fd", "fdname", "nicId"}) args_->argIs({name, 1, "x"});
  args_->argDelAll();
  EXPECT_TRUE(args_->args().empty());
}

TEST_F(MonitorRecords, ArgumentsTellOfChangesOnly) {
  watch(args_);
  args_->argIs({"fd", 7, ""});
  args_->argIs({"fd", 7, ""});
  args_->argIs({"fd", 8, ""});
  args_->argDel("nicId");
  args_->argDel("fd");
  args_->argDelAll();
  EXPECT_EQ(told(), (Lines(3, "Vm::MonitorCommandArgs.arg[fd]")));
}

TEST_F(MonitorRecords, ArgumentsAreReadAndDeletedByGenericAccess) {
  args_->argIs({"fd", 7, ""});
  args_->argIs({"nicId", 0, "net0"});
  const auto* const arg = args_->type().find("arg");
  ASSERT_NE(arg, nullptr);
  EXPECT_EQ(arg->keys(*args_), (std::vector<rt::String>{"fd", "nicId"}));
  EXPECT_EQ(arg->memberText(*args_, "fd"), args_->arg("fd").text());
  arg->memberDel(*args_, "fd");
  EXPECT_EQ(args_->args().size(), 1U);
}

TEST_F(MonitorRecords, CounterIsWhatItWasMadeWith) {
  EXPECT_EQ(rt::make<MonitorInput>(7U)->counter(), 7U);
  EXPECT_EQ(rt::make<MonitorOutput>(8U)->counter(), 8U);
}

TEST_F(MonitorRecords, StateIsWhatItWasMadeWith) {
  EXPECT_EQ(rt::make<MonitorStatus>(MonitorState::uninitialized)->state(),
            MonitorState::uninitialized);
  EXPECT_EQ(rt::make<MonitorStatus>(MonitorState::connected)->state(), MonitorState::connected);
}

TEST_F(MonitorRecords, InputTellsOfChangesOnly) {
  watch(input_);
  for (int i = 0; i < 2; ++i) {
    input_->cmdIs(MonitorCommand::startVm);
    input_->cmdArgsIs(args_);
    input_->counterIs(5);
  }
  EXPECT_EQ(told(), (Lines{"Vm::MonitorInput.cmd = startVm", "Vm::MonitorInput.cmdArgs",
                           "Vm::MonitorInput.counter = 5"}));
}

TEST_F(MonitorRecords, CounterIncrementIsAlwaysTold) {
  watch(input_);
  watch(output_);
  input_->counterInc(1);
  input_->counterInc(1);
  output_->counterInc(3);
  EXPECT_EQ(told(), (Lines{"Vm::MonitorInput.counter = 1", "Vm::MonitorInput.counter = 2",
                           "Vm::MonitorOutput.counter = 3"}));
}

TEST_F(MonitorRecords, CounterStartsAgainBehindItsLargestValue) {
  output_->counterIs(4294967295);
  output_->counterInc(2);
  EXPECT_EQ(output_->counter(), 1U);
}

TEST_F(MonitorRecords, InputKeepsItsArgumentsAlive) {
  input_->cmdArgsIs(rt::make<MonitorCommandArgs>());
  ASSERT_TRUE(input_->cmdArgs());
  EXPECT_EQ(input_->cmdArgs()->arg("fd").u32Val, 0U);
  input_->cmdArgsIs(nullptr);
  EXPECT_FALSE(input_->cmdArgs());
}

TEST_F(MonitorRecords, OutputTellsOfChangesOnly) {
  watch(output_);
  for (int i = 0; i < 2; ++i) {
    output_->cmdIs(MonitorCommand::queryStatus);
    output_->cmdStatusIs(MonitorCommandStatus::failure);
    output_->valIs("Running");
    output_->cmdIdIs(3);
    output_->counterIs(1);
  }
  EXPECT_EQ(told(),
            (Lines{"Vm::MonitorOutput.cmd = queryStatus", "Vm::MonitorOutput.cmdStatus = failure",
                   "Vm::MonitorOutput.val = Running", "Vm::MonitorOutput.cmdId = 3",
                   "Vm::MonitorOutput.counter = 1"}));
}

TEST_F(MonitorRecords, StatusTellsOfChangesOnly) {
  const auto status = rt::make<MonitorStatus>(MonitorState::uninitialized);
  watch(status);
  status->stateIs(MonitorState::uninitialized);
  status->stateIs(MonitorState::connected);
  status->stateIs(MonitorState::connected);
  EXPECT_EQ(told(), (Lines{"Vm::MonitorStatus.state = connected"}));
}

TEST_F(MonitorRecords, ScalarsAreWrittenByGenericAccess) {
  rt::attributeTextIs(*output_, "cmd", "backendDel");
  rt::attributeTextIs(*output_, "cmdStatus", "failure");
  rt::attributeTextIs(*output_, "cmdId", "12");
  rt::attributeTextIs(*output_, "val", "some text");
  rt::attributeTextIs(*output_, "counter", "4");
  EXPECT_EQ(output_->cmd(), MonitorCommand::backendDel);
  EXPECT_EQ(output_->cmdStatus(), MonitorCommandStatus::failure);
  EXPECT_EQ(output_->cmdId(), 12U);
  EXPECT_EQ(output_->val(), "some text");
  EXPECT_EQ(output_->counter(), 4U);
  EXPECT_THROW(rt::attributeTextIs(*input_, "cmd", "stopVm"), rt::AttributeException);
}

TEST_F(MonitorRecords, TypesAreRegisteredAtLoad) {
  for (const char* name : {"Vm::MonitorCommandArgs", "Vm::MonitorInput", "Vm::MonitorOutput",
                           "Vm::MonitorStatus", "Vm::MonitorSm"})
    EXPECT_NE(rt::typeRegistry().type(name), nullptr) << name;
}

}  // namespace

}  // namespace Vm
