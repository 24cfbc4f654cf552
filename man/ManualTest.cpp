// The manual names all there is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

#include "ctl/verbs/Verbs.h"
#include "host/Options.h"
#include "model/VmConfigCheck.h"
#include "model/VmFields.h"

namespace {

using testing::HasSubstr;

std::string page(const std::string& name) {
  std::ifstream file(std::string(MANUAL) + "/" + name + ".scd");
  return {std::istreambuf_iterator<char>(file), {}};
}

// A name as it stands where it is explained.
std::string bold(std::string_view name) { return "*" + std::string(name) + "*"; }

TEST(Manual, HasEachVerbOfVmctl) {
  const std::string manual = page("vmctl.1");
  for (const ctl::Verb& verb : ctl::verbs()) {
    if (verb.summary.empty()) continue;
    EXPECT_THAT(manual, HasSubstr("\n" + bold(verb.name)));
    if (verb.alias.empty()) continue;
    EXPECT_THAT(manual, HasSubstr("\n" + bold(verb.alias)));
  }
}

TEST(Manual, HasEachOptionOfVmctl) {
  const std::string manual = page("vmctl.1");
  for (const ctl::Option& option : ctl::allOptions()) {
    std::string entry = "\n";
    if (option.letter != 0) entry += bold("-" + std::string(1, option.letter)) + ", ";
    entry += bold("--" + std::string(option.name));
    if (!option.argument.empty()) entry += " _";
    EXPECT_THAT(manual, HasSubstr(entry + (option.argument.empty() ? "\n" : "")));
  }
}

TEST(Manual, HasEachOptionOfEachVerbWithIt) {
  const std::string manual = page("vmctl.1");
  for (const ctl::Verb& verb : ctl::verbs()) {
    if (verb.summary.empty()) continue;
    const size_t begin = manual.find("\n" + bold(verb.name));
    ASSERT_NE(begin, std::string::npos) << verb.name;
    const std::string synopsis = manual.substr(begin, manual.find("\n\t", begin) - begin);
    for (const ctl::Option& option : ctl::allOptions()) {
      if (!ctl::takes(verb, option) || ctl::isGlobal(option)) continue;
      const std::string shown = option.letter != 0 ? "-" + std::string(1, option.letter)
                                                   : "--" + std::string(option.name);
      EXPECT_THAT(synopsis, HasSubstr(bold(shown))) << verb.name;
    }
  }
}

TEST(Manual, HasEachExitOfVmctl) {
  const std::string manual = page("vmctl.1");
  for (int exit = 0; exit <= static_cast<int>(ctl::Exit::timedOut); ++exit)
    EXPECT_THAT(manual, HasSubstr("\n" + bold(std::to_string(exit)) + "\n\t"));
}

TEST(Manual, HasEachOptionOfVmagentd) {
  const std::string manual = page("vmagentd.8");
  const char* const words[] = {"--help"};
  const std::string help = host::readCommandLine(words, {}).text.str();
  const std::regex option("--[a-z-]+");
  std::set<std::string> options;
  for (std::sregex_iterator each(help.begin(), help.end(), option), end; each != end; ++each)
    options.insert(each->str());
  EXPECT_GE(options.size(), 9U);
  for (const std::string& each : options) EXPECT_THAT(manual, HasSubstr("\n" + bold(each)));
}

TEST(Manual, HasEachFieldOfAVm) {
  const std::string manual = page("vmagent-config.5");
  for (const model::VmField& field : model::vmFields()) {
    const std::string prefix = field.isOfCard ? "vnicConfig\\.KEY\\." : "";
    EXPECT_THAT(manual,
                testing::ContainsRegex("\n\\*" + prefix + std::string(field.name) + "\\* \\("));
  }
}

TEST(Manual, HasEachModelOfCards) {
  const std::string manual = std::regex_replace(page("vmagent-config.5"), std::regex("\\\\_"), "_");
  for (const std::string_view model : model::nicModels())
    EXPECT_THAT(manual, testing::ContainsRegex("[ \t]" + std::string(model) + "[,.]"));
}

}  // namespace
