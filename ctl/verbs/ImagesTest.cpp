// Disk images as operators name them: what they are opened as, and what is said of them.
#include <cerrno>

#include "ctl/fakes/VmctlFixture.h"

namespace ctl {
namespace {

using fakes::Answer;
using testing::HasSubstr;
using testing::Not;

model::ImageFacts beginning(std::string_view head) {
  model::ImageFacts facts;
  facts.kind = model::ImageFacts::Kind::regular;
  facts.size = model::smallestImage;
  std::copy(head.begin(), head.end(), facts.head.begin());
  return facts;
}

constexpr std::string_view plainQcow2("QFI\xfb\0\0\0\3", 8);

class ImageVerb : public fakes::VmctlFixture {
 protected:
  ImageVerb() {
    images_["/q.qcow2"] = beginning(plainQcow2);
    images_["/d.vmdk"] = beginning("KDMV");
  }
  static std::string rowOf(const std::string& path, const std::string& format) {
    return R"({"diskImage":")" + path + R"(","format":")" + format + R"("})";
  }
  std::string row(const char* vm = "web1") { return doc("vmImage", vm); }
  Answer apply(const std::string& document, const std::string& options = "") {
    files_["/vms.json"] = document;
    return vmctl("apply -f /vms.json " + options);
  }
};

// add

TEST_F(ImageVerb, AddedIsWhatItBeginsAs) {
  vmctl("add web1 --disk /a.img");
  EXPECT_EQ(row(), rowOf("/a.img", "raw"));
  vmctl("add web2 --disk /q.qcow2");
  EXPECT_EQ(row("web2"), rowOf("/q.qcow2", "qcow2"));
}

TEST_F(ImageVerb, AddedIsWhatTheOperatorSays) {
  EXPECT_EQ(vmctl("add web1 --disk /q.qcow2 --format raw"),
            (Answer{0, "",
                    "vmctl: web1: warning: the disk image '/q.qcow2' is opened as raw, though it "
                    "begins as qcow2 does\n"
                    "web1: added\n"}));
  EXPECT_EQ(row(), rowOf("/q.qcow2", "raw"));
}

TEST_F(ImageVerb, AddedWithAFormatThatIsNoneIsRefused) {
  EXPECT_EQ(vmctl("add web1 --disk /a.img --format vmdk --memory 0"),
            (Answer{5, "",
                    "vmctl: web1: format: 'vmdk' is refused: must be raw or qcow2\n"
                    "vmctl: web1: memory: '0' is refused: must be 1 to 8192 (mebibytes; this "
                    "machine has no more)\n"}));
  EXPECT_EQ(vmctl({"add", "web1", "--disk", "/a.img", "--format", ""}).exit, 5);
  EXPECT_EQ(row(), "none");
}

TEST_F(ImageVerb, ThatCannotBeToldNowIsLeftToTheDaemon) {
  missingImages_ = {"/a.img"};
  EXPECT_EQ(vmctl("add web1 --disk /a.img").exit, 0);
  EXPECT_EQ(row(), "none");
  EXPECT_THAT(vmctl("add web2 --disk /d.vmdk").err, HasSubstr("this is VMDK"));
  EXPECT_EQ(row("web2"), "none");
  vmctl("add web3 --disk /a.img --format qcow2");
  EXPECT_EQ(row("web3"), rowOf("/a.img", "qcow2"));
}

TEST_F(ImageVerb, OfAVmOfThatNameBeforeIsForgotten) {
  put("vmImage", "web1", rowOf("/q.qcow2", "raw"));
  vmctl("add web1 --disk /q.qcow2");
  EXPECT_EQ(row(), rowOf("/q.qcow2", "qcow2"));
}

// set

TEST_F(ImageVerb, SetIsWhatItBeginsAsOnlyWhenItIsAnotherThanBefore) {
  vmctl("add web1 --disk /a.img");
  images_["/a.img"] = beginning(plainQcow2);  // its guest's work
  EXPECT_EQ(vmctl("set web1 diskImage=/a.img").err,
            "vmctl: web1: warning: the disk image '/a.img' is opened as raw, though it begins as "
            "qcow2 does\n"
            "web1: was so already\n");
  EXPECT_EQ(row(), rowOf("/a.img", "raw"));
  vmctl("set web1 diskImage=/q.qcow2");
  EXPECT_EQ(row(), rowOf("/q.qcow2", "qcow2"));
  missingImages_ = {"/gone.img"};
  vmctl("set web1 diskImage=/gone.img");
  EXPECT_EQ(row(), "none") << "what was said of another image";
}

TEST_F(ImageVerb, SetWithAFormatIsThat) {
  vmctl("add web1 --disk /a.img --enabled");
  putRunning("web1");
  EXPECT_EQ(vmctl("set web1 format=raw"), (Answer{0, "", "web1: was so already\n"}));
  EXPECT_EQ(vmctl("set web1 memory=256"), (Answer{0, "", "web1: was so already\n"}));
  EXPECT_THAT(vmctl("set web1 format=qcow2").err,
              HasSubstr("web1: changed; takes effect at the next start ('vmctl restart web1')\n"));
  EXPECT_EQ(row(), rowOf("/a.img", "qcow2"));
  vmctl("set web1 diskImage=/q.qcow2 format=raw");
  EXPECT_EQ(row(), rowOf("/q.qcow2", "raw"));
  EXPECT_EQ(vmctl("set web1 format=vhd memory=512"),
            (Answer{5, "", "vmctl: web1: format: 'vhd' is refused: must be raw or qcow2\n"}));
  EXPECT_THAT(doc("vmConfig", "web1"), HasSubstr(R"("memory":256)"));
}

TEST_F(ImageVerb, OfAForeignRowIsNotLookedAtForWhatHasNothingToDoWithIt) {
  putVm("web1", true);
  vmctl("set web1 memory=512");
  vmctl("disable web1");
  EXPECT_EQ(looks_, 0);
  EXPECT_EQ(row(), "none");
}

TEST_F(ImageVerb, GoesWithItsVm) {
  vmctl("add web1 --disk /a.img");
  vmctl("remove web1");
  EXPECT_EQ(row(), "none");
  vmctl("add web1 --disk /a.img");
  apply(R"({"version":1,"vms":[]})", "--prune");
  EXPECT_EQ(row(), "none");
}

// Looks.

TEST_F(ImageVerb, IsLookedAtOnceAVerb) {
  vmctl("add web1 --disk /a.img");
  EXPECT_EQ(looks_, 1);
}

TEST_F(ImageVerb, OnFileSystemsThatDoNotAnswerTakesFiveSecondsInAll) {
  for (const char* path : {"/far/1", "/far/2", "/far/3"})
    images_[path] = model::unreadable(ETIMEDOUT);
  lookTakes_ = 5;
  const Answer answer = apply(
      R"({"version":1,"vms":[{"name":"a","config":{"diskImage":"/far/1"}},)"
      R"({"name":"b","config":{"diskImage":"/far/2"}},{"name":"c","config":{"diskImage":"/far/3"}}]})");
  EXPECT_EQ(answer.exit, 0);
  EXPECT_EQ(looks_, 1);
  EXPECT_THAT(answer.err, HasSubstr("'/far/3' cannot be used now: it must answer within 5 s"));
}

// Documents.

constexpr const char* web1 = R"({"name":"web1","config":{"diskImage":"/a.img"})";

TEST_F(ImageVerb, OfADocumentIsWhatThatSaysOrWhatItBeginsAs) {
  apply(std::string(web1) + "}");
  EXPECT_EQ(row(), rowOf("/a.img", "raw"));
  EXPECT_EQ(apply(std::string(web1) + R"(,"format":"qcow2"})", "--dry-run").out,
            "change web1: format=\"qcow2\"\n");
  EXPECT_EQ(row(), rowOf("/a.img", "raw"));
  EXPECT_THAT(apply(std::string(web1) + R"(,"format":"qcow2"})").err,
              HasSubstr("web1: changed: format=\"qcow2\"\n"));
  EXPECT_EQ(row(), rowOf("/a.img", "qcow2"));
  for (const char* nothing : {"}", R"(,"format":null})"}) {
    EXPECT_EQ(apply(web1 + std::string(nothing)).err, "nothing to change\n");
    EXPECT_EQ(row(), rowOf("/a.img", "qcow2")) << "an old document says nothing of it";
  }
}

TEST_F(ImageVerb, OfADocumentWithAFormatThatIsNoneIsRefused) {
  EXPECT_EQ(apply(std::string(web1) + R"(,"format":"vmdk"})"),
            (Answer{5, "", "vmctl: web1: format: 'vmdk' is refused: must be raw or qcow2\n"}));
  EXPECT_EQ(apply(std::string(web1) + R"(,"format":7})").exit, 5);
}

TEST_F(ImageVerb, IsTheSameAfterAnExportAndItsApplication) {
  vmctl("add web1 --disk /q.qcow2 --format raw");
  vmctl("add web2 --disk /q.qcow2");
  const std::string exported = vmctl("export").out;
  EXPECT_THAT(exported, HasSubstr("\"format\": \"raw\""));
  EXPECT_EQ(apply(exported).err, "nothing to change\n");
  vmctl("remove web1 web2");
  apply(exported);
  EXPECT_EQ(row("web1"), rowOf("/q.qcow2", "raw"));
  EXPECT_EQ(row("web2"), rowOf("/q.qcow2", "qcow2"));
}

TEST_F(ImageVerb, IsEditedWithItsVm) {
  vmctl("add web1 --disk /a.img");
  onEdit([](const std::string& text) {
    std::string edited = text;
    return edited.replace(edited.find("\"raw\""), 5, "\"qcow2\"");
  });
  EXPECT_THAT(vmctl("edit web1").err, HasSubstr("web1: changed: format=\"qcow2\"\n"));
  EXPECT_EQ(row(), rowOf("/a.img", "qcow2"));
}

TEST_F(ImageVerb, ThatIsReplacedInAnEditorIsWhatItBeginsAs) {
  vmctl("add web1 --disk /a.img");
  onEdit([](const std::string& text) {
    std::string edited = text;
    return edited.replace(edited.find("/a.img"), 6, "/q.qcow2");
  });
  EXPECT_EQ(vmctl("edit web1").err, "web1: changed: diskImage=\"/q.qcow2\"\n");
  EXPECT_EQ(row(), rowOf("/q.qcow2", "qcow2")) << "the editor's text said raw, of the one before";
}

// What is shown.

TEST_F(ImageVerb, IsShownWithWhatItIsOpenedAs) {
  vmctl("add web1 --disk /q.qcow2");
  EXPECT_THAT(vmctl("show web1").out, HasSubstr("Format:   qcow2\n"));
  EXPECT_THAT(vmctl("show web1 -o json").out, HasSubstr("\"format\": \"qcow2\",\n"));
  EXPECT_THAT(vmctl("list -o json").out, HasSubstr("\"format\": \"qcow2\",\n"));
  put("vmImage", "web1", rowOf("/other.img", "raw"));
  EXPECT_THAT(vmctl("show web1").out, HasSubstr("Format:   -\n"));
}

// Of two.

TEST_F(ImageVerb, OfAnotherVmIsWarnedOf) {
  vmctl("add web1 --disk /a.img");
  EXPECT_EQ(vmctl("add web2 --disk /a.img").err,
            "vmctl: web2: warning: the disk image '/a.img' is VM 'web1's, too: one of the two can "
            "run at a time\n"
            "web2: added\n");
  vmctl("set web2 diskImage=/b.img");
  EXPECT_THAT(vmctl("set web2 diskImage=/a.img").err, HasSubstr("is VM 'web1's, too"));
  EXPECT_THAT(vmctl("set web2 memory=512").err, Not(HasSubstr("web1"))) << "it is known by now";
  EXPECT_THAT(
      apply(R"({"version":1,"vms":[{"name":"web3","config":{"diskImage":"/a.img"}}]})", "--prune")
          .err,
      Not(HasSubstr("one of the two")));
}

TEST_F(ImageVerb, ThatIsACdMayBeAnyNumberOfVms) {
  vmctl("add web1 --disk /cd.iso");
  EXPECT_EQ(vmctl("add web2 --disk /cd.iso").err, "web2: added\n");
}

TEST_F(ImageVerb, ThatTheMachineUsesIsWarnedOfUnlessItIsTheGuestThatDoes) {
  images_["/dev/sda"] = beginning("");
  images_["/dev/sda"].isInUse = true;
  EXPECT_EQ(vmctl("add web1 --disk /dev/sda").err,
            "vmctl: web1: warning: the disk image '/dev/sda' cannot be used now: the machine has "
            "it mounted, or made it part of something else\n"
            "web1: added\n");
  putRunning("web1");
  EXPECT_THAT(vmctl("set web1 enabled=true").err, Not(HasSubstr("mounted")));
}

}  // namespace
}  // namespace ctl
