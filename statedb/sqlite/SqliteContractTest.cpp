#include "runtime/base/fakes/TestFolder.h"
#include "statedb/fakes/StatusTables.h"
#include "statedb/fakes/StoreContract.h"
#include "statedb/sqlite/fakes/TestFiles.h"

namespace statedb {
namespace {

class SqliteBackend final : public Backend {
 public:
  explicit SqliteBackend(Half half) : half_(half) {
    sqlite::openStore(options(sqlite::Role::owner));
  }
  std::unique_ptr<Store> open() override {
    return sqlite::openStore(options(sqlite::Role::client));
  }
  void trim(Store& store) override {
    // Exactly so much that nothing before is left.
    for (int i = 0; i < 12'501; i += 500) {
      Transaction fill;
      for (int j = 0; j < 500; ++j)
        fill.put(half_ == Half::config ? "filling" : "vmProblem", rt::String(std::to_string(j)),
                 rt::String(std::to_string(i)));
      store.commit(fill);
    }
  }

 private:
  sqlite::StoreOptions options(sqlite::Role role) const {
    sqlite::StoreOptions options;
    options.file = rt::String(dir_ / "store.db");
    options.half = half_;
    options.isStatus = fakes::isStatus;
    options.role = role;
    return options;
  }

  const Half half_;
  const rt::fakes::TestFolder dir_;
};

INSTANTIATE_TEST_SUITE_P(
    Sqlite, StoreContract,
    testing::Values(BackendCase{"config",
                                [] { return std::make_unique<SqliteBackend>(Half::config); },
                                Half::config},
                    BackendCase{"status",
                                [] { return std::make_unique<SqliteBackend>(Half::status); },
                                Half::status}),
    [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace statedb
