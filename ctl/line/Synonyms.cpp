#include "ctl/line/Synonyms.h"

namespace ctl {

namespace {

constexpr Synonym table[] = {
    {"create,define,new", "'vmctl add NAME --disk FILE' makes a VM"},
    {"run,launch", "'vmctl add NAME --disk FILE --enabled' makes a VM and starts it"},
    {"boot,up,power-on,poweron", "'vmctl start NAME' starts a VM"},
    {"autostart", "'vmctl enable NAME' starts a VM, and after each boot of the switch too"},
    {"shutdown,down,halt,poweroff,power-off",
     "'vmctl stop NAME' has a guest shut down, and keeps it off"},
    {"reboot",
     "'vmctl restart NAME' ends a guest and starts it again, 'vmctl reset NAME' resets it"},
    {"destroy,kill,terminate",
     "'vmctl stop NAME --now' ends a guest at once; 'vmctl remove NAME' deletes its configuration"},
    {"undefine,delete,del,purge",
     "'vmctl remove NAME' deletes a VM's configuration; its disk image stays"},
    {"suspend,freeze,hold", "'vmctl pause NAME' holds a guest where it is"},
    {"unpause,thaw,continue,cont", "'vmctl resume NAME' lets a guest go on"},
    {"inject-nmi,interrupt", "'vmctl nmi NAME' sends a guest a non-maskable interrupt"},
    {"sendkey,send-key,keys",
     "'vmctl key NAME ctrl-alt-delete' presses keys of a guest's keyboard"},
    {"screendump,picture", "'vmctl screenshot NAME FILE.png' writes what a guest's screen shows"},
    {"ps,vms", "'vmctl list' shows all VMs"},
    {"get", "'vmctl list' shows all VMs, 'vmctl show NAME' one"},
    {"info,status,state,describe,inspect,dominfo,domstate,domiflist,domblklist",
     "'vmctl show NAME' tells all about a VM"},
    {"stats,usage,htop", "'vmctl top' shows what guests take of the machine"},
    {"monitor", "'vmctl events' shows what happens, 'vmctl watch' how VMs are meanwhile"},
    {"audit,changes", "'vmctl events' shows what was changed, and by whom"},
    {"log,journal", "'vmctl logs NAME' shows what a guest wrote on its console"},
    {"exec,ssh,shell", "'vmctl console NAME' is a guest's serial console"},
    {"attach", "'vmctl console NAME' is a guest's console, 'vmctl nic add' gives it a card"},
    {"vnc,display,vncdisplay",
     "'vmctl show NAME' tells where a guest's screen is, for a VNC viewer"},
    {"attach-interface,attach-device", "'vmctl nic add NAME ...' gives a VM a card"},
    {"detach,detach-interface,detach-device", "'vmctl nic remove NAME KEY' takes a card away"},
    {"attach-disk", "a VM has one disk: 'vmctl set NAME diskImage=FILE'"},
    {"nic list,nic ls,nic show", "'vmctl show NAME' has a VM's cards"},
    {"nic edit,nic change,nic move", "'vmctl nic set NAME KEY intf=I' moves or changes a card"},
    {"configure,config,modify,change,update,patch",
     "'vmctl set NAME FIELD=VALUE' changes a VM, and so does 'vmctl edit NAME'"},
    {"import,load,replace", "'vmctl apply -f FILE' makes what a document says"},
    {"dumpxml,dump", "'vmctl export' writes all VMs as a document, 'vmctl show NAME -o json' one"},
    {"diff,plan", "'vmctl apply -f FILE --dry-run' says what would change"},
    {"mv,domrename", "'vmctl rename NAME NEW' gives a VM that is off another name"},
    {"copy,cp,virt-clone,duplicate",
     "'vmctl clone NAME NEW --disk FILE' makes a VM like another one"},
    {"undo,undestroy,unremove,recover,trash",
     "'vmctl undelete' shows the VMs that were removed last, and 'vmctl undelete NAME' brings one "
     "back"},
    {"snapshot,checkpoint,save,managedsave",
     "there are no snapshots: 'vmctl stop NAME --wait', then copy the disk image"},
    {"snapshot create,snapshot-create,snapshot list,snapshot-list",
     "there are no snapshots: 'vmctl stop NAME --wait', then copy the disk image"},
    {"setmem,setmaxmem,memory", "'vmctl set NAME memory=SIZE' gives a guest other memory"},
    {"setvcpus,vcpus,cpu", "a guest has one processor: 'vmctl set NAME cpuMax=0.5' bounds it"},
    {"image,images,disk,disks,volume,volumes,pool-list,vol-list",
     "a VM has one disk image, a file of yours: 'vmctl set NAME diskImage=FILE'"},
    {"domifaddr,ip,addr", "'vmctl show NAME' has a VM's cards; of IP addresses nothing is known"},
    {"net-list,iface-list", "'vmctl interface list' shows the interfaces"},
    {"wakeup,dompmwakeup", "'vmctl resume NAME' lets a guest go on"},
    {"scale,rollout,expose,label,annotate,tag",
     "there is no such thing here: 'vmctl --help' lists what there is"},
    {"migrate,move", "'vmctl export' here and 'vmctl apply' there take over the configuration"},
    {"network,networks,net,interfaces,iface", "'vmctl interface list' shows the interfaces"},
    {"check,validate,diagnose", "'vmctl doctor' tells what is wrong with the machine"},
};

constexpr OptionSynonym optionTable[] = {
    {"--json,-j", "output", "", "say -o json"},
    {"--wide,-w,-l,--long", "output", "list,top,fdb list", "say -o wide"},
    {"--quiet,-q,--name,--names", "output", "list,interface list,undelete", "say -o name"},
    {"-a,--running,--state,--title", "output", "list", "all VMs are shown, leave it out"},
    {"--format,--fmt", "output", "list,show", "say -o json"},
    {"--watch", "output", "list,show", "'vmctl watch' shows what changes"},
    {"--ram,--mem,-m", "memory", "", "say --memory SIZE"},
    {"--image,--iso,--cdrom,--drive,--hda", "disk", "", "say --disk FILE"},
    {"--network,--net,--bridge,--interface", "nic", "", "say --nic intf=INTERFACE"},
    {"--cpus,--vcpus,--cpu,--smp", "disk", "",
     "a guest has one processor; 'vmctl set NAME cpuMax=0.5' lets it have less"},
    {"--name,-n", "disk", "", "the name stands alone: 'vmctl add NAME --disk FILE'"},
    {"--vnc,--graphics,--display", "vnc-port", "", "say --vnc-port PORT"},
    {"--autostart,--start,--running", "enabled", "", "say --enabled"},
    {"--mode,--force,-9,--kill", "now", "stop,disable", "say --now: its guest ends at once"},
    {"--lines", "tail", "", "say -n COUNT"},
    {"--yes,-y,--assume-yes", "", "", "nothing is asked, leave it out"},
    {"-t,--time", "timeout", "", "say --timeout S"},
};

}  // namespace

std::span<const OptionSynonym> optionSynonyms() { return optionTable; }

std::span<const Synonym> synonyms() { return table; }

}  // namespace ctl
