#include <gtest/gtest.h>

#include <limits>

#include "runtime/base/Text.h"

namespace rt {
namespace {

enum class Colour : uint8_t { red, green, blue };
constexpr EnumNames<3> enumNames(Colour) { return {"red", "green", "blue"}; }

TEST(Text, EnumerationIsReadAndWrittenByName) {
  const std::pair<Colour, const char*> all[] = {
      {Colour::red, "red"}, {Colour::green, "green"}, {Colour::blue, "blue"}};
  for (const auto& [colour, name] : all) {
    EXPECT_EQ(toText(colour), name);
    EXPECT_EQ(fromText<Colour>(name), colour);
  }
}

TEST(Text, EnumerationValueWithoutANameIsItsNumber) {
  EXPECT_EQ(toText(static_cast<Colour>(3)), "3");
  EXPECT_EQ(toText(static_cast<Colour>(255)), "255");
}

TEST(Text, EnumerationRefusesWhatIsNoName) {
  for (const char* text : {"", "Red", "red ", "re", "0", "3"})
    EXPECT_EQ(fromText<Colour>(text), std::nullopt) << text;
}

TEST(Text, TruthValuesAreTheirWords) {
  EXPECT_EQ(toText(true), "true");
  EXPECT_EQ(toText(false), "false");
  EXPECT_EQ(fromText<bool>("true"), true);
  EXPECT_EQ(fromText<bool>("false"), false);
  for (const char* text : {"", "1", "0", "TRUE", "yes", "true "})
    EXPECT_EQ(fromText<bool>(text), std::nullopt) << text;
}

// The least and the greatest number of a type, and their neighbours outside it.
template <class T>
void expectLimits(const char* below, const char* least, const char* greatest, const char* above) {
  using Limits = std::numeric_limits<T>;
  EXPECT_EQ(fromText<T>(below), std::nullopt);
  EXPECT_EQ(fromText<T>(least), Limits::min());
  EXPECT_EQ(fromText<T>(greatest), Limits::max());
  EXPECT_EQ(fromText<T>(above), std::nullopt);
  EXPECT_EQ(toText(Limits::min()), least);
  EXPECT_EQ(toText(Limits::max()), greatest);
}

TEST(Text, NumbersReachTheLimitsOfTheirTypeAndNoFurther) {
  expectLimits<uint8_t>("-1", "0", "255", "256");
  expectLimits<int8_t>("-129", "-128", "127", "128");
  expectLimits<uint16_t>("-1", "0", "65535", "65536");
  expectLimits<uint32_t>("-1", "0", "4294967295", "4294967296");
  expectLimits<int32_t>("-2147483649", "-2147483648", "2147483647", "2147483648");
  expectLimits<uint64_t>("-1", "0", "18446744073709551615", "18446744073709551616");
  expectLimits<int64_t>("-9223372036854775809", "-9223372036854775808", "9223372036854775807",
                        "9223372036854775808");
}

TEST(Text, NumberIsTheWholeTextOrNothing) {
  for (const char* text : {"", " 1", "1 ", "+1", "0x1", "1.0", "1e3", "one", "--1", "1,2"})
    EXPECT_EQ(fromText<int32_t>(text), std::nullopt) << text;
  EXPECT_EQ(fromText<int32_t>(std::string_view("1\0", 2)), std::nullopt);
}

TEST(Text, SecondsComeBackAsTheyWere) {
  for (const double value : {0.0, 5.0, 0.1, -2.5, 1e-9, 1234567.875, 1.0 / 3}) {
    const Seconds seconds(value);
    EXPECT_EQ(fromText<Seconds>(toText(seconds)), seconds) << value;
  }
  EXPECT_EQ(toText(Seconds(5)), "5");
  EXPECT_EQ(toText(Seconds(0.25)), "0.25");
}

TEST(Text, SecondsAreFiniteWhenReadAndNothingElse) {
  for (const char* text : {"", "inf", "-inf", "nan", "5s", " 5", "1e999", "0x1p3"})
    EXPECT_EQ(fromText<Seconds>(text), std::nullopt) << text;
}

TEST(Text, StringIsItself) {
  const String text("a\0b ", 4);
  EXPECT_EQ(toText(text), text);
  EXPECT_EQ(fromText<String>(std::string_view("a\0b ", 4)), text);
}

TEST(Text, TypesHaveNamesAndForms) {
  EXPECT_EQ(valueTypeName<bool>(), "bool");
  EXPECT_EQ(valueTypeName<String>(), "String");
  EXPECT_EQ(valueTypeName<Seconds>(), "Seconds");
  EXPECT_EQ(valueTypeName<Colour>(), "enumeration");
  EXPECT_EQ(valueTypeName<uint8_t>(), "uint8");
  EXPECT_EQ(valueTypeName<int16_t>(), "int16");
  EXPECT_EQ(valueTypeName<uint32_t>(), "uint32");
  EXPECT_EQ(valueTypeName<int64_t>(), "int64");
  EXPECT_EQ(valueForm<bool>(), ValueForm::boolean);
  EXPECT_EQ(valueForm<uint8_t>(), ValueForm::number);
  EXPECT_EQ(valueForm<Seconds>(), ValueForm::number);
  EXPECT_EQ(valueForm<Colour>(), ValueForm::text);
  EXPECT_EQ(valueForm<String>(), ValueForm::text);
}

TEST(Text, SecondsAddSubtractAndOrder) {
  EXPECT_EQ(Seconds(1.5) + Seconds(2), Seconds(3.5));
  EXPECT_EQ(Seconds(1.5) - Seconds(2), Seconds(-0.5));
  EXPECT_TRUE(Seconds(1) < Seconds(2));
  EXPECT_TRUE(Seconds(1e300) < Seconds::infinity());
  EXPECT_EQ(Seconds(), Seconds(0));
}

}  // namespace
}  // namespace rt
