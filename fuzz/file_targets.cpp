// Files of unknown origin, and the arguments of the procedures that read them.
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "file_input.h"
#include "procedures/call_limits.h"
#include "procedures/handlers.h"
#include "procedures/procedures.h"
#include "session.h"
#include "support/fake_host.h"
#include "support/test_host.h"
#include "targets.h"

namespace fuzz {

using mduckdb::test::FakeHost;
using mduckdb::test::FakeValue;

namespace {

constexpr uint64_t kMostRows = 50;
constexpr unsigned kInputsOfOneHost = 100;

/** A host for the calls of some inputs, under limits. It keeps every value, so there is a new one from time
   to time, but not within an input, whose values the next call still needs. */
FakeHost& HostForInput() {
    static std::unique_ptr<FakeHost> host;
    static unsigned inputs = 0;
    if (inputs++ % kInputsOfOneHost == 0) {
        host.reset();
        host = std::make_unique<FakeHost>();
        // Cursors report under the host's own handle.
        mduckdb::RegisterProcedures(host.get());
        auto limits = std::make_shared<mduckdb::Limits>();
        limits->memory_mb = 200;
        limits->threads = 1;
        limits->time = std::chrono::milliseconds(1000);
        limits->folders = {std::filesystem::path(MakeInputFile("", "allowed")).parent_path().string()};
        mduckdb::PutLimits(limits);
    }
    return *host;
}

void ReadCursor(FakeHost& host) {
    if (!host.has_cursor) {
        return;
    }
    const mirona_cursor_def cursor = host.cursor;
    for (uint64_t row = 0; row < kMostRows && cursor.next_row(cursor.state) == MIRONA_ROW_OK; ++row) {
        for (uint32_t column = 0; column < cursor.column_count; ++column) {
            cursor.get_value(host.get_Call(), cursor.state, static_cast<int32_t>(column));
        }
    }
    cursor.row_count(cursor.state);
    cursor.go_to_row(cursor.state, 0);
    host.CloseCursor();
}

using Call = mirona_cursor (*)(FakeHost& host, std::vector<FakeValue*> arguments);

template <class Procedure>
mirona_cursor CallOf(FakeHost& host, std::vector<FakeValue*> arguments) {
    return host.Call<Procedure>(std::move(arguments));
}

constexpr std::array<Call, 5> kProcedures = {CallOf<mduckdb::FetchParquet>, CallOf<mduckdb::FetchDuckDB>,
                                             CallOf<mduckdb::ParquetMetadata>, CallOf<mduckdb::ParquetCount>,
                                             CallOf<mduckdb::ParquetSchema>};

/** Each procedure returns a cursor or reports one error. */
void RunCall(FakeHost& host, Call call, std::vector<FakeValue*> arguments) {
    host.reports.clear();
    const bool has_cursor = call(host, std::move(arguments)) != nullptr;
    Require(has_cursor == host.reports.empty(), "a call has neither a cursor nor an error, or both");
    if (has_cursor) {
        ReadCursor(host);
    }
    host.CloseCursor();
}

std::string ReadBase(const char* name) {
    std::ifstream in(std::filesystem::path(FUZZ_BASES) / name, std::ios::binary);
    std::string bytes(std::istreambuf_iterator<char>(in), {});
    Require(!bytes.empty(), "a base of the inputs is missing");
    return bytes;
}

const std::string& Base(const char* name) {
    static const std::string database = ReadBase("small.db");
    static const std::string parquet = ReadBase("small.parquet");
    return std::string_view(name) == "small.db" ? database : parquet;
}

FakeValue* TakeArgument(Input& input, FakeHost& host, unsigned depth) {
    switch (input.Pick(depth < 3 ? 6 : 5)) {
        case 0:
            return host.Null();
        case 1:
            return host.Text(MakeInputFile(Base("small.parquet"), "a.parquet"));
        case 2:
            return host.Text(MakeInputFile(Base("small.db"), "a.db"));
        case 3:
            return host.Int(static_cast<int64_t>(input.Number(8)));
        case 4:
            return host.Text(std::string(input.Text()));
        default: {
            std::vector<FakeValue*> items;
            for (std::size_t count = input.Pick(5); count > 0; --count) {
                items.push_back(TakeArgument(input, host, depth + 1));
            }
            return host.Array(std::move(items));
        }
    }
}

void CallOnFile(const std::string& path, std::initializer_list<Call> calls) {
    FakeHost& host = HostForInput();
    for (const Call call : calls) {
        RunCall(host, call, {host.Text(path)});
    }
}

}  // namespace

void ProcedureArguments(Input& input) {
    const Call call = kProcedures[input.Pick(kProcedures.size())];
    std::vector<FakeValue*> arguments;
    FakeHost& host = HostForInput();
    for (std::size_t count = 1 + input.Pick(8); count > 0; --count) {
        arguments.push_back(TakeArgument(input, host, 0));
    }
    RunCall(host, call, std::move(arguments));
}

void ParquetFile(Input& input) {
    const bool is_mended = input.Byte() != 0;
    const std::string_view bytes = input.Rest();
    const std::string path = MakeInputFile(is_mended ? MendParquet(bytes) : std::string(bytes), "b.parquet");
    CallOnFile(path, {kProcedures[0], kProcedures[2], kProcedures[3], kProcedures[4]});
}

void DatabaseBlocks(Input& input) {
    std::string database = Base("small.db");
    while (!input.get_IsEmpty()) {
        const std::size_t at = input.Number(3) % database.size();
        const std::string_view patch = input.Bytes(1 + input.Pick(32));
        database.replace(at, std::min(patch.size(), database.size() - at), patch, 0, database.size() - at);
    }
    MendChecksums(database);
    const std::string path = MakeInputFile(database, "c.db");
    static const TestHost opener;
    opener->IsDuckDBFile(Location(path));
    FakeHost& host = HostForInput();
    for (const char* const table : {"t", "v"}) {
        RunCall(host, kProcedures[1], {host.Text(path), host.Text(table)});
    }
}

void DatabaseHead(Input& input) {
    const std::string_view bytes = input.Rest();
    const std::string path = MakeInputFile(bytes, "d.db");
    static const TestHost opener;
    const bool has_mark = bytes.empty() || (bytes.size() >= 12 && bytes.substr(8, 4) == "DUCK");
    Require(opener->IsDuckDBFile(Location(path)) == has_mark, "the probe takes a file for what it is not");
    FakeHost& host = HostForInput();
    RunCall(host, kProcedures[1], {host.Text(path), host.Text("t")});
    Require(opener->IsDuckDBFile(Location(path)) == has_mark, "reading a file changes it");
}

}  // namespace fuzz
