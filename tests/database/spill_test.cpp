#include <filesystem>

#include "database_test_base.h"
#include "nbx/value.h"

// Engines write rows that exceed their memory to a folder; no two of them use the same.
namespace {

namespace fs = std::filesystem;
using nbx::mrsql::DuckDBDatabaseOptions;
using Cursor = nbx::smart_ptr<nbx::mrsql::I_DuckDBCursor>;

class Spill : public DatabaseTest {
  protected:
    static constexpr int64_t kRows = 600'000;

    Database Open(const std::string& path, const std::string& spill_folder, bool for_writing = true) const {
        DuckDBDatabaseOptions options;
        options.threads = 1;
        options.max_memory_mb = 24;
        options.temp_directory = S(spill_folder);
        options.read_write = for_writing;
        auto database = host.Database(path);
        database->put_Options(options);
        database->Open();
        return database;
    }
    /** More rows than the memory holds. */
    static Cursor Select(nbx::mrsql::I_DuckDBDatabase& database, int64_t begin) {
        const std::string sql = "SELECT i, md5(i::VARCHAR) FROM range(" + std::to_string(begin) + ", " +
                                std::to_string(begin + kRows) + ") t(i)";
        return database.SqlSelect(S(sql), nbx::mrsql::kServerCursor, nullptr);
    }
    static void ExpectRows(nbx::mrsql::I_DuckDBCursor& cursor, int64_t begin) {
        int64_t row = begin;
        while (cursor.NextRecord()) {
            ASSERT_EQ(cursor.get_Value(0)->get_LLong(), row);
            ++row;
        }
        EXPECT_EQ(row, begin + kRows);
    }
    static std::string FolderOf(nbx::mrsql::I_DuckDBDatabase& database) {
        return QueryText(database, "SELECT current_setting('temp_directory')");
    }
    static bool HasSpilled(nbx::mrsql::I_DuckDBDatabase& database) {
        return QueryText(database, "SELECT count(*) > 0 FROM duckdb_temporary_files()") == "true";
    }
    /** Both have rows on the disk at once; one is closed before the other is read. */
    static void ExpectBothKeepTheirRows(const Database& one, const Database& other) {
        const Cursor first = Select(*one, 0);
        Cursor second = Select(*other, kRows);
        EXPECT_TRUE(HasSpilled(*one) && HasSpilled(*other));
        EXPECT_NE(FolderOf(*one), FolderOf(*other));
        ExpectRows(*second, kRows);
        second.reset();
        other->Close();
        ExpectRows(*first, 0);
        one->Close();
    }
};

TEST_F(Spill, OfDatabasesThatAreGivenOneFolderKeepsTheirRows) {
    MakeFile("a.db");
    MakeFile("b.db");
    fs::create_directory_symlink(".", Path("link"));
    for (const bool exists : {false, true}) {
        const std::string spill = Path(exists ? "existing" : "missing");
        if (exists) {
            fs::create_directory(spill);
        }
        const Database one = Open(Path("a.db"), spill);
        EXPECT_EQ(FolderOf(*one), spill);
        // Another name of the folder.
        ExpectBothKeepTheirRows(one, Open(Path("b.db"), Path("link/") + fs::path(spill).filename().string()));
        EXPECT_EQ(fs::exists(spill), exists);
        EXPECT_TRUE(!exists || fs::is_empty(spill));
    }
}

TEST_F(Spill, OfReadersOfOneFileKeepsTheirRows) {
    MakeFile();
    const Database one = Open(Path(), "", false);
    EXPECT_EQ(FolderOf(*one), Path() + ".tmp");
    ExpectBothKeepTheirRows(one, Open(Path(), "", false));
    EXPECT_EQ(std::distance(fs::directory_iterator(Path("")), fs::directory_iterator()), 1);
}

}  // namespace
