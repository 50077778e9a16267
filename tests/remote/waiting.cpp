// A process that reads a file from a server that is silent, or writes one there, and is interrupted
// meanwhile.
//
//   remote_waiting WAY SILENT_URL URL
//
// WAY is one of kWays. After a line on its standard input it interrupts what waits, prints how that ended,
// and what the same object then reads from the other address.

#include <duckdb.h>

#include <cstdlib>
#include <iostream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "nbx/hooks.h"
#include "nbx/mrsql/duckdb_census.h"
#include "nbx/mrsql/duckdb_deadlines.h"
#include "nbx/mrsql/duckdb_streaming.h"
#include "procedures/handlers.h"
#include "support/fake_host.h"
#include "support/silent_server.h"
#include "support/test_host.h"

namespace {

using Database = nbx::smart_ptr<nbx::mrsql::I_DuckDBDatabase>;
using mduckdb::test::FakeHost;

// Reads a whole column, in several row groups.
constexpr const char* kCondition = "h <> 5";

std::string CountIn(const std::string& url) {
    return "SELECT count(*) FROM '" + url + "' WHERE " + kCondition;
}

void AwaitLine() {
    std::string line;
    std::getline(std::cin, line);
}

template <class Interface>
Interface& As(nbx::mrsql::I_DuckDBDatabase& database, uint32_t id) {
    return *static_cast<Interface*>(database.QueryInterface(id));
}

/** A database whose engine does not stop waiting by itself. */
Database MakeDatabase(const TestHost& host) {
    Database database = host.Created(":memory:");
    // Also for streams, which have connections of their own.
    Execute(*database, "SET threads = 4; SET GLOBAL http_timeout = 1000");
    return database;
}

/** Interrupts the database when a line comes, and prints how the action ended. */
template <class F>
void Interrupt(nbx::mrsql::I_DuckDBDatabase& database, F&& action) {
    std::thread interrupter([&] {
        AwaitLine();
        database.Interrupt();
    });
    std::cout << Thrown(action) << std::endl;
    interrupter.join();
}

void Select(const TestHost& host, const std::string& silent, const std::string& url) {
    const Database database = MakeDatabase(host);
    Interrupt(*database,
              [&] { database->SqlSelect(S(CountIn(silent)), nbx::mrsql::kServerCursor, nullptr); });
    std::cout << QueryText(*database, CountIn(url)) << "\n";
}

void Statement(const TestHost& host, const std::string& silent, const std::string& url) {
    const Database database = MakeDatabase(host);
    const auto statement = database->CreateStatement(S(CountIn(silent)));
    Interrupt(*database, [&] {
        statement->PrepareNext();
        statement->OpenCursor(nbx::mrsql::kClientCursor);
    });
    std::cout << QueryText(*database, CountIn(url)) << "\n";
}

/** The rows of a file, read by a stream, which does not hold the engine lock. */
int64_t ReadStream(nbx::mrsql::I_DuckDBDatabase& database, const std::string& url) {
    auto& streams = As<nbx::mrsql::I_DuckDBStreaming>(database, nbx::mrsql::kDuckDBStreamingInterfaceId);
    const auto cursor = streams.OpenStream(S("SELECT h FROM '" + url + "'"), nullptr);
    int64_t rows = 0;
    while (cursor->NextRecord()) {
        ++rows;
    }
    return rows;
}

void Stream(const TestHost& host, const std::string& silent, const std::string& url) {
    const Database database = MakeDatabase(host);
    Interrupt(*database, [&] { ReadStream(*database, silent); });
    std::cout << ReadStream(*database, url) << "\n";
}

/** Closing a database ends its streams, too. */
void Close(const TestHost& host, const std::string& silent, const std::string& url) {
    const Database database = MakeDatabase(host);
    std::thread reader([&] { std::cout << Thrown([&] { ReadStream(*database, silent); }) << "\n"; });
    AwaitLine();
    database->Close();
    reader.join();
    database->Open();
    std::cout << QueryText(*database, CountIn(url)) << "\n";
}

void TimeLimit(const TestHost& host, const std::string& silent, const std::string& url) {
    const Database database = MakeDatabase(host);
    auto& deadlines = As<nbx::mrsql::I_DuckDBDeadlines>(*database, nbx::mrsql::kDuckDBDeadlinesInterfaceId);
    deadlines.put_TimeLimit(500);
    std::cout << Thrown([&] { database->SqlSelect(S(CountIn(silent)), nbx::mrsql::kServerCursor, nullptr); })
              << "\n";
    deadlines.put_TimeLimit(0);
    std::cout << QueryText(*database, CountIn(url)) << "\n";
}

class CallNumbers final : public nbx::mrsql::I_DuckDBCensusReader {
  public:
    void Add(const nbx::mrsql::DuckDBCensusLine& line) override {
        if (line.kind == nbx::mrsql::DuckDBCensusLine::kCall) {
            all.push_back(line.number);
        }
    }

