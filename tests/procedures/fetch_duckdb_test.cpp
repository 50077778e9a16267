#include <duckdb.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "engines/engine_files.h"
#include "procedures/handlers.h"
#include "procedures/private_engine.h"
#include "support/alone.h"
#include "support/fake_host.h"

namespace mduckdb::test {
namespace {

using ::testing::ElementsAre;

/** A folder with a database of one table, `items`, with the numbers 1 and 2. */
class FetchDuckDBTest : public ::testing::Test {
  protected:
    FetchDuckDBTest() {
        std::string pattern = (std::filesystem::temp_directory_path() / "fetch_duckdb.XXXXXX").string();
        folder_ = mkdtemp(pattern.data());
        file_ = folder_ + "/a.db";
        Run(file_, "CREATE TABLE items AS SELECT unnest([1, 2]) AS id");
    }
    ~FetchDuckDBTest() override { std::filesystem::remove_all(folder_); }

    static void Run(const std::string& file, const char* sql) { RunAlone(file.c_str(), sql); }

    bool Fetch(const std::string& uri) {
        host_.reports.clear();
        return host_.Call<FetchDuckDB>({host_.Text(uri), host_.Text("items")}) != nullptr;
    }

    std::string folder_;
    std::string file_;
    FakeHost host_;
};

/** Keeps the file open for writing, as a database object does. */
class HeldForWriting {
  public:
    explicit HeldForWriting(const std::string& file) {
        FileTurn turn(EngineFiles::Get(), file);
        std::string error;
        engine_ = turn.OpenWriter(file, Configuration(), error);
        EXPECT_NE(nullptr, engine_) << error;
        EXPECT_EQ(DuckDBSuccess, duckdb_connect(engine_->handle, &connection_));
    }
    HeldForWriting(const HeldForWriting&) = delete;
    HeldForWriting& operator=(const HeldForWriting&) = delete;
    ~HeldForWriting() { Close(); }
    void Run(const char* sql) { EXPECT_EQ(DuckDBSuccess, duckdb_query(connection_, sql, nullptr)) << sql; }
    void Close() {
        duckdb_disconnect(&connection_);
        engine_.reset();
    }

