#include "workloads.h"

#include <filesystem>

namespace bench {
namespace {

constexpr double kW1Rows = 2'000'000;
constexpr double kOrderRows = 600'000;
constexpr double kTextRows = 2'000'000;
constexpr double kNestedRows = 200'000;
constexpr double kTallRows = 10'000'000;

std::string Count(double rows, const Options& options) {
    return std::to_string(static_cast<long long>(rows * options.scale));
}

std::string OrdersSql(const std::string& rows) {
    return "CREATE TABLE orders AS SELECT (i // 4 + 1)::BIGINT AS o_key, (hash(i, 1) % 20000 + 1)::BIGINT AS "
           "o_part, "
           "(hash(i, 2) % 1000 + 1)::BIGINT AS o_supplier, (i % 4 + 1)::INTEGER AS o_line, "
           "(hash(i, 3) % 50 + 1)::DECIMAL(15,2) AS o_quantity, "
           "((hash(i, 4) % 10000000 + 90000) / 100)::DECIMAL(15,2) AS o_price, "
           "((hash(i, 5) % 11) / 100)::DECIMAL(15,2) AS o_discount, ((hash(i, 6) % 9) / 100)::DECIMAL(15,2) "
           "AS o_tax, "
           "substr('ANR', (hash(i, 7) % 3 + 1)::INTEGER, 1) AS o_flag, "
           "substr('FO', (hash(i, 8) % 2 + 1)::INTEGER, 1) AS o_status, "
           "DATE '1992-01-02' + (hash(i, 9) % 2500)::INTEGER AS o_shipped, "
           "DATE '1992-01-31' + (hash(i, 10) % 2500)::INTEGER AS o_promised, "
           "DATE '1992-02-04' + (hash(i, 11) % 2500)::INTEGER AS o_received, "
           "(['DELIVER IN PERSON', 'COLLECT COD', 'NONE', 'TAKE BACK RETURN'])[(hash(i, 12) % 4 + "
           "1)::INTEGER] AS o_how, "
           "(['REG AIR', 'AIR', 'RAIL', 'SHIP', 'TRUCK', 'MAIL', 'FOB'])[(hash(i, 13) % 7 + 1)::INTEGER] AS "
           "o_mode, "
           "substr('order ' || i || ' was packed with care and left the house in time', 1, "
           "(10 + hash(i, 14) % 34)::INTEGER) AS o_comment FROM range(" +
           rows + ") t(i)";
}

std::string TextSql(const std::string& rows) {
    return "CREATE TABLE texts AS SELECT 'k' || lpad(i::VARCHAR, 7, '0') AS short_text, "
           "'row ' || lpad(i::VARCHAR, 10, '0') || ' of a text of forty bytes.' AS long_text, "
           "'Привет, ' || translate(lpad(i::VARCHAR, 9, '0'), '0123456789', 'абвгдежзик') || '日本語' AS "
           "wide_text "
           "FROM range(" +
           rows + ") t(i)";
}

}  // namespace

BareDuckDB::BareDuckDB(const std::string& path, bool read_only) {
    duckdb_config config = nullptr;
    duckdb_create_config(&config);
    duckdb_set_config(config, "threads", "1");
    if (!path.empty() && read_only) {
        duckdb_set_config(config, "access_mode", "READ_ONLY");
    }
    char* error = nullptr;
    const char* name = path.empty() ? nullptr : path.c_str();
    if (duckdb_open_ext(name, &database_, config, &error) != DuckDBSuccess) {
        Die(error);
    }
    duckdb_destroy_config(&config);
    if (duckdb_connect(database_, &connection_) != DuckDBSuccess) {
        Die("cannot connect");
    }
}

BareDuckDB::~BareDuckDB() {
    duckdb_disconnect(&connection_);
    duckdb_close(&database_);
}

void BareDuckDB::Run(const std::string& sql) const {
    duckdb_result result;
    if (duckdb_query(connection_, sql.c_str(), &result) != DuckDBSuccess) {
        Die(std::string(duckdb_result_error(&result)) + " in: " + sql);
    }
    duckdb_destroy_result(&result);
}

const Data& PrepareData(const Options& options) {
    static Data data;
    if (!data.database.empty()) {
        return data;
    }
    std::filesystem::create_directories(options.folder);
    const std::string stem = options.folder + "/data-" + std::to_string(options.scale);
    data = {stem + ".duckdb", stem + ".parquet", stem + "-tall.parquet"};
    if (!std::filesystem::exists(data.tall_parquet)) {
        for (const std::string& file : {data.database, data.database + ".wal", data.parquet}) {
            std::filesystem::remove(file);
        }
        const BareDuckDB duckdb(data.database, false);
        duckdb.Run(OrdersSql(Count(kOrderRows, options)));
        duckdb.Run(TextSql(Count(kTextRows, options)));
        duckdb.Run("COPY orders TO '" + data.parquet + "' (FORMAT PARQUET)");
        duckdb.Run("COPY (SELECT i AS n FROM range(" + Count(kTallRows, options) + ") t(i)) TO '" +
                   data.tall_parquet + "' (FORMAT PARQUET)");
    }
    return data;
}

Workload GetWorkload(const std::string& name, const Options& options) {
    const Data& data = PrepareData(options);
    if (name == "W1") {
        return {name,
                "SELECT i::INTEGER AS a, i * 1.5::DOUBLE AS b, i::BIGINT AS c, 'str' || i AS d, "
                "(i % 100)::SMALLINT AS e FROM range(" +
                    Count(kW1Rows, options) + ") t(i)"};
    }
    if (name == "numbers") {
        return {name,
                "SELECT i::INTEGER AS a, i * 1.5::DOUBLE AS b, i::BIGINT AS c, (i % 100)::SMALLINT AS d, "
                "(i * 7)::BIGINT AS e FROM range(" +
                    Count(kW1Rows, options) + ") t(i)"};
    }
    if (name == "W2") {
        return {name, "SELECT * FROM orders"};
    }
    if (name == "W2-parquet") {
        return {name, "SELECT * FROM read_parquet('" + data.parquet + "')"};
    }
    if (name == "W3") {
        return {name, "SELECT * FROM texts"};
    }
    if (name == "W4") {
        return {name,
                "SELECT [i, i + 1, i + 2] AS numbers, {'a': i, 'b': 'text ' || i} AS record, (i * "
                "3)::VARIANT AS v "
                "FROM range(" +
                    Count(kNestedRows, options) + ") t(i)"};
    }
    Die("no workload " + name);
}

}  // namespace bench
