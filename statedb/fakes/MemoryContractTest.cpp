#include "statedb/fakes/MemoryStore.h"
#include "statedb/fakes/StatusTables.h"
#include "statedb/fakes/StoreContract.h"

namespace statedb {
namespace {

class MemoryBackend final : public Backend {
 public:
  std::unique_ptr<Store> open() override {
    return std::make_unique<fakes::MemoryStore>(data_, Half::config, fakes::isStatus);
  }
  void trim(Store& store) override { dynamic_cast<fakes::MemoryStore&>(store).trim(); }

 private:
  const std::shared_ptr<fakes::MemoryData> data_ = std::make_shared<fakes::MemoryData>();
};

INSTANTIATE_TEST_SUITE_P(Memory, StoreContract,
                         testing::Values(BackendCase{
                             "memory", [] { return std::make_unique<MemoryBackend>(); }}),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace statedb
