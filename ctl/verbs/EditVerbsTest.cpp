#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "ctl/fakes/VmctlFixture.h"
#include "ctl/machine/TemporaryFile.h"
#include "runtime/base/Exception.h"
#include "runtime/base/fakes/TestFolder.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::ElementsAre;

constexpr const char* head =
    "# This is web1. Save it to change it; leave it as it is to change nothing.\n"
    "# Lines at the top that begin with # are passed over.\n";
constexpr const char* tail =
    "# So nothing was written. Mend it, or leave it as it is to give up.\n";
constexpr const char* document =
    "{\n"
    "  \"name\": \"web1\",\n"
    "  \"config\": {\n"
    "    \"enabled\": false,\n"
    "    \"diskImage\": \"/images/web.iso\",\n"
    "    \"memory\": 256,\n"
    "    \"vncPort\": 0,\n"
    "    \"vnicConfig\": {}\n"
    "  }\n"
    "}\n";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

class EditVerb : public fakes::VmctlFixture {
 protected:
  EditVerb() { putVm("web1", false); }
  void onReplace(const std::string& from, const std::string& to) {
    onEdit([=](const std::string& text) { return replaced(text, from, to); });
  }
};

TEST_F(EditVerb, WritesWhatWasMadeOfTheDocument) {
  onReplace("256", "512");
  EXPECT_EQ(vmctl("edit web1"), (Answer{0, "", "web1: changed: memory=512\n"}));
  EXPECT_THAT(edited_, ElementsAre(std::string(head) + document));
  EXPECT_THAT(doc("vmConfig", "web1"), testing::HasSubstr("\"memory\":512"));
}

TEST_F(EditVerb, WritesNothingWhenNothingWasChanged) {
  beforeCommit([] { FAIL() << "something was written"; });
  EXPECT_EQ(vmctl("edit web1"), (Answer{0, "", "web1: nothing changed\n"}));
  onReplace("# This", "# That");
  EXPECT_EQ(vmctl("edit web1"), (Answer{0, "", "web1: nothing changed\n"}));
  onReplace("  \"config\"", "    \"config\"");
  EXPECT_EQ(vmctl("edit web1"), (Answer{0, "", "web1: nothing changed\n"}));
}

TEST_F(EditVerb, OpensAgainWithAllThatIsWrong) {
  onReplace("256,\n    \"vncPort\": 0", "0,\n    \"vncPort\": 1");
  onReplace("\"memory\": 0", "\"memory\": 128");
  onReplace("\"vncPort\": 1", "\"vncPort\": 5900");
  EXPECT_EQ(vmctl("edit web1"), (Answer{0, "", "web1: changed: memory=128, vncPort=5900\n"}));
  ASSERT_EQ(edited_.size(), 3U);
  EXPECT_EQ(edited_[1],
            "# web1: memory: '0' is refused: must be 1 to 8192 (mebibytes; this machine has no "
            "more)\n"
            "# web1: vncPort: '1' is refused: must be 5900 to 5910, or 0 for no display\n" +
                std::string(tail) +
                replaced(document, "256,\n    \"vncPort\": 0", "0,\n    \"vncPort\": 1"));
  EXPECT_THAT(edited_[2], testing::StartsWith("# web1: vncPort: '1'"));
}

TEST_F(EditVerb, KeepsATextThatWasGivenUp) {
  onReplace("256", "0");
  EXPECT_EQ(vmctl("edit web1"),
            (Answer{5, "",
                    "vmctl: web1: memory: '0' is refused: must be 1 to 8192 (mebibytes; this "
                    "machine has no more)\n"
                    "vmctl: web1: nothing was written; your text is in /tmp/vmctl-web1\n"}));
  EXPECT_EQ(files_["/tmp/vmctl-web1"], replaced(document, "256", "0"));
  EXPECT_THAT(doc("vmConfig", "web1"), testing::HasSubstr("\"memory\":256"));
}

TEST_F(EditVerb, ShowsWhereTheTextIsNoJson) {
  onReplace("false,", "false");
  vmctl("edit web1");
  ASSERT_EQ(edited_.size(), 2U);
  EXPECT_THAT(edited_[1], testing::StartsWith("# document: must be JSON, but at line 5, column "));
}

TEST_F(EditVerb, KeepsToItsVm) {
  onReplace("web1\"", "web2\"");
  vmctl("edit web1");
  EXPECT_THAT(edited_.at(1),
              testing::StartsWith("# name: must be 'web1' and no other: 'vmctl add' makes one\n"));
  EXPECT_EQ(doc("vmConfig", "web2"), "none");
}

