#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <vector>

#include "database_test_base.h"
#include "nbx/mrsql/duckdb_snapshot.h"
#include "procedures/handlers.h"
#include "support/expected_by_version.h"
#include "support/fake_host.h"
#include "support/working_folder.h"

// A path means to every part of the module the file that it means to the system, or it is refused by name.

namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* kCount = "SELECT count(*) FROM t";
constexpr const char* kNotUtf8 = "\xFF";

/** A location of a host's own, which checks nothing. */
class RawLocation final : public nbx::Counted<nbx::I_Location>, public nbx::I_Folder {
  public:
    explicit RawLocation(nbx::String path) : path_(std::move(path)) {}
    void* QueryInterface(uint32_t interface_id) override {
        return interface_id == nbx::kFolderInterfaceId ? static_cast<nbx::I_Folder*>(this) : nullptr;
    }
    nbx::String get_Text() const override { return S("raw"); }
    nbx::String get_PathText() const override { return path_; }
    bool get_Exists() const override { return true; }
    nbx::smart_ptr<nbx::I_Location> get_Parent() const override { return nullptr; }
    nbx::smart_ptr<nbx::I_Location> MakeChild(const nbx::String& name) const override {
        return nbx::smart_ptr<nbx::I_Location>(nbx::MakeObject<RawLocation>(
            nbx::String(std::u16string(path_.get_View()).append(u"/").append(name.get_View()))));
    }
    void Create() override {}

  private:
    nbx::String path_;
};

class PathTest : public DatabaseTest {
  protected:
    using LocationPtr = nbx::smart_ptr<nbx::I_Location>;

