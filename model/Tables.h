// The tables of the state database: their names, which half each is in, and what a row is.
#pragma once

#include <algorithm>
#include <array>
#include <string_view>

namespace model {

namespace table {

// Configuration, written by operators; vmImage by the daemon, too, where nobody has.
inline constexpr char vmConfig[] = "vmConfig";    // Vm::VmConfig, by the VM's name
inline constexpr char vmImage[] = "vmImage";      // VmImage, by the VM's name
inline constexpr char vmLimits[] = "vmLimits";    // VmLimits, by the VM's name
inline constexpr char vmPolicy[] = "vmPolicy";    // VmPolicy, by the VM's name
inline constexpr char vmIntent[] = "vmIntent";    // VmIntent, by the VM's name
inline constexpr char interface[] = "interface";  // Interface::IntfStatus, by the interface's id
inline constexpr char removed[] = "removed";      // a VM that was, by a number in 12 digits

// Status, written by the daemon.
inline constexpr char daemon[] = "daemon";                    // DaemonStatus: one row, daemonKey
inline constexpr char vmStatus[] = "vmStatus";                // Vm::VmStatus, by the VM's name
inline constexpr char vmProcess[] = "vmProcess";              // VmProcess, by the VM's name
inline constexpr char vmProblem[] = "vmProblem";              // VmProblem, by the VM's name
inline constexpr char vmCard[] = "vmCard";                    // VmCard, by "VM/KEY"
inline constexpr char interfaceStatus[] = "interfaceStatus";  // InterfaceStatus, by its id
inline constexpr char fdb[] = "fdb";                          // FdbEntry, by "VLAN/MAC"
inline constexpr char event[] = "event";                      // Event, by its id in 12 digits

}  // namespace table

inline constexpr char daemonKey[] = "vmagentd";

struct Table {
  std::string_view name;
  bool isStatus;
  bool isOfVms;  // its keys are names of VMs
};

inline constexpr std::array tables{
    Table{table::vmConfig, false, true},        Table{table::vmImage, false, true},
    Table{table::vmLimits, false, true},        Table{table::vmPolicy, false, true},
    Table{table::vmIntent, false, true},        Table{table::interface, false, false},
    Table{table::removed, false, false},        Table{table::daemon, true, false},
    Table{table::vmStatus, true, true},         Table{table::vmProcess, true, true},
    Table{table::vmProblem, true, true},        Table{table::vmCard, true, false},
    Table{table::interfaceStatus, true, false}, Table{table::fdb, true, false},
    Table{table::event, true, false},
};

// For statedb, which is told which tables are status. One that is not known here is configuration.
constexpr bool isStatus(std::string_view name) {
  return std::any_of(tables.begin(), tables.end(),
                     [&](const Table& each) { return each.isStatus && each.name == name; });
}

constexpr bool isOfVms(std::string_view name) {
  return std::any_of(tables.begin(), tables.end(),
                     [&](const Table& each) { return each.isOfVms && each.name == name; });
}

}  // namespace model
