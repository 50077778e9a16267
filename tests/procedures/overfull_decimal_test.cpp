// DECIMALs with more digits than their width, as files of other programs contain them.
#include "support/overfull_decimals.h"

#include <cstring>
#include <string>
#include <vector>

#include "procedures/handlers.h"
#include "support/alone.h"
#include "support/fake_host.h"
#include "support/temp_folder.h"

namespace mduckdb::test {
namespace {

using Cells = std::vector<std::string>;

class OverfullDecimals : public ::testing::Test {
  protected:
    OverfullDecimals() {
        const AloneEngine engine(database_.c_str());
        AppendOverfullDecimals(engine.get_Connection());
        engine.Run("CREATE TABLE doubles AS SELECT x::DOUBLE AS x, y::DOUBLE AS y FROM raw");
        for (const std::string table : {"raw", "doubles"}) {
            engine.Run("COPY " + table + " TO '" + (folder_ / table) + ".parquet' (FORMAT parquet)");
        }
        for (const char* column : {"x", "y"}) {
            const std::string sql = std::string("SELECT ") + column + "::DOUBLE FROM raw";
            ResultHolder result;
            EXPECT_EQ(duckdb_query(engine.get_Connection(), sql.c_str(), result.Receive()), DuckDBSuccess);
            const ChunkHolder chunk(duckdb_fetch_chunk(*result.get()));
            const auto* doubles = static_cast<const double*>(
                duckdb_vector_get_data(duckdb_data_chunk_get_vector(chunk.get(), 0)));
            for (int row = 0; row < 3; ++row) {
                (*column == 'x' ? wide_ : narrow_).push_back(std::to_string(doubles[row]));
            }
        }
    }
    /** A column of both procedures' rows. */
    Cells FetchBoth(const std::string& table, std::int32_t column) {
        host_.Call<FetchDuckDB>({host_.Text(database_), host_.Text(table)});
        const Cells cells = Read(column);
        host_.Call<FetchParquet>({host_.Text((folder_ / table) + ".parquet")});
        EXPECT_EQ(cells, Read(column));
        return cells;
    }
    Cells Read(std::int32_t column) {
        EXPECT_TRUE(host_.has_cursor) << ::testing::PrintToString(host_.reports);
        Cells cells;
        while (host_.has_cursor && host_.cursor.next_row(host_.cursor.state) == MIRONA_ROW_OK) {
            cells.push_back(host_.Cell(column));
        }
        return cells;
    }

    TempFolder folder_;
    const std::string database_ = folder_ / "raw.db";
    Cells wide_;
    Cells narrow_;
    FakeHost host_;
};

TEST_F(OverfullDecimals, AreTheDoublesOfDuckDBsCast) {
    EXPECT_EQ(FetchBoth("doubles", 0), wide_);
    EXPECT_EQ(FetchBoth("doubles", 1), narrow_);
}

TEST_F(OverfullDecimals, AreReadAsWhatTheirVectorHoldsWhereNoCastIsMade) {
    const std::uint64_t wides[] = {0xD4B1A08F5C800000, 0x456391825CDC1B7A, UINT64_MAX};
    const std::int64_t narrows[] = {INT64_MAX, -INT64_MAX, 1500};
    Cells wide(3);
    Cells narrow(3);
    for (std::size_t row = 0; row < 3; ++row) {
        double number = 0;
        std::memcpy(&number, &wides[row], sizeof number);
        wide[row] = std::to_string(number);
        std::memcpy(&number, &narrows[row], sizeof number);
        narrow[row] = std::to_string(number);
    }
    EXPECT_EQ(FetchBoth("raw", 0), wide);
    EXPECT_EQ(FetchBoth("raw", 1), narrow);
}

}  // namespace
}  // namespace mduckdb::test
