// What others call our verbs, and the slips of fingers.
#include <regex>
#include <set>

#include "ctl/fakes/VmctlFixture.h"
#include "ctl/line/Synonyms.h"
#include "ctl/verbs/Verbs.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;
using testing::Not;

class Synonyms : public fakes::VmctlFixture {
 protected:
  // What is said of a verb that there is not.
  std::string saidOf(const std::string& verb) {
    const Answer answer = vmctl(verb + " web1");
    EXPECT_EQ(answer.exit, 2) << verb;
    return answer.err;
  }
  static std::vector<std::string> theirs() {
    std::vector<std::string> all;
    for (const Synonym& synonym : synonyms()) {
      std::istringstream names{std::string(synonym.theirs)};
      for (std::string name; std::getline(names, name, ',');) all.push_back(name);
    }
    return all;
  }
};

TEST_F(Synonyms, EndingAGuestAndDeletingItsVmAreToldApart) {
  for (const char* verb : {"destroy", "kill"})
    EXPECT_EQ(saidOf(verb), std::string("vmctl: there is no verb '") + verb +
                                "': 'vmctl stop NAME --now' ends a guest at once; 'vmctl remove "
                                "NAME' deletes its configuration\n");
  EXPECT_THAT(saidOf("undefine"), HasSubstr("'vmctl remove NAME' deletes"));
  EXPECT_THAT(saidOf("shutdown"), HasSubstr("'vmctl stop NAME' has a guest shut down"));
}

TEST_F(Synonyms, OfHarmlessWordsLeadToNothingHarmful) {
  for (const char* verb : {"stats", "import", "get", "ps", "describe"})
    for (const char* harmful : {"stop", "remove", "restart", "'export'"})
      EXPECT_THAT(saidOf(verb), Not(HasSubstr(harmful))) << verb;
  EXPECT_THAT(saidOf("import"), HasSubstr("'vmctl apply -f FILE'"));
}

TEST_F(Synonyms, AreNoVerbsOfOursAndEachIsThereOnce) {
  std::set<std::string> seen;
  for (const std::string& verb : theirs()) {
    EXPECT_FALSE(verbNamed(verb)) << verb;
    EXPECT_TRUE(seen.insert(verb).second) << verb;
    EXPECT_THAT(saidOf(verb), HasSubstr("': ")) << verb;
  }
  EXPECT_GE(seen.size(), 60U);
}

TEST_F(Synonyms, NameVerbsAndOptionsThatThereAre) {
  const std::regex command("vmctl ([a-z]+)( (add|set|remove|list))?([^']*)'");
  size_t count = 0;
  for (const Synonym& synonym : synonyms()) {
    const std::string text(synonym.ours);
    for (std::sregex_iterator each(text.begin(), text.end(), command), end; each != end; ++each) {
      ++count;
      const Verb* const verb = verbNamed((*each)[1].str() + (*each)[2].str());
      ASSERT_TRUE(verb) << text;
      std::istringstream words((*each)[4].str());
      for (std::string word; words >> word;) {
        if (word[0] != '-') continue;
        const std::string name = word == "-f" ? "file" : word == "-o" ? "output" : word.substr(2);
        const auto options = allOptions();
        EXPECT_TRUE(std::any_of(options.begin(), options.end(), [&](const Option& option) {
          return option.name == name && takes(*verb, option);
        })) << text;
      }
    }
  }
  EXPECT_GE(count, 30U);
}

TEST_F(Synonyms, OfTwoWordsAreKnownToo) {
  EXPECT_THAT(saidOf("nic list"), HasSubstr("no verb 'nic list': 'vmctl show NAME' has"));
}

TEST_F(Synonyms, AreNotNeededWhereALetterIsWrong) {
  EXPECT_THAT(saidOf("remvoe"), HasSubstr("did you mean 'remove'?"));
  EXPECT_THAT(saidOf("dsable"), HasSubstr("did you mean 'disable'?"));
  EXPECT_THAT(saidOf("shop"), HasSubstr("did you mean 'show'?")) << "and not 'stop'";
  EXPECT_THAT(saidOf("rn"), Not(HasSubstr("did you mean")));
}

}  // namespace
}  // namespace ctl