  private:
    SharedEngine engine_;
    duckdb_connection connection_ = nullptr;
};

TEST_F(FetchDuckDBTest, ReadsThroughTheEngineThatHasTheFileOpenForWriting) {
    HeldForWriting writer(file_);
    writer.Run("INSERT INTO items VALUES (3); BEGIN; INSERT INTO items VALUES (4)");
    std::filesystem::create_symlink(file_, folder_ + "/link.db");
    std::filesystem::create_hard_link(file_, folder_ + "/hard.db");
    for (const std::string& uri :
         {file_, folder_ + "/./a.db", "file:" + file_, "file://" + file_, "file://localhost" + file_,
          "duckdb:" + file_, "DuckDB:" + file_, folder_ + "/link.db", folder_ + "/hard.db"}) {
        ASSERT_TRUE(Fetch(uri)) << uri << ": " << host_.reports[0];
        EXPECT_EQ(3u, host_.cursor.row_count(host_.cursor.state)) << uri;
        EXPECT_EQ(1u, EngineFiles::Get().get_EngineCount()) << uri;
    }
}

TEST_F(FetchDuckDBTest, TheFirstPartOfANameMayBeTheGivenNameOfTheFile) {
    std::filesystem::create_symlink(file_, folder_ + "/link.x.db");
    const auto fetch = [this](const char* file, const char* name) {
        host_.reports.clear();
        const auto* cursor = host_.Call<FetchDuckDB>({host_.Text(folder_ + "/" + file), host_.Text(name)});
        return cursor != nullptr ? "" : host_.reports.at(0);
    };
    const auto expect_same = [&fetch](const std::string& when) {
        for (const char* name :
             {"items", "main.items", "link.items", "LINK.main.items", "\"link\".\"items\""}) {
            EXPECT_EQ("", fetch("link.x.db", name)) << name << when;
        }
        EXPECT_EQ("", fetch("a.db", "a.items")) << when;
        EXPECT_NE("", fetch("a.db", "link.items")) << when;
    };
    expect_same(" alone");
    HeldForWriting writer(file_);
    expect_same(" beside a writer");
}

TEST_F(FetchDuckDBTest, ErrorsHaveTheSameTextsNextToAWriter) {
    const auto report = [this](const char* table) {
        host_.reports.clear();
        EXPECT_EQ(nullptr, host_.Call<FetchDuckDB>({host_.Text(file_), host_.Text(table)}));
        return host_.reports.at(0);
    };
    Run(file_, "CREATE VIEW wrong AS SELECT CAST(id || 'x' AS INTEGER) AS i FROM items");
    const std::string missing = report("nothing");
    const std::string wrong = report("wrong");
    HeldForWriting writer(file_);
    writer.Run("SET GLOBAL errors_as_json = true");
    EXPECT_EQ(missing, report("nothing"));
    EXPECT_EQ(wrong, report("wrong"));
}

TEST_F(FetchDuckDBTest, ACursorNextToAWriterDoesNotBlockCheckpointsAndKeepsTheEngine) {
    HeldForWriting writer(file_);
    ASSERT_TRUE(Fetch(file_));
    writer.Run("DELETE FROM items");
    writer.Run("FORCE CHECKPOINT");
    EXPECT_FALSE(std::filesystem::exists(file_ + ".wal"));
    writer.Close();
    EXPECT_TRUE(EngineFiles::Get().IsInUse(file_));
    EXPECT_EQ(2u, host_.cursor.row_count(host_.cursor.state));
    host_.CloseCursor();
    EXPECT_FALSE(EngineFiles::Get().IsInUse(file_));
}

TEST_F(FetchDuckDBTest, WritesNothingNextToAWriter) {
    HeldForWriting writer(file_);
    writer.Run("CREATE SEQUENCE s; CREATE VIEW counting AS SELECT nextval('s') AS n");
    EXPECT_EQ(nullptr, host_.Call<FetchDuckDB>({host_.Text(file_), host_.Text("counting")}));
}

TEST_F(FetchDuckDBTest, ReleasesTheFileWhenTheCursorIsClosed) {
    ASSERT_TRUE(Fetch(file_));
    EXPECT_TRUE(EngineFiles::Get().IsInUse(file_));
    host_.CloseCursor();
    EXPECT_FALSE(EngineFiles::Get().IsInUse(file_));
    EXPECT_EQ(0u, EngineFiles::Get().get_EngineCount());
}

TEST_F(FetchDuckDBTest, ReleasesTheFileWhenTheCallFails) {
    EXPECT_EQ(nullptr, host_.Call<FetchDuckDB>({host_.Text(file_), host_.Text("nothing")}));
    EXPECT_FALSE(EngineFiles::Get().IsInUse(file_));
    EXPECT_FALSE(Fetch(folder_ + "/missing.db"));
    EXPECT_FALSE(EngineFiles::Get().IsInUse(folder_ + "/missing.db"));
    EXPECT_FALSE(std::filesystem::exists(folder_ + "/missing.db"));
}

TEST_F(FetchDuckDBTest, ReusesTheEngineOfACursorThatWasClosedBeforeAnother) {
    FakeHost other;  // calls go through its table from now on; both tables are alike
    ASSERT_NE(nullptr, other.Call<FetchDuckDB>({other.Text(file_), other.Text("items")}));
    ASSERT_TRUE(Fetch(file_));
    host_.CloseCursor();
    EXPECT_EQ(2u, EngineFiles::Get().get_EngineCount());
    ASSERT_TRUE(Fetch(file_));
    EXPECT_EQ(2u, EngineFiles::Get().get_EngineCount());
    host_.CloseCursor();
    other.CloseCursor();
    EXPECT_FALSE(EngineFiles::Get().IsInUse(file_));
}

TEST_F(FetchDuckDBTest, SeesWhatWasWrittenBetweenTwoCalls) {
    ASSERT_TRUE(Fetch(file_));
    EXPECT_EQ(2u, host_.cursor.row_count(host_.cursor.state));
    host_.CloseCursor();
    Run(file_, "INSERT INTO items VALUES (3)");
    ASSERT_TRUE(Fetch(file_));
    EXPECT_EQ(3u, host_.cursor.row_count(host_.cursor.state));
}

TEST_F(FetchDuckDBTest, ReadsFilesWithBlanksQuotesAndUmlautsInTheirNames) {
    const std::string odd = folder_ + "/it's a \xC3\xBC b.db";
    std::filesystem::copy_file(file_, odd);
    EXPECT_TRUE(Fetch(odd));
}

TEST_F(FetchDuckDBTest, FindsNoTableInMemory) {
    EXPECT_FALSE(Fetch(":memory:"));
    ASSERT_EQ(1u, host_.reports.size());
    EXPECT_THAT(host_.reports[0], ::testing::HasSubstr("items"));
}

TEST(DatabaseFilePath, IsThePathThatDuckDBOpens) {
    EXPECT_EQ("/a/b.db", DatabaseFilePath("/a/b.db"));
    EXPECT_EQ("/a/b.db", DatabaseFilePath("file:/a/b.db"));
    EXPECT_EQ("/a/b.db", DatabaseFilePath("file:///a/b.db"));
    EXPECT_EQ("/a/b.db", DatabaseFilePath("file://localhost/a/b.db"));
    EXPECT_EQ("/a/b.db", DatabaseFilePath("duckdb:/a/b.db"));
    EXPECT_EQ("a.db", DatabaseFilePath("a.db"));
    EXPECT_EQ("file:a.db", DatabaseFilePath("file:a.db"));
    EXPECT_EQ("", DatabaseFilePath(std::string("a.db\0x", 6)));
}

}  // namespace
}  // namespace mduckdb::test
