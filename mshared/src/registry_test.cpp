#include "nbx/mrsql/registry.h"

#include "mshared/test_support.h"

namespace nbx::mrsql {
namespace {

class FakeExtension final : public Counted<I_DuckDBExtension> {
  public:
    explicit FakeExtension(int& alive) : alive_(alive) { ++alive_; }
    ~FakeExtension() override { --alive_; }
    void* QueryInterface(uint32_t /*interface_id*/) override { return nullptr; }

    const char* get_LibraryVersion() override { return "fake"; }
    smart_ptr<I_DuckDBDatabase> CreateDatabase(smart_ptr<I_Location> /*location*/) override {
        return nullptr;
    }
    smart_ptr<ValueRows> get_ClientCursorRows(smart_ptr<I_DuckDBCursor> /*cursor*/) override {
        return nullptr;
    }
    bool IsClientCursor(smart_ptr<I_DuckDBCursor> /*cursor*/) override { return false; }
    bool IsDatabaseOpen(const String& /*path*/) override { return false; }
    bool IsDuckDBFile(smart_ptr<I_Location> /*location*/) override { return false; }
    bool IsInMemoryPath(const String& /*path*/) override { return false; }
    smart_ptr<I_DuckDBDatabase> RestoreDatabase(smart_ptr<I_Location> /*database_location*/,
                                                smart_ptr<I_Location> /*backup_folder*/) override {
        return nullptr;
    }

  private:
    int& alive_;
};

TEST(Registry, HoldsTheExtensionUntilItIsReplaced) {
    int alive = 0;
    EXPECT_FALSE(GetDuckDBExtension());
    SetDuckDBExtension(MakeObject<FakeExtension>(alive));
    EXPECT_EQ(alive, 1);
    EXPECT_STREQ(GetDuckDBExtension()->get_LibraryVersion(), "fake");
    EXPECT_EQ(GetDuckDBExtension()->get_RefsCount(), 2U) << "the registry's and ours";
    SetDuckDBExtension(MakeObject<FakeExtension>(alive));
    EXPECT_EQ(alive, 1);
    SetDuckDBExtension(nullptr);
    EXPECT_EQ(alive, 0);
    EXPECT_FALSE(GetDuckDBExtension());
}

}  // namespace
}  // namespace nbx::mrsql