    void SetUp() override {
        DatabaseTest::SetUp();
        fs::create_directories(Path("far/sub"));
        fs::create_directory_symlink("far/sub", Path("lnk"));
    }
    /** Everything in the folder and below. */
    std::vector<std::string> List() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::recursive_directory_iterator(folder.get_Path())) {
            names.push_back(entry.path().lexically_relative(folder.get_Path()).string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    void MakeRows(const std::string& path, int rows) const {
        const auto database = host.Created(path);
        Execute(*database, "CREATE TABLE t AS SELECT * FROM range(" + std::to_string(rows) + ")");
        Execute(*database, "COPY t TO '" + path + ".parquet'");
    }
    nbx::mrsql::I_DuckDBRestore& Restorer() const {
        return *static_cast<nbx::mrsql::I_DuckDBRestore*>(
            host->QueryInterface(nbx::mrsql::kDuckDBRestoreInterfaceId));
    }
    static void Snapshot(nbx::mrsql::I_DuckDBDatabase& database, const LocationPtr& file) {
        static_cast<nbx::mrsql::I_DuckDBSnapshot*>(
            database.QueryInterface(nbx::mrsql::kDuckDBSnapshotInterfaceId))
            ->Snapshot(file);
    }
    /** The number of rows of the table t, or the text that is reported. */
    static std::string FetchDuckDB(const std::string& path) {
        mduckdb::test::FakeHost caller;
        const auto* cursor = caller.Call<mduckdb::FetchDuckDB>({caller.Text(path), caller.Text("t")});
        return cursor != nullptr ? std::to_string(caller.cursor.row_count(caller.cursor.state))
                                 : caller.reports.at(0);
    }
    static std::string FetchParquet(const std::string& path) {
        mduckdb::test::FakeHost caller;
        const auto* cursor = caller.Call<mduckdb::FetchParquet>({caller.Text(path)});
        return cursor != nullptr ? std::to_string(caller.cursor.row_count(caller.cursor.state))
                                 : caller.reports.at(0);
    }
    /** Whatever makes a file at the location, with a backup and a snapshot to make it of. */
    std::vector<std::function<void(const LocationPtr&)>> Makers(const std::string& backup,
                                                                const std::string& snapshot) {
        return {
            [this](const LocationPtr& at) { host->CreateDatabase(at)->Create(); },
            [this](const LocationPtr& at) {
                const auto database = host->CreateDatabase(at);
                database->put_BlockSize(16384);
                database->Create();
            },
            [this, backup](const LocationPtr& at) { host->RestoreDatabase(at, Location(backup)); },
            [this, snapshot](const LocationPtr& at) { Restorer().RestoreSnapshot(at, Location(snapshot)); },
            [this](const LocationPtr& at) { Snapshot(*host.Opened(Path("source.db")), at); },
            [this](const LocationPtr& at) { host.Opened(Path("source.db"))->Backup(at); },
            [this](const LocationPtr& at) { host->CreateDatabase(at)->Open(); },
            [this](const LocationPtr& at) { host->CreateDatabase(at)->Drop(); }};
    }
    /** A database with 7 rows, a backup and a snapshot of it. */
    std::string MakeSources() {
        MakeRows(Path("source.db"), 7);
        fs::create_directory(Path("backups"));
        const auto source = host.Opened(Path("source.db"));
        source->Backup(Location(Path("backups")));
        Snapshot(*source, Location(Path("snap.db")));
        return fs::directory_iterator(Path("backups"))->path().string();
    }
};

TEST_F(PathTest, GoesUpFromWhereALinkLeadsInEveryPartOfTheModule) {
    MakeRows(Path("x.db"), 1);
    MakeRows(Path("lnk/../x.db"), 2);
    EXPECT_TRUE(fs::exists(Path("far/x.db")));
    EXPECT_EQ(QueryText(*host.Opened(Path("far/x.db")), kCount), "2");
    EXPECT_EQ(QueryText(*host.Opened(Path("lnk/../x.db")), kCount), "2");
    EXPECT_EQ(FetchDuckDB(Path("lnk/../x.db")), "2");
    EXPECT_EQ(FetchParquet(Path("lnk/../x.db.parquet")), "2");
    EXPECT_EQ(FetchParquet(Path("lnk/../*.parquet")), "2");
    EXPECT_TRUE(host->IsDuckDBFile(Location(Path("lnk/../x.db"))));
    const auto memory = host.Opened(":memory:");
    Execute(*memory, "ATTACH '" + Path("lnk/../x.db") + "' AS other (READ_ONLY)");
    EXPECT_EQ(QueryText(*memory, "SELECT count(*) FROM other.t"),
              get_ExpectedByVersion().attach_follows_links ? "2" : "1");
    memory->Close();
    fs::create_directory(Path("far/backups"));
    const auto database = host.Opened(Path("lnk/../x.db"));
    database->Backup(Location(Path("lnk/../backups")));
    Snapshot(*database, Location(Path("lnk/../s.db")));
    database->Close();
    const std::string backup = fs::directory_iterator(Path("far/backups"))->path().filename().string();
    host->RestoreDatabase(Location(Path("lnk/../r.db")), Location(Path("lnk/../backups/" + backup)));
    Restorer().RestoreSnapshot(Location(Path("lnk/../rs.db")), Location(Path("lnk/../s.db")));
    for (const char* name : {"far/r.db", "far/rs.db", "far/s.db"}) {
        EXPECT_EQ(QueryText(*host.Opened(Path(name)), kCount), "2") << name;
    }
    host.Database(Path("lnk/../x.db"))->Drop();
    EXPECT_FALSE(fs::exists(Path("far/x.db")));
    EXPECT_FALSE(host.Database(Path("lnk/../x.db"))->get_Exists());
    EXPECT_EQ(QueryText(*host.Opened(Path("x.db")), kCount), "1");
}

TEST_F(PathTest, GoesUpFromNoMissingFolderInAnyPartOfTheModule) {
    const std::string backup = MakeSources();
    const std::string missing = Path("missing/../source.db");
    ASSERT_FALSE(fs::exists(missing));
    const std::vector<std::string> before = List();
    EXPECT_FALSE(host.Database(missing)->get_Exists());
    EXPECT_FALSE(host->IsDuckDBFile(Location(missing)));
    EXPECT_EQ(Thrown([&] { host.Opened(missing); }), Refusal(missing, "File does not exist"));
    EXPECT_EQ(FetchDuckDB(missing), "Unable to open DuckDB database.");
    EXPECT_THAT(FetchParquet(missing + ".parquet"), HasSubstr("No files found"));
    EXPECT_THAT(FetchParquet(Path("missing/../*.parquet")), HasSubstr("No files found"));
    for (const char* name : {"missing/../source.db", "missing/../new.db"}) {
        for (const auto& make : Makers(backup, Path("snap.db"))) {
            EXPECT_NE(Thrown([&] { make(Location(Path(name))); }), "none") << name;
            EXPECT_EQ(List(), before) << name;
        }
    }
    EXPECT_EQ(Thrown([&] { host.Created(missing); }),
              Refusal(missing, "IO Error: Cannot open file \"" + missing + "\": No such file or directory"));
    EXPECT_EQ(QueryText(*host.Opened(Path("source.db")), kCount), "7");
}

TEST_F(PathTest, OfANamedPipeIsRefusedAndNotWaitedFor) {
    const std::string pipe = Path("pipe.db");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    fs::create_symlink("pipe.db", Path("link.db"));
    for (const std::string& path : {pipe, Path("link.db")}) {
        EXPECT_EQ(Thrown([&] { host.Opened(path); }),
                  "xException 99000 [Cannot open file: it is a named pipe]");
        EXPECT_NE(Thrown([&] { host.Created(path); }), "none");
        EXPECT_EQ(FetchDuckDB(path), "Cannot open file: it is a named pipe");
        EXPECT_TRUE(fs::is_fifo(path)) << path;
    }
}

TEST_F(PathTest, ThatIsRelativeIsRefusedWhenTheWorkingFolderIsGone) {
    MakeRows(Path("x.db"), 1);
    fs::create_directory(Path("gone"));
    const WorkingFolder working(Path("gone"));
    fs::remove(Path("gone"));
    EXPECT_EQ(Thrown([&] { host.Opened("x.db"); }),
              "xException 66002 [x.db] [The path is relative, and the working folder cannot be found]");
    EXPECT_EQ(FetchDuckDB("x.db"), "Unable to open DuckDB database.");
    EXPECT_EQ(FetchDuckDB("../x.db"), "Unable to open DuckDB database.");
    EXPECT_THAT(FetchParquet("x.db.parquet"), HasSubstr("No files found"));
    const auto database = host.Opened(Path("x.db"));
    EXPECT_EQ(QueryText(*database, kCount), "1");
    EXPECT_EQ(FetchDuckDB(Path("x.db")), "1");
    fs::create_directory(Path("backups"));
    database->Backup(Location(Path("backups")));
    Snapshot(*database, Location(Path("s.db")));
    EXPECT_TRUE(fs::exists(Path("s.db")));
}

TEST_F(PathTest, ThatIsRelativeToAFolderWhoseNameIsNotUtf8IsRefusedByNameOrReadsItsFile) {
    MakeRows(Path("x.db"), 3);
    const fs::path odd = Path(std::string("odd") + kNotUtf8);
    fs::create_directory(odd);
    fs::copy_file(Path("x.db"), odd / "x.db");
    const WorkingFolder working(odd);
    EXPECT_EQ(Thrown([&] { host.Opened("x.db"); }),
              "xException 66002 [x.db] [The path leads through a folder whose name is not valid UTF-8]");
    EXPECT_EQ(FetchDuckDB("x.db"), "3");
    EXPECT_EQ(FetchDuckDB("../x.db"), "3");
}

TEST_F(PathTest, ThatLeadsToAFileWhoseNameIsNotUtf8MeansThatFileAndNoOther) {
    const std::string backup = MakeSources();
    const std::string odd = Path(std::string("odd") + kNotUtf8 + ".db");
    MakeRows(Path("odd\xEF\xBF\xBD.db"), 1);
    fs::copy_file(Path("source.db"), odd);
    fs::create_symlink(odd, Path("link.db"));
    EXPECT_EQ(QueryText(*host.Opened(Path("link.db")), kCount), "7");
    EXPECT_EQ(FetchDuckDB(Path("link.db")), "7");
    EXPECT_TRUE(host->IsDuckDBFile(Location(Path("link.db"))));
    const std::vector<std::string> before = List();
    EXPECT_EQ(Thrown([&] { host->RestoreDatabase(Location(Path("link.db")), Location(backup)); }),
              Refusal(Path("link.db"), "The path leads to a file whose name is not valid UTF-8"));
    EXPECT_EQ(List(), before);
    host.Database(Path("link.db"))->Drop();
    EXPECT_FALSE(fs::exists(odd));
    EXPECT_TRUE(fs::is_symlink(Path("link.db")));
    EXPECT_EQ(QueryText(*host.Opened(Path("odd\xEF\xBF\xBD.db")), kCount), "1");
}

TEST_F(PathTest, OfAHostsOwnLocationIsRefusedWhenItsBytesWouldNameAnotherFile) {
    const std::string backup = MakeSources();
    MakeRows(Path("x\xEF\xBF\xBD.db"), 1);
    MakeRows(Path("x"), 1);
    fs::create_directory(Path("\xEF\xBF\xBD"));
    const std::vector<std::string> before = List();
    std::u16string surrogate(S(Path("x")).get_View());
    std::u16string cut = surrogate;
    surrogate += u"\xD800.db";
    cut.append(1, u'\0').append(u".db");
    for (const std::u16string& path : {surrogate, cut}) {
        const LocationPtr at(nbx::MakeObject<RawLocation>(nbx::String(path)));
        const char* reason = path == cut ? "must not contain NUL" : "is not valid UTF-16";
        EXPECT_FALSE(host->IsDuckDBFile(at));
        for (const auto& make : Makers(backup, Path("snap.db"))) {
            EXPECT_THAT(Thrown([&] { make(at); }), HasSubstr(reason));
            EXPECT_EQ(List(), before);
        }
        EXPECT_THAT(Thrown([&] { host->RestoreDatabase(Location(Path("new.db")), at); }), HasSubstr(reason));
        // A failed restore leaves the new file where there was none.
        fs::remove(Path("new.db"));
        EXPECT_THAT(Thrown([&] { Restorer().RestoreSnapshot(Location(Path("new2.db")), at); }),
                    HasSubstr(reason));
    }
}

TEST_F(PathTest, OfAnOptionIsRefusedByNameWhenItsBytesWouldNameAnotherFolder) {
    MakeRows(Path("x.db"), 1);
    nbx::mrsql::DuckDBDatabaseOptions options;
    options.temp_directory = nbx::String(u"/tmp/\xD800");
    const auto database = host.Database(Path("x.db"));
    database->put_Options(options);
    EXPECT_EQ(Thrown([&] { database->Open(); }),
              "xException 99000 [The value of temp_directory is not valid UTF-16]");
}

}  // namespace
