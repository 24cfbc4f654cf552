#include "host/LoadedAgent.h"

namespace host {

LoadedAgent::LoadedAgent() {
  root->agentIs(config, status, allIntfStatusDir, localDir, present, kernel, bridging);
}

LoadedAgent::~LoadedAgent() { root->agentDel(); }

}  // namespace host
