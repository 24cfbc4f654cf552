// The records between a VM's state machine and its monitor session. The two never call each other:
// the one writes a command and raises a counter, the other publishes results and its state.
#pragma once

#include "runtime/base/Text.h"
#include "runtime/entity/EntityOf.h"

namespace Vm {

enum class MonitorCommand : uint8_t {
  enterCmdMode,  // leave capabilities negotiation
  queryStatus,   // ask for the run state
  startVm,       // resume the stopped guest
  queryChardev,  // ask for the character devices, for the console's pty
  backendAdd,    // pass a tap descriptor and attach it to a guest card
  backendDel,    // detach a card's backend and drop its descriptor
};
constexpr rt::EnumNames<6> enumNames(MonitorCommand) {
  return {"enterCmdMode", "queryStatus", "startVm", "queryChardev", "backendAdd", "backendDel"};
}

// One named argument of a command: a number, a text or both. A plain value.
struct MonitorCommandArg {
  static constexpr std::string_view typeName = "Vm::MonitorCommandArg";

  rt::String argName;
  uint32_t u32Val = 0;
  rt::String strVal;

  rt::String text() const;
  static std::optional<MonitorCommandArg> fromText(std::string_view text);
  friend bool operator==(const MonitorCommandArg&, const MonitorCommandArg&) = default;
};

// A command's arguments by name: "fd" (a number), "fdname", "backendId", "nicId" (texts).
class MonitorCommandArgs final : public rt::EntityOf<MonitorCommandArgs> {
 public:
  using Args = rt::Collection<rt::String, MonitorCommandArg>;

  const Args& args() const { return arg_; }
  // A default value when there is none, so a missing argument reads as empty text and 0.
  MonitorCommandArg arg(const rt::String& name) const { return arg_.get(name); }
  // Adds the argument, or replaces the one of its name.
  void argIs(const MonitorCommandArg& arg);
  void argDel(const rt::String& name);
  void argDelAll();

  static constexpr std::string_view typeName = "Vm::MonitorCommandArgs";
  using Attributes = rt::AttributeTable<
      rt::CollectionAttribute<"arg", &MonitorCommandArgs::arg, &MonitorCommandArgs::args, nullptr,
                              &MonitorCommandArgs::argDel>>;

 private:
  Args arg_;
};

// A command. The issuer sets `cmd`, then `cmdArgs`, then raises `counter`, whose new value is the
// command's id; the session looks at the counter only. 0: nothing was issued yet.
class MonitorInput final : public rt::EntityOf<MonitorInput> {
 public:
  explicit MonitorInput(uint32_t counter) : counter_(counter) {}

  MonitorCommand cmd() const { return cmd_; }
  void cmdIs(MonitorCommand cmd) { assign<&MonitorInput::cmd>(cmd_, cmd); }

  // May be null.
  const MonitorCommandArgs::PtrConst& cmdArgs() const { return cmdArgs_; }
  void cmdArgsIs(const MonitorCommandArgs::PtrConst& args) {
    assign<&MonitorInput::cmdArgs>(cmdArgs_, args);
  }

  uint32_t counter() const { return counter_; }
  void counterIs(uint32_t counter) { assign<&MonitorInput::counter>(counter_, counter); }
  void counterInc(uint32_t by) { counterIs(counter_ + by); }

  static constexpr std::string_view typeName = "Vm::MonitorInput";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"cmd", &MonitorInput::cmd, &MonitorInput::cmdIs>,
      rt::Attribute<"cmdArgs", &MonitorInput::cmdArgs>,
      rt::Attribute<"counter", &MonitorInput::counter, &MonitorInput::counterIs>>;

 private:
  MonitorCommand cmd_{};
  MonitorCommandArgs::PtrConst cmdArgs_;
  uint32_t counter_;
};

// The latest result. Written by the session, which raises `counter` last; results are not queued.
class MonitorOutput final : public rt::EntityOf<MonitorOutput> {
 public:
  enum class MonitorCommandStatus : uint8_t { success, failure };
  friend constexpr rt::EnumNames<2> enumNames(MonitorCommandStatus) {
    return {"success", "failure"};
  }

  explicit MonitorOutput(uint32_t counter) : counter_(counter) {}

  MonitorCommand cmd() const { return cmd_; }
  void cmdIs(MonitorCommand cmd) { assign<&MonitorOutput::cmd>(cmd_, cmd); }

  // The MonitorInput counter under which that command was issued.
  uint32_t cmdId() const { return cmdId_; }
  void cmdIdIs(uint32_t id) { assign<&MonitorOutput::cmdId>(cmdId_, id); }

  MonitorCommandStatus cmdStatus() const { return cmdStatus_; }
  void cmdStatusIs(MonitorCommandStatus status) {
    assign<&MonitorOutput::cmdStatus>(cmdStatus_, status);
  }

  // What the parser took from the reply: a run state, a pty's path; may be empty.
  const rt::String& val() const { return val_; }
  void valIs(const rt::String& val) { assign<&MonitorOutput::val>(val_, val); }

  uint32_t counter() const { return counter_; }
  void counterIs(uint32_t counter) { assign<&MonitorOutput::counter>(counter_, counter); }
  void counterInc(uint32_t by) { counterIs(counter_ + by); }

  static constexpr std::string_view typeName = "Vm::MonitorOutput";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"cmd", &MonitorOutput::cmd, &MonitorOutput::cmdIs>,
      rt::Attribute<"cmdId", &MonitorOutput::cmdId, &MonitorOutput::cmdIdIs>,
      rt::Attribute<"cmdStatus", &MonitorOutput::cmdStatus, &MonitorOutput::cmdStatusIs>,
      rt::Attribute<"val", &MonitorOutput::val, &MonitorOutput::valIs>,
      rt::Attribute<"counter", &MonitorOutput::counter, &MonitorOutput::counterIs>>;

 private:
  MonitorCommand cmd_{};
  uint32_t cmdId_ = 0;
  MonitorCommandStatus cmdStatus_{};
  rt::String val_;
  uint32_t counter_;
};

// How the session is. Written by the session.
class MonitorStatus final : public rt::EntityOf<MonitorStatus> {
 public:
  enum class MonitorState : uint8_t { uninitialized, connected, disconnected };
  friend constexpr rt::EnumNames<3> enumNames(MonitorState) {
    return {"uninitialized", "connected", "disconnected"};
  }

  explicit MonitorStatus(MonitorState state) : state_(state) {}

  MonitorState state() const { return state_; }
  void stateIs(MonitorState state) { assign<&MonitorStatus::state>(state_, state); }

  static constexpr std::string_view typeName = "Vm::MonitorStatus";
  using Attributes =
      rt::AttributeTable<rt::Attribute<"state", &MonitorStatus::state, &MonitorStatus::stateIs>>;

 private:
  MonitorState state_;
};

}  // namespace Vm