    std::vector<uint64_t> all;
};

void PrintCall(FakeHost& procedures) {
    if (!procedures.has_cursor) {
        std::cout << procedures.reports.back() << "\n";
        return;
    }
    procedures.cursor.next_row(procedures.cursor.state);
    std::cout << procedures.Cell(0) << "\n";
    procedures.CloseCursor();
}

template <class Procedure>
void CutCall(const TestHost& host, const std::string& silent, const std::string& url, const char* argument) {
    auto& census =
        *static_cast<nbx::mrsql::I_DuckDBCensus*>(host->QueryInterface(nbx::mrsql::kDuckDBCensusInterfaceId));
    FakeHost procedures;
    std::thread cutter([&] {
        AwaitLine();
        CallNumbers numbers;
        census.List(numbers);
        for (const uint64_t number : numbers.all) {
            census.CutCall(number);
        }
    });
    for (const std::string& address : {silent, url}) {
        procedures.Call<Procedure>({procedures.Text(address), procedures.Text(argument)});
        PrintCall(procedures);
        if (cutter.joinable()) {
            cutter.join();
        }
    }
}

void Call(const TestHost& host, const std::string& silent, const std::string& url) {
    CutCall<mduckdb::ParquetCount>(host, silent, url, kCondition);
}

void FetchDatabase(const TestHost& host, const std::string& silent, const std::string& url) {
    CutCall<mduckdb::FetchDuckDB>(host, silent, url, "t");
}

/** Two databases wait, and only one is interrupted. */
void Neighbour(const TestHost& host, const std::string& silent, const std::string& url) {
    const Database database = MakeDatabase(host);
    const Database other = MakeDatabase(host);
    int64_t read_by_other = 0;
    std::string failure;
    std::thread reader([&] { failure = Thrown([&] { read_by_other = ReadStream(*other, silent); }); });
    Interrupt(*database, [&] { ReadStream(*database, silent); });
    std::cout << QueryText(*database, CountIn(url)) << std::endl;
    reader.join();
    std::cout << failure << "\n" << read_by_other << "\n";
}

/** Some parts of a file, which DuckDB sends on a thread each, and a rest. */
std::string CopyTo(const std::string& url) {
    return "COPY (SELECT i, hash(i) AS h, hash(i + 1) AS g FROM range(700000) r(i)) TO '" + url + "'";
}

/** The smallest parts that an object store accepts. */
constexpr const char* kSmallParts = "SET GLOBAL s3_uploader_max_filesize = '50GB'";

Database MakeWriter(const TestHost& host) {
    Database database = MakeDatabase(host);
    Execute(*database, kSmallParts);
    return database;
}

std::string CountWritten(nbx::mrsql::I_DuckDBDatabase& database, const std::string& url) {
    Execute(database, CopyTo(url));
    return QueryText(database, CountIn(url));
}

void Upload(const TestHost& host, const std::string& silent, const std::string& url) {
    const Database database = MakeWriter(host);
    Interrupt(*database, [&] { Execute(*database, CopyTo(silent)); });
    std::cout << CountWritten(*database, url) << "\n";
}

/** The statement keeps what DuckDB has begun for it. */
void UploadByStatement(const TestHost& host, const std::string& silent, const std::string& url) {
    const Database database = MakeWriter(host);
    const auto statement = database->CreateStatement(S(CopyTo(silent)));
    Interrupt(*database, [&] {
        statement->PrepareNext();
        statement->Execute();
    });
    std::cout << CountWritten(*database, url) << "\n";
}

void UploadInTime(const TestHost& host, const std::string& silent, const std::string& url) {
    const Database database = MakeWriter(host);
    auto& deadlines = As<nbx::mrsql::I_DuckDBDeadlines>(*database, nbx::mrsql::kDuckDBDeadlinesInterfaceId);
    // Time enough to reach the store.
    deadlines.put_TimeLimit(5000);
    std::cout << Thrown([&] { Execute(*database, CopyTo(silent)); }) << "\n";
    deadlines.put_TimeLimit(0);
    std::cout << CountWritten(*database, url) << "\n";
}

/** An engine that the host has opened by itself, and uses on the thread that creates this. */
class HostsEngine {
  public:
    HostsEngine() {
        duckdb_open(nullptr, &engine_);
        duckdb_connect(engine_, &connection_);
    }
    HostsEngine(const HostsEngine&) = delete;
    HostsEngine& operator=(const HostsEngine&) = delete;
    ~HostsEngine() {
        duckdb_disconnect(&connection_);
        duckdb_close(&engine_);
    }
    /** DuckDB's error, or "none". */
    std::string Run(const std::string& sql) {
        duckdb_result result;
        duckdb_query(connection_, sql.c_str(), &result);
        const char* const error = duckdb_result_error(&result);
        const std::string text = error != nullptr ? error : "none";
        duckdb_destroy_result(&result);
        return text;
    }

