#include <cerrno>

#include "ctl/fakes/VmctlFixture.h"
#include "ctl/machine/Doctor.h"

namespace ctl {
namespace {

using fakes::Answer;

class DoctorVerb : public fakes::VmctlFixture {
 protected:
  // The lines about one thing.
  std::string of(const std::string& what) {
    std::istringstream lines(vmctl("doctor").out);
    std::string found;
    bool isOf = false;
    for (std::string line; std::getline(lines, line);) {
      if (line[0] != ' ') isOf = line.compare(9, what.size() + 1, what + ":") == 0;
      if (isOf) found += line + "\n";
    }
    return found;
  }
};

TEST_F(DoctorVerb, OfAMachineThatIsWellIsDone) {
  EXPECT_EQ(vmctl("doctor"),
            (Answer{0,
                    "ok       KVM: /dev/kvm opens, and the processor has vmx\n"
                    "ok       QEMU: /usr/bin/qemu-system-x86_64, version 7.2.22\n"
                    "ok       kernel: Linux 6.1.0-44-amd64\n"
                    "ok       macvtap: the kernel has it\n"
                    "ok       tap nodes: the kernel makes them in /dev\n"
                    "ok       box: QEMU can be shut in, as one of the users 60578-61183, or of "
                    "--guest-users\n"
                    "ok       vmagent-shim: it is installed\n"
                    "ok       agent: vmagentd can load it\n"
                    "ok       state directory: /var/lib/vmagent, 12.0 GiB free\n"
                    "ok       run directory: /run/vmagent\n"
                    "ok       permissions: you can read and write both databases\n"
                    "ok       database: both halves open, and have the newest format\n"
                    "ok       vmagentd: it runs\n"
                    "ok       clock: it is set\n",
                    ""}));
}

TEST_F(DoctorVerb, TellsAProgramTheSame) {
  daemonRuns_ = false;
  const Answer answer = vmctl("doctor -o json");
  EXPECT_EQ(answer.exit, 1);
  EXPECT_THAT(answer.out, testing::StartsWith("{\n  \"version\": 1,\n  \"checks\": [\n    {\n"
                                              "      \"what\": \"KVM\",\n"
                                              "      \"result\": \"ok\",\n"
                                              "      \"finding\": \"/dev/kvm opens, and the "
                                              "processor has vmx\",\n"
                                              "      \"mend\": null\n    },\n"));
  EXPECT_THAT(answer.out,
              testing::HasSubstr(
                  "      \"what\": \"vmagentd\",\n      \"result\": \"failed\",\n"
                  "      \"finding\": \"it is not running\",\n      \"mend\": \"start it: "
                  "'systemctl start vmagentd'; 'journalctl -u vmagentd' tells why it ended\"\n"));
}

TEST_F(DoctorVerb, FailsWhenAnythingHasFailedButNotOfAWarning) {
  machine_.time = 0;
  EXPECT_EQ(vmctl("doctor").exit, 0);
  daemonRuns_ = false;
  EXPECT_EQ(vmctl("doctor").exit, 1);
}

TEST_F(DoctorVerb, ColoursItsWordsOnATerminal) {
  isTerminal_ = true;
  EXPECT_THAT(vmctl("doctor").out, testing::StartsWith("\x1b[32mok\x1b[0m       KVM: "));
}

TEST_F(DoctorVerb, WarnsThatGuestsWillBeEmulated) {
  machine_.openErrors["/dev/kvm"] = ENOENT;
  EXPECT_EQ(of("KVM"),
            "warning  KVM: /dev/kvm does not open (No such file or directory): guests will be "
            "emulated, and slow\n"
            "         load the kernel's module: 'modprobe kvm_intel'\n");
  machine_.texts["/proc/cpuinfo"] = "flags : fpu svm\n";
  EXPECT_THAT(of("KVM"), testing::HasSubstr("'modprobe kvm_amd'"));
  machine_.texts["/proc/cpuinfo"] = "model name : svm vmx\nflags : fpu\n";
  EXPECT_EQ(of("KVM"),
            "warning  KVM: /dev/kvm does not open (No such file or directory): guests will be "
            "emulated, and slow\n"
            "         the processor offers no virtualization: switch it on in the machine's "
            "firmware or, if this is a guest itself, in its host\n");
}

TEST_F(DoctorVerb, WarnsOfADeviceThatOpensOnAProcessorThatHasNothing) {
  machine_.texts["/proc/cpuinfo"] = "flags : fpu\n";
  EXPECT_EQ(of("KVM"),
            "warning  KVM: /dev/kvm opens, but the processor tells neither vmx nor svm: guests "
            "will be emulated, and slow\n"
            "         switch virtualization on in the machine's firmware, or have vmagentd use KVM "
            "all the same: --accel kvm\n");
}

TEST_F(DoctorVerb, DoesNotKnowWhatOnlyRootMayOpen) {
  machine_.openErrors["/dev/kvm"] = EACCES;
  EXPECT_EQ(of("KVM"),
            "warning  KVM: /dev/kvm does not open (Permission denied): whether guests will be "
            "emulated is not known\n"
            "         run 'vmctl doctor' as root, as whom vmagentd opens it\n");
}

TEST_F(DoctorVerb, FindsQemuThatIsMissingBrokenOrOld) {
  const std::string qemu = "/usr/bin/qemu-system-x86_64";
  machine_.programs[qemu + " --version"] = {0, "QEMU emulator version 6.2.0\n"};
  EXPECT_EQ(of("QEMU"),
            "FAILED   QEMU: /usr/bin/qemu-system-x86_64 is too old: version 6.2.0\n"
            "         install version 7 or newer\n");
  machine_.programs[qemu + " --version"] = {127, "error while loading libpixman\nmore\n"};
  EXPECT_EQ(of("QEMU"),
            "FAILED   QEMU: /usr/bin/qemu-system-x86_64 does not run: error while loading "
            "libpixman\n"
            "         install the package qemu-system-x86 anew\n");
  machine_.programs[qemu + " --version"] = {0, "something\n"};
  EXPECT_EQ(of("QEMU"),
            "warning  QEMU: /usr/bin/qemu-system-x86_64 tells no version: something\n"
            "         make sure that it is QEMU 7 or newer\n");
  machine_.programs[qemu + " --version"] = {0, "QEMU emulator version 10.0.2\n"};
  EXPECT_EQ(of("QEMU"), "ok       QEMU: /usr/bin/qemu-system-x86_64, version 10.0.2\n");
  machine_.accessErrors[qemu] = ENOENT;
  EXPECT_EQ(of("QEMU"),
            "FAILED   QEMU: there is no program /usr/bin/qemu-system-x86_64\n"
            "         install the package qemu-system-x86\n");
}

TEST_F(DoctorVerb, FindsAKernelThatIsTooOld) {
  const std::string release = "/proc/sys/kernel/osrelease";
  machine_.texts[release] = "5.4.0-216-generic\n";
  EXPECT_EQ(of("kernel"),
            "FAILED   kernel: Linux 5.4.0-216-generic is too old: no guest can start\n"
            "         run Linux 5.9 or newer\n");
  for (const char* const fit : {"5.9.0", "5.10.0-32-amd64", "6.0-rc1", "10.0.1"}) {
    machine_.texts[release] = std::string(fit) + "\n";
    EXPECT_EQ(of("kernel"), std::string("ok       kernel: Linux ") + fit + "\n");
  }
  for (const char* const odd : {"", "six", "6", "6.x", "a.1"}) {
    machine_.texts[release] = std::string(odd) + "\n";
    EXPECT_THAT(of("kernel"), testing::StartsWith("warning  kernel: it tells no version")) << odd;
  }
  machine_.texts.erase(release);
  EXPECT_EQ(of("kernel"),
            "warning  kernel: it tells no version\n"
            "         make sure that it is Linux 5.9 or newer\n");
}

TEST_F(DoctorVerb, FindsMacvtapAsAModuleOrNotAtAll) {
  machine_.texts.erase("/proc/devices");
  EXPECT_EQ(of("macvtap"),
            "FAILED   macvtap: the kernel does not have it, so no guest can have a network card\n"
            "         run a kernel with CONFIG_MACVTAP, or install its module\n");
  machine_.programs["modprobe -n -q macvtap"] = {0, ""};
  EXPECT_EQ(of("macvtap"),
            "ok       macvtap: the kernel has it as a module, and loads it when it is needed\n");
}

TEST_F(DoctorVerb, WarnsWhereTheKernelMakesNoNodes) {
  machine_.texts["/proc/mounts"] = "udev /dev devtmpfs rw 0 0\ntmpfs /dev tmpfs rw 0 0\n";
  EXPECT_EQ(
      of("tap nodes"),
      "warning  tap nodes: /dev is tmpfs, where the kernel makes none\n"
      "         mount devtmpfs there, or let udev run, or run vmagentd in a network namespace "
      "of its own, where it makes them itself\n");
  machine_.texts.erase("/proc/mounts");
  EXPECT_THAT(of("tap nodes"), testing::HasSubstr("/dev is no file system of its own,"));
}

TEST_F(DoctorVerb, FindsAMachineOnWhichNoQemuCanBeShutIn) {
  machine_.texts["/proc/self/status"] = "Name:\tvmctl\nCapBnd:\t00000000a80425fb\nSeccomp:\t0\n";
  EXPECT_EQ(
      of("box"),
      "FAILED   box: QEMU cannot be shut in, so no guest can start: root lacks the capability "
      "SYS_ADMIN\n"
      "         if this is a container, give it that\n");
  machine_.texts["/proc/self/status"] = "Name:\tvmctl\nCapBnd:\t000001ffffffffff\nSeccomp:\t0\n";
  EXPECT_THAT(of("box"), testing::StartsWith("ok "));
  machine_.accessErrors["/proc/self/ns/net"] = ENOENT;
  EXPECT_EQ(of("box"),
            "FAILED   box: QEMU cannot be shut in, so no guest can start: the kernel has no "
            "/proc/self/ns/net\n"
            "         run a kernel with CONFIG_NAMESPACES and CONFIG_SECCOMP_FILTER\n");
}

TEST_F(DoctorVerb, WarnsOfAUserWhoIsOneOfThoseForGuests) {
  machine_.texts["/etc/passwd"] = "root:x:0:0::/:/bin/sh\nbob:x:60600:60600::/:/bin/sh\n";
  EXPECT_EQ(of("box"),
            "warning  box: user or group 60600, of those for guests (60578-61183), is somebody's: "
            "it is passed over\n"
            "         name others, of nobody's, with vmagentd's option --guest-users\n");
}

TEST_F(DoctorVerb, LooksForTheShimWhereItMayLie) {
  machine_.accessErrors = {{"/usr/bin/../lib/vmagent/vmagent-shim", ENOENT}};
  EXPECT_EQ(of("vmagent-shim"), "ok       vmagent-shim: it is installed\n");
  machine_.accessErrors["/usr/bin/vmagent-shim"] = ENOENT;
  machine_.accessErrors["/usr/bin/../shim/vmagent-shim"] = EACCES;
  EXPECT_EQ(of("vmagent-shim"),
            "FAILED   vmagent-shim: it is not in /usr/bin/../lib/vmagent\n"
            "         install VmAgent anew: vmagentd does not start without it\n");
}

TEST_F(DoctorVerb, AsksTheDaemonBesideItWhetherTheAgentLoads) {
  const std::string check = "vmagentd --check --shim off";
  machine_.programs["/usr/bin/" + check] = {1,
                                            "vmagentd: the agent cannot be loaded: no such file\n"};
  EXPECT_EQ(of("agent"),
            "FAILED   agent: /usr/bin/vmagentd does not find all it needs: vmagentd: the agent "
            "cannot be loaded: no such file\n"
            "         install VmAgent anew: vmagentd does not start without it\n");
  machine_.programs.erase("/usr/bin/" + check);
  EXPECT_THAT(of("agent"), testing::StartsWith(
                               "FAILED   agent: /usr/bin/vmagentd does not find all it needs\n"));
  machine_.accessErrors["/usr/bin/vmagentd"] = ENOENT;
  machine_.programs["/usr/bin/../host/" + check] = {0, ""};
  EXPECT_EQ(of("agent"), "ok       agent: vmagentd can load it\n");
  machine_.accessErrors["/usr/bin/../host/vmagentd"] = ENOENT;
  EXPECT_THAT(of("agent"),
              testing::StartsWith("FAILED   agent: there is no program vmagentd in /usr/bin\n"));
}

TEST_F(DoctorVerb, FindsADiskThatIsFull) {
  machine_.free = 8ULL << 20U;
  EXPECT_EQ(of("state directory"),
            "warning  state directory: /var/lib/vmagent, 8.0 MiB free\n"
            "         free some space on its disk\n");
  machine_.free = 12ULL << 10U;
  EXPECT_EQ(of("state directory"),
            "FAILED   state directory: /var/lib/vmagent, 12.0 KiB free: too little to write\n"
            "         free some space on its disk\n");
}

TEST_F(DoctorVerb, FindsDirectoriesThatAreMissing) {
  machine_.accessErrors = {{"/var/lib/vmagent", ENOENT}, {"/run/vmagent", ENOENT}};
  EXPECT_EQ(of("state directory"),
            "FAILED   state directory: /var/lib/vmagent: No such file or directory\n"
            "         start vmagentd, which makes it, or name the one it uses with --state-dir\n");
  EXPECT_EQ(of("run directory"),
            "FAILED   run directory: /run/vmagent: No such file or directory\n"
            "         start vmagentd, which makes it, or name the one it uses with --run-dir\n");
  EXPECT_EQ(of("permissions"), "ok       permissions: nothing that is there yet refuses you\n");
}

TEST_F(DoctorVerb, SaysThatOneWhoMayNotLookCannotSeeWhetherTheDaemonRuns) {
  daemonRuns_ = false;
  machine_.accessErrors["/run/vmagent"] = EACCES;
  EXPECT_THAT(vmctl("doctor").out,
              testing::HasSubstr("warning  vmagentd: whether it runs cannot be seen by you\n"));
}

TEST_F(DoctorVerb, FindsFilesThatRefuse) {
  machine_.accessErrors = {{"/run/vmagent/status.db", EACCES}};
  EXPECT_EQ(of("permissions"),
            "FAILED   permissions: /run/vmagent/status.db cannot be read and written by you\n"
            "         run vmctl as root or as a member of the group vmagent: 'adduser USER "
            "vmagent', and log in anew\n");
  machine_.accessErrors = {{"/var/lib/vmagent/config.db", EROFS}};
  EXPECT_EQ(of("permissions"),
            "FAILED   permissions: /var/lib/vmagent/config.db is on a file system that is mounted "
            "read-only\n"
            "         mount it writable, or name another directory\n");
}

TEST_F(DoctorVerb, FindsADatabaseThatCannotBeUsed) {
  hasStatus_ = false;
  EXPECT_EQ(of("database"),
            "FAILED   database: /run/vmagent/status.db does not exist\n"
            "         start or restart vmagentd, which makes it\n");
}

TEST_F(DoctorVerb, SeesADaemonThatGoesByAnotherDatabaseThanItself) {
  putHeard();
  EXPECT_EQ(of("vmagentd"), "ok       vmagentd: it runs\n");
  daemonListens_ = false;
  put("daemon", "vmagentd", R"({"configStore":"another","configSequence":1})");
  EXPECT_EQ(of("vmagentd"),
            "FAILED   vmagentd: it goes by another config.db than is in /var/lib/vmagent now\n"
            "         restart it: 'systemctl restart vmagentd'; guests go on meanwhile\n");
}

TEST_F(DoctorVerb, SeesADaemonThatDoesNotFollow) {
  putHeard();
  daemonListens_ = false;
  putVm("new", false);
  EXPECT_EQ(
      of("vmagentd"),
      "warning  vmagentd: it runs, and has not carried out the newest changes of config.db: it "
      "is busy, or stands still\n"
      "         look again; if it stays so, 'systemctl restart vmagentd'; guests go on "
      "meanwhile\n");
}

TEST_F(DoctorVerb, SeesThatTheStatusCannotBeWritten) {
  machine_.freeRun = 200 * 1024;
  EXPECT_EQ(of("run directory"),
            "FAILED   run directory: /run/vmagent, 200.0 KiB free: too little for the status\n"
            "         free some space there; until then the status is as it was\n");
  EXPECT_THAT(vmctl("list").err,
              testing::HasSubstr("/run/vmagent is full: the status may be older than what is so"));
}

TEST_F(DoctorVerb, SeesAClockThatWasNeverSet) {
  machine_.time = 1000;
  EXPECT_EQ(of("clock"),
            "warning  clock: it says that it is before 2020, so the times in logs will be wrong\n"
            "         set it with 'date -s', or let it be set from the network\n");
}

TEST(Size, IsToldInAUnitThatFits) {
  EXPECT_EQ(sizeText(0), "0.0 KiB");
  EXPECT_EQ(sizeText(1536), "1.5 KiB");
  EXPECT_EQ(sizeText(3ULL << 40U), "3.0 TiB");
  EXPECT_EQ(sizeText(5000ULL << 40U), "5000.0 TiB");
}

}  // namespace
}  // namespace ctl
