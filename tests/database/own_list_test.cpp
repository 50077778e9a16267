#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <string_view>

#include "database_test_base.h"
#include "procedures/handlers.h"
#include "support/fake_host.h"
#include "support/second_module.h"

// Two modules of one process that do not share a list of open files, because they know different versions of
// it.

namespace {

using ::testing::HasSubstr;

/** The built module as one that knows only another version of the list. The name is replaced by one of the
    same length, which nothing in the process has. */
std::string MakeModuleOfAnotherVersion(const std::string& path) {
    constexpr std::string_view kOurs = "nbx_open_files_1";
    constexpr std::string_view kTheirs = "nbx_open_files_2";
    std::ifstream file(SecondModule::get_BuiltPath(), std::ios::binary);
    std::string content(std::filesystem::file_size(SecondModule::get_BuiltPath()), '\0');
    file.read(content.data(), static_cast<std::streamsize>(content.size()));
    int count = 0;
    for (std::size_t at = content.find(kOurs); at != content.npos; at = content.find(kOurs, at)) {
        content.replace(at, kTheirs.size(), kTheirs);
        ++count;
    }
    EXPECT_GT(count, 0);
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

class OwnList : public DatabaseTest {
  protected:
    static constexpr const char* kOtherUse = "by other means";

    std::string CountRows(const std::string& path) const {
        return QueryText(*host.Opened(path), "SELECT count(*) FROM t");
    }

    const SecondModule other{MakeModuleOfAnotherVersion(Path("other_module.so"))};
    const std::string real = MakeFile();
};

TEST_F(OwnList, OfTheOtherModuleServesItsObjectsUnderEveryName) {
    std::filesystem::create_symlink("test.db", Path("link.db"));
    {
        const auto first = other->CreateDatabase(Location(real));
        const auto second = other->CreateDatabase(Location(Path("link.db")));
        first->Open();
        second->Open();
        Execute(*first, "INSERT INTO t VALUES (4)");
        Execute(*second, "INSERT INTO t VALUES (5)");
        EXPECT_EQ(Thrown([&] { other->CreateDatabase(Location(real))->Drop(); }),
                  Refusal(real, "Can not be dropped. 2 connections are alive."));
        EXPECT_EQ(mduckdb::EngineFiles::Get().get_EngineCount(), 0u)
            << "the other module uses a list of its own";
        first->Close();
        EXPECT_THAT(TryOpenElsewhere(real, true), HasSubstr("lock"));
        second->Close();
    }
    EXPECT_EQ(CountRows(real), "5");
}

TEST_F(OwnList, DoesNotHideAFileThatTheOtherModuleHasOpen) {
    const auto theirs = other->CreateDatabase(Location(real));
    theirs->Open();
    EXPECT_THAT(Thrown([&] { host.Opened(real); }), HasSubstr(kOtherUse));
    EXPECT_THAT(Thrown([&] { host.Created(real); }), HasSubstr(kOtherUse));
    EXPECT_THAT(Thrown([&] { host.Database(real)->Drop(); }), HasSubstr(kOtherUse));
    EXPECT_TRUE(host->IsDuckDBFile(Location(real)));
    {
        mduckdb::test::FakeHost caller;
        EXPECT_EQ(caller.Call<mduckdb::FetchDuckDB>({caller.Text(real), caller.Text("t")}), nullptr);
        EXPECT_THAT(caller.reports.at(0), HasSubstr(kOtherUse));
    }
    EXPECT_THAT(TryOpenElsewhere(real, true), HasSubstr("lock"));
    Execute(*theirs, "INSERT INTO t VALUES (4)");
    theirs->Close();
    EXPECT_EQ(CountRows(real), "4");
}

TEST_F(OwnList, DoesNotHideAFileFromTheOtherModule) {
    const auto ours = host.Opened(real);
    EXPECT_THAT(Thrown([&] { other->CreateDatabase(Location(real))->Open(); }), HasSubstr(kOtherUse));
    EXPECT_THAT(Thrown([&] { other->CreateDatabase(Location(real))->Create(); }), HasSubstr(kOtherUse));
    EXPECT_THAT(Thrown([&] { other->CreateDatabase(Location(real))->Drop(); }), HasSubstr(kOtherUse));
    EXPECT_TRUE(other->IsDuckDBFile(Location(real)));
    EXPECT_THAT(TryOpenElsewhere(real, true), HasSubstr("lock"));
    Execute(*ours, "INSERT INTO t VALUES (4)");
    ours->Close();
    EXPECT_EQ(CountRows(real), "4");
}

}  // namespace
