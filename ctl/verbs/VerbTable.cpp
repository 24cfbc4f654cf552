#include "ctl/verbs/ApplyVerbs.h"
#include "ctl/verbs/BackupVerbs.h"
#include "ctl/verbs/BundleVerbs.h"
#include "ctl/verbs/CompletionVerbs.h"
#include "ctl/verbs/ConfigVerbs.h"
#include "ctl/verbs/ConsoleVerbs.h"
#include "ctl/verbs/CopyVerbs.h"
#include "ctl/verbs/DoctorVerbs.h"
#include "ctl/verbs/EditVerbs.h"
#include "ctl/verbs/EventVerbs.h"
#include "ctl/verbs/FdbVerbs.h"
#include "ctl/verbs/FieldVerbs.h"
#include "ctl/verbs/InterfaceVerbs.h"
#include "ctl/verbs/ListVerbs.h"
#include "ctl/verbs/LogVerbs.h"
#include "ctl/verbs/MetricsVerbs.h"
#include "ctl/verbs/PowerVerbs.h"
#include "ctl/verbs/SwitchVerbs.h"
#include "ctl/verbs/TopVerbs.h"
#include "ctl/verbs/UndeleteVerbs.h"
#include "ctl/verbs/Verbs.h"
#include "ctl/verbs/VersionVerbs.h"
#include "ctl/verbs/WaitVerbs.h"
#include "ctl/verbs/WatchVerbs.h"

