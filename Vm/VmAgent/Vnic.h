// One network card of a guest.
#pragma once

#include "runtime/entity/EntityOf.h"
#include "runtime/net/EthAddr.h"

namespace Vm {

// A card, the backend that feeds it in QEMU, the switch interface it is bridged to, and the macvtap
// device that carries its traffic. Owned by the VM's machine; closes its tap when it ends.
//
//   status            | event                            | status then
//   any, no open tap  | attach starts                    | linkDown
//   linkDown          | tap opened, backendAdd sent      | linkGoingUp
//   linkGoingUp       | backendAdd answered              | linkUp (linkDownPending: detach at once)
//   linkGoingUp       | detach asked                     | unchanged, linkDownPending set
//   linkUp            | detach: backendDel sent          | linkGoingDown
//   linkGoingDown     | backendDel answered              | linkDown (device there: attach again)
//
// A failed attach leaves linkDown without an open tap.
class Vnic final : public rt::EntityOf<Vnic> {
 public:
  enum class LinkStatus : uint8_t {
    linkUninitialized,  // never attached
    linkDown,           // no backend in QEMU; may be attached
    linkGoingDown,      // backendDel sent
    linkGoingUp,        // backendAdd sent
    linkUp,             // backend added and connected
  };
  friend constexpr rt::EnumNames<5> enumNames(LinkStatus) {
    return {"linkUninitialized", "linkDown", "linkGoingDown", "linkGoingUp", "linkUp"};
  }
  using enum LinkStatus;
  static constexpr uint32_t noFd = 0xFFFFFFFF;  // -1 as a signed number

  Vnic(rt::String nicId, rt::String backendId, const rt::EthAddr& macAddr, rt::String backendDev,
       uint32_t macvtapFd);
  ~Vnic() override;

  // QEMU's id of the card, "netN".
  const rt::String& nicId() const { return nicId_; }
  // QEMU's id of the backend, "hostnetN".
  const rt::String& backendId() const { return backendId_; }
  const rt::EthAddr& macAddr() const { return macAddr_; }

  // The switch interface, as the text of its id.
  const rt::String& backendDev() const { return backendDev_; }
  void backendDevIs(const rt::String& name) { assign<&Vnic::backendDev>(backendDev_, name); }

  // The macvtap device; empty until a first attach succeeds, and kept when it is detached.
  const rt::String& macvtapDev() const { return macvtapDev_; }
  void macvtapDevIs(const rt::String& name) { assign<&Vnic::macvtapDev>(macvtapDev_, name); }

  // The open tap, or noFd. Setting another does not close it.
  uint32_t macvtapFd() const { return macvtapFd_; }
  void macvtapFdIs(uint32_t fd) { assign<&Vnic::macvtapFd>(macvtapFd_, fd); }

  LinkStatus status() const { return status_; }
  void statusIs(LinkStatus status) { assign<&Vnic::status>(status_, status); }

  // A detach was asked for while the attach was in flight.
  bool linkDownPending() const { return linkDownPending_; }
  void linkDownPendingIs(bool pending) {
    assign<&Vnic::linkDownPending>(linkDownPending_, pending);
  }

  static constexpr std::string_view typeName = "Vm::Vnic";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"nicId", &Vnic::nicId>, rt::Attribute<"backendId", &Vnic::backendId>,
      rt::Attribute<"macAddr", &Vnic::macAddr>,
      rt::Attribute<"backendDev", &Vnic::backendDev, &Vnic::backendDevIs>,
      rt::Attribute<"macvtapDev", &Vnic::macvtapDev, &Vnic::macvtapDevIs>,
      rt::Attribute<"macvtapFd", &Vnic::macvtapFd, &Vnic::macvtapFdIs>,
      rt::Attribute<"status", &Vnic::status, &Vnic::statusIs>,
      rt::Attribute<"linkDownPending", &Vnic::linkDownPending, &Vnic::linkDownPendingIs>>;

 private:
  const rt::String nicId_;
  const rt::String backendId_;
  const rt::EthAddr macAddr_;
  rt::String backendDev_;
  rt::String macvtapDev_;
  uint32_t macvtapFd_;
  LinkStatus status_ = linkUninitialized;
  bool linkDownPending_ = false;
};

}  // namespace Vm
