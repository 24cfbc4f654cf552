#include "host/ShimClient.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace host {

bool askShimToStop(const rt::String& runDir, const rt::String& vm, const rt::String& timeout) {
  const rt::String path = runDir + "/vm/" + vm + "/shim.sock";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return false;
  path.str().copy(address.sun_path, sizeof address.sun_path - 1);
  // It must not keep the loop waiting, whatever the shim does; the request fits into any buffer,
  // and stays there when we have gone.
  const int shim = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const rt::String request = R"({"stop":{"timeout":)" + timeout + "}}\n";
  const bool asked =
      connect(shim, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      send(shim, request.charPtr(), request.size(), MSG_NOSIGNAL) ==
          static_cast<ssize_t>(request.size());
  close(shim);
  return asked;
}

}  // namespace host