  private:
    duckdb_database engine_ = nullptr;
    duckdb_connection connection_ = nullptr;
};

/** The host uploads, too, and waits for a server of its own as libcurl does. */
void UploadBesideHost(const TestHost& host, const std::string& silent, const std::string& url) {
    const Database database = MakeWriter(host);
    std::string failure;
    std::thread uploader([&] {
        HostsEngine engine;
        engine.Run(std::string("SET GLOBAL http_timeout = 1000; ") + kSmallParts);
        failure = engine.Run(CopyTo(url));
    });
    const mduckdb::Connection connection;
    std::thread client([&] { mduckdb::WaitAsClient(connection.get_Client()); });
    Interrupt(*database, [&] { Execute(*database, CopyTo(silent)); });
    std::cout << QueryText(*database, "SELECT 42") << std::endl;
    uploader.join();
    std::cout << (connection.IsShutDown() ? "shut down" : "left alone") << "\n" << failure << "\n";
    connection.Answer();
    client.join();
    std::cout << QueryText(*database, CountIn(url)) << "\n";
}

/** The process exits while a thread waits. */
void Exit(const TestHost& host, const std::string& silent, const std::string& /*url*/) {
    const Database database = MakeDatabase(host);
    std::thread([database, silent] { Thrown([&] { QueryText(*database, CountIn(silent)); }); }).detach();
    AwaitLine();
    std::cout << "exits" << std::endl;
    std::exit(0);
}

using Way = void (*)(const TestHost& host, const std::string& silent, const std::string& url);
const std::map<std::string, Way> kWays{
    {"select", &Select},
    {"statement", &Statement},
    {"stream", &Stream},
    {"close", &Close},
    {"limit", &TimeLimit},
    {"call", &Call},
    {"fetch_duckdb", &FetchDatabase},
    {"neighbour", &Neighbour},
    {"upload", &Upload},
    {"upload_statement", &UploadByStatement},
    {"upload_limit", &UploadInTime},
    {"upload_neighbour", &UploadBesideHost},
    {"exit", &Exit},
};

}  // namespace

int main(int argc, char** argv) {
    const auto way = argc == 4 ? kWays.find(argv[1]) : kWays.end();
    if (way == kWays.end()) {
        return 2;
    }
    const TestHost host;
    // Anybody may interrupt.
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
    way->second(host, argv[2], argv[3]);
    return 0;
}
