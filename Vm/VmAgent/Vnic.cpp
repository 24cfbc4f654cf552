#include "Vm/VmAgent/Vnic.h"

#include <unistd.h>

namespace Vm {

Vnic::Vnic(rt::String nicId, rt::String backendId, const rt::EthAddr& macAddr,
           rt::String backendDev, uint32_t macvtapFd)
    : nicId_(std::move(nicId)),
      backendId_(std::move(backendId)),
      macAddr_(macAddr),
      backendDev_(std::move(backendDev)),
      macvtapFd_(macvtapFd) {}

Vnic::~Vnic() {
  if (macvtapFd_ != noFd) close(static_cast<int>(macvtapFd_));
}

}  // namespace Vm
