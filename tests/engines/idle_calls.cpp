#include "engines/idle_calls.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

#include "base/holders.h"

namespace mduckdb {

const EngineTerms kTerms = std::make_shared<int>();

MemoryEngine Open(const EngineTerms& terms, const std::string& temporary_folder) {
    static std::atomic<int> count{0};
    const uint64_t round = IdleEngines::get_Round();
    FileTurn turn = FileTurn::OfName("test " + std::to_string(++count));
    Configuration configuration;
    configuration.Set("threads", "2");
    if (!temporary_folder.empty()) {
        configuration.Set("temp_directory", temporary_folder);
        configuration.Set("max_memory", "40MB");
    }
    std::string error;
    SharedEngine engine = turn.OpenWriter(":memory:", configuration, error);
    EXPECT_TRUE(engine) << error;
    return {engine, terms, round};
}

std::string RunOn(const MemoryEngine& engine, const std::string& sql) {
    duckdb_connection connection = nullptr;
    EXPECT_EQ(DuckDBSuccess, duckdb_connect(engine.get_Engine()->handle, &connection));
    std::string error;
    {
        ResultHolder result;
        if (duckdb_query(connection, sql.c_str(), result.Receive()) != DuckDBSuccess) {
            error = duckdb_result_error(result.get());
        }
    }
    duckdb_disconnect(&connection);
    return error;
}

std::optional<MemoryEngine> TakeIdle(const EngineTerms& terms) {
    EngineUse use;
    return IdleEngines::Take(terms, use);
}

std::size_t CountIdle() {
    std::vector<uint64_t> numbers;
    IdleEngines::List(numbers);
    return numbers.size();
}

}  // namespace mduckdb