namespace ctl {

namespace {

constexpr std::string_view allFormats = "table wide json name";

// In the order of help.
constexpr Verb table[] = {
    {"add", "", "NAME", 1, 1, "FIELDS nic enabled dry-run", "", "make a VM",
     "Makes a virtual machine. It is started when --enabled is given, else by 'vmctl enable'.\n"
     "All that is wrong is told at once, and nothing is written then. A disk image that is\n"
     "not there yet is no mistake, only a warning, and so is an interface of a card.\n"
     "\n"
     "What the disk image is, raw or qcow2, is fixed now, for later its bytes are the guest's:\n"
     "what --format says, or else what it begins as.\n"
     "\n"
     "A card has an interface of the switch ('vmctl interface list'), one of QEMU's models\n"
     "(virtio-net-pci, the default, e1000, rtl8139 and others) and a MAC address that no other "
     "card\n"
     "has: without a word, one is made.\n"
     "\n"
     "  vmctl add web1 --disk /images/web.iso --memory 512M --enabled --nic intf=Vlan100\n",
     addVm},
    {"set", "", "NAME FIELD=VALUE...", 2, anyNumber, "dry-run", "", "change a VM",
     "Changes all the fields at once or, when one is refused, none:\n"
     "\n"
     "FIELDS\n"
     "\n"
     "A guest that runs has the first, those from cpuWeight to rateLimit and the interface of a\n"
     "card at once, all others from its next start on: 'vmctl restart NAME'. Without a format, a\n"
     "new disk image is what it begins as now.\n",
     setVm},
    {"edit", "", "NAME", 1, 1, "", "", "change a VM in an editor",
     "Opens the VM's document, as 'vmctl export' shows it, in $VISUAL, $EDITOR or vi, and writes\n"
     "what was made of it. When anything is wrong with it, the editor opens again, with all that\n"
     "is wrong at the top; a document left as it was ends it, and nothing is written.\n",
     editVm},
    {"clone", "", "NAME NEW [FIELD=VALUE...]", 2, anyNumber, "FIELDS dry-run", "",
     "make a VM like another one",
     "Makes a virtual machine of another's configuration, with its limits and its policy. It is\n"
     "disabled, and its cards have new MAC addresses. What two cannot share is to be said: the "
     "disk\n"
     "image, but for a CD, of which you make the copy, and the VNC port.\n"
     "\n"
     "  vmctl clone web1 web2 --disk /images/web2.qcow2 memory=512\n",
     cloneVm},
    {"rename", "", "NAME NEW", 2, 2, "", "", "give a VM another name",
     "Gives a virtual machine that is off another name, with all that was said of it. Its history\n"
     "stays under the name that it had.\n",
     renameVm},
    {"nic add", "", "NAME intf=I[,model=M][,mac=A]", 2, 2, "key dry-run", "", "add a network card",
     "Adds a network card, which the guest has from its next start on. The guest numbers its\n"
     "cards in the order of their keys. Without a word it is a virtio-net-pci, with a MAC address\n"
     "that no other card has.\n"
     "\n"
     "  vmctl nic add web1 intf=Vlan200\n"
     "  vmctl nic add web1 intf=Vlan200,model=e1000,mac=52:54:00:12:34:57\n",
     addNic},
    {"nic set", "", "NAME KEY intf=I", 3, anyNumber, "dry-run", "", "move a network card",
     "Changes a network card. A guest that runs has it on another interface at once, sees its "
     "line\n"
     "go and come, and keeps its addresses; another model or MAC address it has from its next\n"
     "start on.\n"
     "\n"
     "  vmctl nic set web1 nic00 intf=Ethernet2\n",
     setNic},
    {"nic remove", "nic rm", "NAME KEY", 2, 2, "", "", "remove a network card",
     "Removes a network card; a running guest keeps it until its next start.\n", removeNic},
    {"start", "", "[NAME...]", 0, anyNumber, "dry-run all wait timeout", "", "start VMs",
     "Starts virtual machines, and keeps them started: after a reboot too. One whose guest has "
     "ended\n"
     "by itself is started again. Done is: the status is enabled and Running.\n",
     startVms},
    {"enable", "", "[NAME...]", 0, anyNumber, "now dry-run all wait timeout", "",
     "start VMs: the same as 'start'",
     "The same as 'vmctl start'. It starts them at once: --now says nothing more.\n", startVms},
    {"stop", "", "[NAME...]", 0, anyNumber, "now all wait timeout", "", "stop VMs",
     "Asks the guests to shut down, and keeps the machines stopped, after a reboot too. One that "
     "has\n"
     "not shut itself down in time is switched off: after 15 seconds, or what 'vmagentd\n"
     "--stop-timeout' says, or after those of --timeout; with --now at once, which loses what it "
     "has\n"
     "not written. Said again, it may be sooner, never later. --wait waits 15 seconds more than "
     "that\n"
     "for their end, or 60 without --timeout. Done is: the status is not enabled,\n"
     "and no process is left.\n"
     "\n"
     "It needs no vmagentd: a guest's keeper ends it.\n",
     stopVms},
    {"disable", "", "[NAME...]", 0, anyNumber, "now all wait timeout", "",
     "stop VMs: the same as 'stop'", "The same as 'vmctl stop'.\n", stopVms},
    {"restart", "", "[NAME...]", 0, anyNumber, "now all force wait timeout", "",
     "stop VMs and start them again",
     "Ends the guests and starts them again with the configuration as it is now. They are asked "
     "to\n"
     "shut down, as by 'vmctl stop', or with --now switched off. One that runs, and whose disk "
     "image\n"
     "cannot be used now, is restarted with --force only. Done is: this restart was carried out, "
     "and\n"
     "the status is enabled and Running.\n",
     restartVms},
    {"pause", "", "[NAME...]", 0, anyNumber, "all", "", "hold guests where they are",
     "Holds guests where they are, with all that they have in memory, until 'vmctl resume': also\n"
     "over a restart of vmagentd. Their clocks stand still meanwhile, and their cards are deaf.\n",
     pauseVms},
    {"resume", "", "[NAME...]", 0, anyNumber, "all", "", "let guests go on",
     "Lets guests go on that were paused: by 'vmctl pause', by an error of their disk or by their\n"
     "watchdog.\n",
     resumeVms},
    {"reset", "", "[NAME...]", 0, anyNumber, "all", "", "reset guests, as by the button",
     "Has guests begin anew at once, as the button of a machine does: they are not asked, and "
     "what\n"
     "they have not written is lost. They keep their process, and their configuration as it was\n"
     "when they were started; 'vmctl restart' ends them, and takes what was changed.\n",
     resetVms},
    {"nmi", "", "[NAME...]", 0, anyNumber, "all", "", "send guests a non-maskable interrupt",
     "Interrupts guests' processors, whatever they do: many systems write down then where they\n"
     "stand, or crash with a dump.\n",
     interruptVms},
    {"key", "", "NAME KEYS...", 2, anyNumber, "", "", "press keys of a guest's keyboard",
     "Presses keys of a guest's keyboard, those with '-' between them together:\n"
     "\n"
     "  vmctl key web1 ctrl-alt-delete\n"
     "  vmctl key web1 r o o t enter\n",
     pressKeys},
    {"screenshot", "", "NAME FILE", 2, 2, "", "", "write a picture of a guest's screen",
     "Writes what a guest's screen shows as a PNG; - is standard output. It needs no VNC port.\n",
     takeScreenshot},
    {"remove", "rm", "NAME...", 1, anyNumber, "force wait timeout", "", "remove VMs",
     "Removes virtual machines; their disk images stay. One that is enabled, or unknown to the\n"
     "configuration, is removed with --force only, which ends its guest; until that has ended,\n"
     "'vmctl list' has it as removed. The last ten that were removed 'vmctl undelete' brings "
     "back.\n"
     "Done is: no process and no status is left.\n",
     removeVms},
    {"undelete", "", "[NAME]", 0, 1, "dry-run", "table json name",
     "bring back a VM that was removed",
     "Brings back a virtual machine that was removed, with all that was said of it, and starts it\n"
     "where it was enabled. Without a name it shows the last ten that were removed, when and by "
     "whom.\n"
     "It is judged as by 'vmctl apply': a MAC address that another has now keeps it away.\n",
     undeleteVm},
    {"list", "ls", "[NAME...]", 0, anyNumber, "", allFormats, "show all VMs",
     "Shows all virtual machines, or those named: what is wanted (running, stopped, or gone: it "
     "was\n"
     "removed and has not ended yet), what is so (stopped, starting, running, paused, stopping, "
     "hung,\n"
     "crashed, retrying or refused), for how long, why or what is wrong, and what comes next or "
     "what\n"
     "to type. On a terminal of less than 100 columns WHY and NEXT are told in few words.\n",
     listVms},
    {"why", "", "NAME", 1, 1, "", "table json", "tell why a VM is as it is",
     "Tells what is wanted of a virtual machine, what is so and since when, why, how its last run\n"
     "ended, and what comes next or what to type. Exits with 0 when it is as it is wanted, with 1\n"
     "when it is not.\n",
     tellWhy},
    {"show", "", "NAME", 1, 1, "", allFormats, "show all about a VM",
     "Shows the configuration, the status and the problem of a virtual machine, and of each card\n"
     "whether its interface is there; without it, the guest runs and the card has no carrier.\n",
     showVm},
    {"wait", "", "NAME", 1, 1, "for timeout", "", "wait until a VM is as you say",
     "Returns when all that --for says is so:\n"
     "\n"
     "  actual          as 'vmctl list' has it, such as running; that word alone will do\n"
     "  state           as the agent reports it, such as Running or Stopped\n"
     "  enabled         whether the agent has it switched on: true or false\n"
     "  config.enabled  whether the configuration has it enabled: true or false\n"
     "  process         none, running or ending\n",
     waitForVm},
    {"watch", "", "", 0, 0, "beat", "table json", "show changes of VMs as they happen",
     "Shows all virtual machines, then each again whenever anything about it changes, until it\n"
     "is interrupted. In JSON each is a line of its own with \"op\" put or delete; the line with\n"
     "\"op\" synced ends what there was at the beginning. With --beat a line with \"op\" beat "
     "comes\n"
     "so often while there is nothing to show, and tells whether vmagentd runs.\n",
     watchVms},
    {"top", "", "[NAME...]", 0, anyNumber, "count interval", "table wide json",
     "show what guests take of the machine",
     "Shows what each guest that runs takes: processors (100 is all of one), memory, and what it\n"
     "receives, sends, reads, writes and loses a second, the busiest first. On a terminal that is "
     "one\n"
     "screen, shown anew every 2 seconds, and q ends it. With -o wide each card has a line.\n"
     "\n"
     "Rates are since the time before. In JSON each time is a line, with all counters; the first "
     "has\n"
     "no rates. It needs no vmagentd, and no rights beyond those of the group.\n"
     "\n"
     "  vmctl top -n 1\n"
     "  vmctl top web1 --interval 10 -o json\n",
     showTop},
    {"metrics", "", "", 0, 0, "textfile http", "", "write what is so for Prometheus",
     "Writes what is so of all VMs, and what their guests take, in the text format of Prometheus.\n"
     "\n"
     "  systemctl enable --now vmagent-metrics.socket     answers http://127.0.0.1:9709/metrics\n"
     "  systemctl enable --now vmagent-textfile.timer     writes a file for node_exporter\n",
     writeMetrics},
    {"events", "", "", 0, 0, "follow since after tail", "table json", "show what has happened",
     "Shows what has happened to all virtual machines, the newest last: what was changed, from "
     "what\n"
     "to what and by whom; how each became what it is, and how it ended; resets and other troubles "
     "of\n"
     "guests; problems that came and went. The newest 2,000 are kept, until the machine is "
     "booted.\n"
     "With --after all behind that number is shown, and where some of it is not kept any more, "
     "that\n"
     "is said and all there is is shown. The option -f must stand behind the verb.\n",
     showEvents},
    {"history", "", "NAME", 1, 1, "follow since after tail", "table json",
     "show what has happened to a VM",
     "Shows what has happened to a virtual machine, as 'vmctl events' does, also to one that was\n"
     "removed.\n"
     "\n"
     "  vmctl history web1 --since 1h\n"
     "  vmctl history web1 --since yesterday\n",
     showHistory},
    {"console", "", "NAME", 1, 1, "view", "", "use a guest's console",
     "Connects this terminal and the guest's serial console. Ctrl-] leaves it; the guest goes on.\n"
     "It is for one at a time; with --view any number can look at it.\n",
     openConsole},
    {"logs", "", "NAME", 1, 1, "follow tail shim", "", "show what a guest wrote on its console",
     "Shows what the guest wrote on its serial console, the last one or two mebibytes of it or,\n"
     "with --shim, what its keeper and QEMU had to say; over its restarts. On a terminal, control\n"
     "characters are written \\xNN. The option -f must stand behind the verb.\n",
     showLogs},
    {"export", "", "", 0, 0, "", "json", "write the configuration as a document",
     "Writes the configuration of all virtual machines, as 'vmctl apply' reads it.\n", exportVms},
    {"apply", "", "", 0, 0, "file dry-run exit-code prune", "table json",
     "make the configuration what a document says",
     "Makes and changes virtual machines so that each is as the document says; what it does not\n"
     "name stays, or with --prune is removed, even when it is enabled. All in one transaction:\n"
     "when anything is wrong, all of it is told and nothing is written. With --dry-run "
     "--exit-code\n"
     "the exit is 8 where something would be changed.\n"
     "\n"
     "The document is what 'export', 'list -o json' or 'show -o json' write; status and problem\n"
     "are passed over.\n",
     applyDocument},
    {"backup", "", "FILE", 1, 1, "force", "", "keep the configuration as one file",
     "Writes the configuration as it is at one moment into a new file, which is whole or not "
     "there,\n"
     "and which only its owner may read. It needs no vmagentd.\n",
     backUp},
    {"restore", "", "FILE", 1, 1, "dry-run prune", "", "make the configuration that of a backup",
     "Makes VMs, and what interfaces are, what they were when 'vmctl backup' wrote the file; what "
     "it\n"
     "does not have stays, or with --prune is removed, even when it is enabled. As 'vmctl apply' "
     "does:\n"
     "in one transaction, and guests whose VMs are as they were are not touched. With --dry-run it "
     "says\n"
     "what would change.\n",
     restore},
    {"fdb list", "fdb ls", "", 0, 0, "", allFormats, "show the guests' static MAC entries",
     "Shows which MAC addresses have a fixed place, in which VLAN, and where; with -o wide, into\n"
     "which of the kernel's bridges the entry was put ('vmagentd --bridge').\n",
     listFdb},
    {"interface list", "interface ls", "", 0, 0, "", allFormats, "show the switch's interfaces",
     "Shows which kernel device each interface of the switch is, and whether it is there.\n",
     listInterfaces},
    {"interface set", "", "ID", 1, 1, "device", "", "say which device an interface is",
     "Says which kernel device an interface of the switch is. Without a word, it is the device\n"
     "of its own name.\n"
     "\n"
     "  vmctl interface set Vlan100 --device br0.100\n",
     setInterface},
    {"interface unset", "", "ID", 1, 1, "", "", "make an interface the device of its name again",
     "Forgets what 'vmctl interface set' said.\n", unsetInterface},
    {"fields", "", "", 0, 0, "", "table json", "show what can be set of a VM",
     "Shows which fields a VM and its cards have, what each means, and when a guest that runs has "
     "a\n"
     "change of it. In JSON also its kind, the option of 'add' that says it, its value where "
     "nobody\n"
     "has said one, and the values to choose among.\n",
     listFields},
    {"schema", "", "", 0, 0, "", "json", "print the JSON schema of documents",
     "Prints a JSON schema (draft 2020-12) of the documents that 'apply' takes and 'export', 'list "
     "-o\n"
     "json' and 'show -o json' write. It has each field's kind; what is right on this machine, "
     "and\n"
     "between VMs, 'vmctl apply --dry-run' tells. It is installed, too: share/vmagent.\n",
     printSchema},
    {"doctor", "", "", 0, 0, "", "table json", "tell what keeps this machine from running guests",
     "Looks at all that VmAgent needs of the machine. Each line is ok, warning or FAILED, and "
     "where\n"
     "it is not ok, the next one tells how to mend it. The exit is 1 when anything has failed.\n",
     examine},
    {"bundle", "", "[FILE]", 0, 1, "force", "", "pack what somebody needs who is to help",
     "Writes a tar.gz, which only its owner may read, of all that tells how this machine and its "
     "VMs\n"
     "are: versions, doctor, list, why, events, what guests take, both databases' rows, the "
     "keepers'\n"
     "logs, the journal of vmagentd, links and control groups. A part that fails says why, and the "
     "rest\n"
     "is there; so it works without a daemon, and with a damaged database. It has nothing of "
     "disks,\n"
     "screens and consoles. What is in it is listed.\n",
     bundle},
    {"completion", "", "SHELL", 1, 1, "", "", "print what makes a shell complete vmctl's words",
     "Prints a script for bash, zsh or fish:\n"
     "\n"
     "  vmctl completion bash >/etc/bash_completion.d/vmctl\n"
     "  vmctl completion zsh >/usr/local/share/zsh/site-functions/_vmctl\n"
     "  vmctl completion fish >/etc/fish/completions/vmctl.fish\n",
     printCompletion},
    {"__complete", "", "WORD...", 0, anyNumber, "", "", "", "", complete},
    {"version", "", "", 0, 0, "", "table json", "tell the version", "Tells the version.\n",
     showVersion},
};

}  // namespace

std::span<const Verb> verbs() { return table; }

}  // namespace ctl
