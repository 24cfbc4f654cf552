// The manual names all there is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <string>

#include "ctl/verbs/Verbs.h"
#include "ctl/view/MetricsText.h"
#include "host/Options.h"
#include "model/Event.h"
#include "model/ProblemSource.h"
#include "model/StatusRecords.h"
#include "model/Tables.h"
#include "model/VmCard.h"
#include "model/VmConfigCheck.h"
#include "model/VmFields.h"
#include "model/VmImage.h"
#include "model/VmIntent.h"
#include "model/VmOwn.h"
#include "runtime/records/Interface.h"
#include "runtime/records/VmStatus.h"

namespace {

using testing::HasSubstr;

std::string page(const std::string& name) {
  const std::string path = std::string(MANUAL) + "/" + name;
  std::ifstream file(name.ends_with(".md") ? path : path + ".scd");
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
  for (int exit = 0; exit <= static_cast<int>(ctl::Exit::differs); ++exit)
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

TEST(Manual, HasEachTableOfTheDatabase) {
  const std::string manual = page("vmagent-database.5");
  const size_t status = manual.find("\n# STATUS\n");
  ASSERT_NE(status, std::string::npos);
  for (const model::Table& table : model::tables) {
    const size_t entry = manual.find("\n" + bold(table.name) + ", by ");
    ASSERT_NE(entry, std::string::npos) << table.name;
    EXPECT_EQ(entry > status, table.isStatus) << table.name;
  }
}

TEST(Manual, AgreesOnTheTablesWithTheOverviewOfThem) {
  const std::string overview = page("../docs/database.md");
  for (const model::Table& table : model::tables)
    EXPECT_THAT(overview, testing::ContainsRegex(
                              "\n\\| `" + std::string(table.name) + "` \\| [^|]* \\| [^|]* \\| `" +
                              (table.isStatus ? "status" : "config") + "\\.db` \\|\n"));
}

TEST(Manual, HasEachFieldOfEachRow) {
  const std::string manual = page("vmagent-database.5");
  const std::map<std::string_view, rt::Ptr<rt::Entity>> records{
      {model::table::vmImage, rt::make<model::VmImage>("")},
      {model::table::vmLimits, rt::make<model::VmLimits>("")},
      {model::table::vmPolicy, rt::make<model::VmPolicy>("")},
      {model::table::vmIntent, rt::make<model::VmIntent>("")},
      {model::table::interface, rt::make<Interface::IntfStatus>(rt::IntfId("Vlan1"))},
      {model::table::daemon, rt::make<model::DaemonStatus>("")},
      {model::table::vmStatus, rt::make<Vm::VmStatus>("")},
      {model::table::vmProcess, rt::make<model::VmProcess>("")},
      {model::table::vmProblem, rt::make<model::VmProblem>("")},
      {model::table::vmCard, rt::make<model::VmCard>("")},
      {model::table::interfaceStatus, rt::make<model::InterfaceStatus>("")},
      {model::table::fdb, rt::make<model::FdbEntry>("")},
      {model::table::event, rt::make<model::Event>("")}};
  // vmConfig has a page of its own, which documents of what was removed are as of.
  EXPECT_EQ(records.size() + 2, model::tables.size());
  for (const auto& [table, record] : records) {
    const size_t begin = manual.find("\n" + bold(table) + ", by ");
    const std::string entry = manual.substr(begin, manual.find("\n\n", begin) - begin);
    for (const rt::AttributeInfo& attribute : record->type().attributes)
      if (attribute.textIs)
        EXPECT_THAT(entry, testing::ContainsRegex("[\"_]" + std::string(attribute.name) + "[\"_]"))
            << table;
  }
}

TEST(Manual, HasEachSourceOfProblemsInTheOrderOfTheirWeight) {
  const std::string manual = page("vmagent-database.5");
  size_t at = manual.find("\n*vmProblem*, by ");
  for (const std::string_view source : model::problemSources) {
    at = manual.find(bold(source) + " (", at);
    ASSERT_NE(at, std::string::npos) << source;
  }
}

TEST(Manual, HasEachFamilyOfMetrics) {
  const std::string manual = std::regex_replace(page("vmctl.1"), std::regex(R"(\\_)"), "_");
  ctl::MetricsFacts facts;
  facts.daemon = rt::make<model::DaemonStatus>("");
  const std::string text = ctl::metricsText(facts).str();
  const std::regex family("# TYPE ([a-z_]+) ");
  size_t count = 0;
  for (std::sregex_iterator each(text.begin(), text.end(), family), end; each != end; ++each) {
    ++count;
    EXPECT_THAT(manual, HasSubstr("_" + (*each)[1].str() + "_"));
  }
  EXPECT_GE(count, 30U);
}

TEST(Manual, HasEachModelOfCards) {
  const std::string manual = std::regex_replace(page("vmagent-config.5"), std::regex("\\\\_"), "_");
  for (const std::string_view model : model::nicModels())
    EXPECT_THAT(manual, testing::ContainsRegex("[ \t]" + std::string(model) + "[,.]"));
}

}  // namespace