TEST_F(EditVerb, DoesNotOverwriteWhatSomebodyElseChanged) {
  onEdit([&](const std::string& text) {
    putVm("web1", true);
    return replaced(text, "256", "512");
  });
  EXPECT_EQ(vmctl("edit web1"),
            (Answer{4, "",
                    "vmctl: web1: somebody else changed it meanwhile, and nothing was written; "
                    "your text is in /tmp/vmctl-web1: 'vmctl apply -f' writes it all the same\n"}));
  EXPECT_EQ(files_["/tmp/vmctl-web1"], replaced(document, "256", "512"));
  EXPECT_EQ(vmctl("apply -f /tmp/vmctl-web1").exit, 0);
}

TEST_F(EditVerb, IsAWayToMendARowThatCannotBeRead) {
  put("vmConfig", "web1", R"({"memory":"much"})");
  onReplace("\"much\"", "128,\"diskImage\":\"/images/web.iso\"");
  EXPECT_EQ(vmctl("edit web1"),
            (Answer{0, "", "web1: changed: all of it: it could not be read\n"}));
  EXPECT_THAT(edited_.at(0), testing::StartsWith("# web1: memory: 'much' is refused: "));
  put("vmConfig", "web1", "[]");
  EXPECT_EQ(vmctl("edit web1").exit, 5);
  EXPECT_THAT(edited_.back(), testing::EndsWith("  \"config\": []\n}\n"));
}

TEST_F(EditVerb, TellsWhatItMeans) {
  putVm("web1", true);
  daemonRuns_ = false;
  missingImages_ = {"/images/web.iso"};
  onReplace("256", "512");
  EXPECT_EQ(vmctl("edit web1"),
            (Answer{0, "",
                    "web1: changed: memory=512 (takes effect at the next start)\n"
                    "vmctl: web1: warning: the disk image '/images/web.iso' cannot be used now: it "
                    "must be a file that can be read: No such file or directory\n"
                    "vmctl: vmagentd is not running: nothing happens until it does\n"}));
}

TEST_F(EditVerb, TakesTheEditorOfTheEnvironment) {
  vmctl("edit web1");
  EXPECT_EQ(editor_, "vi");
  environment_["EDITOR"] = "ed -s";
  vmctl("edit web1");
  EXPECT_EQ(editor_, "ed -s");
  environment_["VISUAL"] = "emacs";
  vmctl("edit web1");
  EXPECT_EQ(editor_, "emacs");
}

TEST_F(EditVerb, KnowsWhatIsNoVm) {
  EXPECT_EQ(vmctl("edit web2"),
            (Answer{3, "", "vmctl: web2: there is no such VM; did you mean 'web1'?\n"}));
}

class EditorsFile : public testing::Test {
 protected:
  bool isEmpty() const { return std::filesystem::is_empty(directory_); }

  const rt::fakes::TestFolder folder_;
  const std::string& directory_ = folder_.path();
};

TEST_F(EditorsFile, IsWhatTheEditorMadeOfIt) {
  {
    TemporaryFile file(directory_, "web1");
    EXPECT_EQ(file.edit("sed -i -e s/a/b/", "a\n"), "b\n");
    EXPECT_EQ(file.edit("sed -i -e s/x/c/", "x\n"), "c\n");
  }
  EXPECT_TRUE(isEmpty());
}

TEST_F(EditorsFile, IsForItsOwnerAlone) {
  TemporaryFile file(directory_, "web1");
  EXPECT_EQ(file.edit("stat -c %a \"$1\" >\"$1.mode\"; cp \"$1.mode\"", "x"), "600\n");
}

TEST_F(EditorsFile, TellsThatTheEditorFailed) {
  TemporaryFile file(directory_, "web1");
  try {
    file.edit("exit 3;", "x");
    FAIL();
  } catch (const rt::Exception& exception) {
    EXPECT_STREQ(
        exception.what(),
        "the editor 'exit 3;' failed, with exit 3: nothing was written; $VISUAL or $EDITOR "
        "names another one");
  }
  EXPECT_THROW(file.edit("kill -9 $$;", "x"), rt::Exception);
}

TEST_F(EditorsFile, StaysWhenItIsKept) {
  rt::String path;
  {
    TemporaryFile file(directory_, "web1");
    path = file.keep("text");
  }
  std::ifstream kept(path.str());
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), "text");
}

TEST_F(EditorsFile, NeedsADirectory) {
  EXPECT_THROW(TemporaryFile("/nowhere", "web1"), rt::ErrnoException);
}

}  // namespace
}  // namespace ctl
