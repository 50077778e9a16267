// Rows on their way out as Arrow arrays, and in by the appender.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

#include "arrow_walk.h"
#include "host_value_input.h"
#include "nbx/mrsql/duckdb_appender.h"
#include "nbx/mrsql/duckdb_arrow.h"
#include "session.h"
#include "targets.h"

namespace fuzz {

using nbx::mrsql::DuckDBAppenderOptions;
using nbx::mrsql::DuckDBBytes;
using nbx::mrsql::DuckDBColumnArray;
using nbx::mrsql::I_DuckDBAppender;
using nbx::mrsql::I_DuckDBAppenders;
using nbx::mrsql::I_DuckDBArrow;

namespace {

constexpr std::array kTypes = {"BOOLEAN",
                               "TINYINT",
                               "INTEGER",
                               "BIGINT",
                               "HUGEINT",
                               "UHUGEINT",
                               "FLOAT",
                               "DOUBLE",
                               "DECIMAL(4,1)",
                               "DECIMAL(18,3)",
                               "DECIMAL(38,10)",
                               "VARCHAR",
                               "BLOB",
                               "BIT",
                               "UUID",
                               "DATE",
                               "TIME",
                               "TIMETZ",
                               "TIMESTAMP",
                               "TIMESTAMP_S",
                               "TIMESTAMP_NS",
                               "TIMESTAMPTZ",
                               "INTERVAL",
                               "BIGNUM",
                               "JSON",
                               "ENUM('a','b')",
                               "INTEGER[]",
                               "VARCHAR[]",
                               "INTEGER[2]",
                               "STRUCT(a INTEGER, b VARCHAR)",
                               "MAP(VARCHAR, INTEGER)",
                               "VARIANT",
                               "UNION(i INTEGER, s VARCHAR)"};
constexpr std::size_t kMostColumns = 4;

std::string ColumnsOf(Input& input) {
    std::string columns;
    for (std::size_t i = 0, count = 1 + input.Pick(kMostColumns); i < count; ++i) {
        columns += (i == 0 ? "c" : ", c") + std::to_string(i) + " " + kTypes[input.Pick(kTypes.size())];
    }
    return columns;
}

std::string Literal(std::string_view text) {
    std::string literal = "'";
    for (const char c : text) {
        literal += c == '\'' ? std::string("''") : std::string(1, c);
    }
    return literal + "'";
}

/** One column of rows from the input; the arrays live as long as this. */
class ColumnInput {
  public:
    ColumnInput(Input& input, std::size_t rows) {
        column_.type = static_cast<uint32_t>(input.Pick(44));
        column_.width = static_cast<uint8_t>(input.Pick(40));
        column_.scale = static_cast<uint8_t>(input.Pick(40));
        if (input.Flag()) {
            for (std::size_t i = 0; i < rows / 64 + 1; ++i) {
                validity_.push_back(input.Number(8));
            }
            column_.validity = validity_.data();
        }
        for (std::size_t i = 0; i < rows; ++i) {
            texts_.emplace_back(input.Text());
        }
        for (const std::string& text : texts_) {
            pieces_.push_back({text.data(), text.size()});
        }
        // As wide as the widest element.
        fixed_.resize(rows * 16);
        const std::string_view bytes = input.Bytes(fixed_.size());
        std::copy(bytes.begin(), bytes.end(), fixed_.begin());
        const bool is_text = column_.type == 17 || column_.type == 18 || column_.type == 29;
        column_.data = is_text ? static_cast<const void*>(pieces_.data()) : fixed_.data();
        if (column_.type == 1) {
            // A bool has two values.
            for (char& byte : fixed_) {
                byte &= 1;
            }
        }
    }

    const DuckDBColumnArray& get() const { return column_; }

  private:
    DuckDBColumnArray column_{};
    std::vector<uint64_t> validity_{};
    std::vector<std::string> texts_{};
    std::vector<DuckDBBytes> pieces_{};
    std::vector<char> fixed_{};
};

void AppendSome(I_DuckDBAppender& appender, Input& input) {
    const uint32_t columns = appender.get_ColumnCount();
    switch (input.Pick(6)) {
        case 0: {
            const std::size_t rows = input.Pick(5);
            std::vector<ColumnInput> owners;
            std::vector<DuckDBColumnArray> arrays;
            for (uint32_t i = 0; i < columns; ++i) {
                owners.emplace_back(input, rows);
            }
            for (const ColumnInput& owner : owners) {
                arrays.push_back(owner.get());
            }
            appender.AppendColumns(arrays.data(), columns, rows);
            break;
        }
        case 1:
            appender.Flush();
            break;
        case 2:
            appender.Rollback();
            break;
        case 3:
            appender.Commit();
            break;
        default: {
            auto row = nbx::MakeObject<nbx::ValueRow>();
            for (uint32_t i = 0; i < columns; ++i) {
                row->Append(TakeHostValue(input));
            }
            appender.AppendRow(row);
        }
    }
}

void Append(Session& session, Input& input) {
    DuckDBAppenderOptions options;
    options.table = Session::Text("t");
    options.in_one_transaction = input.Flag();
    auto& appenders =
        *static_cast<I_DuckDBAppenders*>(session->QueryInterface(nbx::mrsql::kDuckDBAppendersInterfaceId));
    const auto appender = appenders.CreateAppender(options);
    while (!input.get_IsEmpty()) {
        session.Try([&] { AppendSome(*appender, input); });
    }
    const bool is_stored = session.Try([&] { appender->Close(); });
    session.Try([&] {
        const auto cursor =
            session->SqlSelect(Session::Text("SELECT count(*) FROM t"), nbx::mrsql::kClientCursor, nullptr);
        cursor->FirstRecord();
        const auto rows = static_cast<uint64_t>(cursor->get_Value(0)->get_LLong());
        Require(!is_stored || rows == appender->get_StoredRowCount(),
                "the appender counts other rows than the table");
    });
    session.Try(
        [&] { ReadAll(*session->SqlSelect(Session::Text("FROM t"), nbx::mrsql::kServerCursor, nullptr)); });
}

}  // namespace

void ArrowRows(Input& input) {
    Session& session = Session::Shared();
    std::string sql = "SELECT ";
    for (std::size_t i = 0, count = 1 + input.Pick(kMostColumns); i < count; ++i) {
        const char* const type = kTypes[input.Pick(kTypes.size())];
        sql += (i == 0 ? "TRY_CAST(" : ", TRY_CAST(") + Literal(input.Text()) + " AS " + type + ")";
    }
    sql += " FROM range(" + std::to_string(input.Byte()) + ")";
    const uint32_t location = input.Flag() ? nbx::mrsql::kClientCursor : nbx::mrsql::kServerCursor;
    session.Try([&] {
        const auto cursor = session->SqlSelect(Session::Text(sql), location, nullptr);
        ArrowArrayStream stream{};
        static_cast<I_DuckDBArrow*>(cursor->QueryInterface(nbx::mrsql::kDuckDBArrowInterfaceId))
            ->ExportStream(stream);
        WalkStream(stream);
    });
}

void AppendedRows(Input& input) {
    Session& session = Session::Shared();
    session.Try([&] {
        session.Run("CREATE OR REPLACE TABLE t (" + ColumnsOf(input) + ")");
        Append(session, input);
    });
}

}  // namespace fuzz
