/* A host on mshared: databases, scripts, parameters, both kinds of cursor, the classes of error, an
   interruption from a second thread, backup and restore.

     host-cpp FOLDER [MODULE]      FOLDER is for the files that it creates */

#include <dlfcn.h>
#include <mirona/extension_api.h>
#include <nbx/exception.h>
#include <nbx/hooks.h>
#include <nbx/location.h>
#include <nbx/mrsql/duckdb_appender.h>
#include <nbx/mrsql/duckdb_budget.h>
#include <nbx/mrsql/duckdb_census.h>
#include <nbx/mrsql/duckdb_deadlines.h>
#include <nbx/mrsql/duckdb_error_facts.h>
#include <nbx/mrsql/duckdb_extension.h>
#include <nbx/mrsql/duckdb_progress.h>
#include <nbx/mrsql/registry.h>
#include <nbx/value.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

#include "rows.h"

#ifndef DEFAULT_MODULE
#define DEFAULT_MODULE "libmduckdb.so"
#endif

namespace {

using nbx::FromUtf8;
using nbx::smart_ptr;
using nbx::String;
using nbx::ToUtf8;
using nbx::mrsql::gCreateBackupLocation;
using nbx::mrsql::GetDuckDBExtension;
using nbx::mrsql::gpIsLocalSqlCall_PTR;
using nbx::mrsql::I_DuckDBCursor;
using nbx::mrsql::I_DuckDBDatabase;
using nbx::mrsql::I_DuckDBExtension;
using nbx::mrsql::kClientCursor;
using nbx::mrsql::kServerCursor;
using nbx::mrsql::SetDuckDBExtension;
using nbx::mrsql::xDuckDBError;

// This host has no SQL, so its function table only accepts the registrations.

void UnusedPosition() {
    std::cerr << "The module called a position of the function table that is not in use.\n";
}

uint32_t AcceptProcedure(mirona_host /*host*/, const mirona_procedure_def* /*def*/) {
    return 0;
}

void PrintError(void* /*call_or_host*/, const char* text, uint64_t length) {
    std::cerr << std::string_view(text, length) << '\n';
}

const mirona_extension_api& GetTable() {
    static const mirona_extension_api kTable = [] {
        mirona_extension_api table;
        void (*positions[sizeof table / sizeof(void (*)())])();
        for (auto& position : positions) {
            position = &UnusedPosition;
        }
        std::memcpy(&table, positions, sizeof table);
        table.register_procedure = &AcceptProcedure;
        table.report_error = &PrintError;
        return table;
    }();
    return kTable;
}

/** The module's root object. The module stays loaded: its objects may live until the process terminates. */
smart_ptr<I_DuckDBExtension> LoadModule(const char* file) {
    void* const module = dlopen(file, RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        throw std::runtime_error(dlerror());
    }
    const auto bind_api =
        reinterpret_cast<decltype(&mirona_extension_bind_api)>(dlsym(module, "mirona_extension_bind_api"));
    const auto init =
        reinterpret_cast<decltype(&mirona_extension_init)>(dlsym(module, "mirona_extension_init"));
    if (bind_api == nullptr || init == nullptr) {
        throw std::runtime_error(std::string(file) + " is no extension module");
    }
    bind_api(&GetTable());
    init(nullptr);
    smart_ptr<I_DuckDBExtension> extension = GetDuckDBExtension();
    if (!extension) {
        throw std::runtime_error("the module refused to start");
    }
    return extension;
}

smart_ptr<nbx::ValueRow> MakeRow(int64_t number, std::string_view text) {
    auto row = nbx::MakeObject<nbx::ValueRow>();
    row->Append(smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueLLong(true, &number, nullptr)));
    row->Append(smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueString(true, &text, nullptr)));
    return row;
}

void RunScript(I_DuckDBDatabase& database) {
    const int64_t changed = database.SqlExecute(
        FromUtf8(
            "CREATE TABLE city (id BIGINT, name VARCHAR); INSERT INTO city VALUES (1, 'Bern'), (2, 'Wien');"),
        nullptr);
    std::cout << "script: " << changed << " rows changed\n";
}

/** DuckDB splits this statement into several: executed once, only its BEGIN would run. */
void RunExpanded(I_DuckDBDatabase& database) {
    database.SqlExecute(FromUtf8("CREATE TABLE visit (id BIGINT)"), nullptr);
    const auto statement =
        database.CreateStatement(FromUtf8("ALTER TABLE visit ADD COLUMN noted TIMESTAMP DEFAULT now()"));
    int pieces = 0;
    // docs: pieces
    do {
        statement->PrepareNext();
        statement->Execute();
        ++pieces;
    } while (statement->get_PendingCount() > 0);
    // docs: end
    std::cout << "one statement in " << pieces << " pieces\n";
    database.SqlExecute(FromUtf8("DROP TABLE visit"), nullptr);
}

void BindParameters(I_DuckDBDatabase& database) {
    const auto statement = database.CreateStatement(FromUtf8("INSERT INTO city VALUES (?, ?)"));
    statement->PrepareNext();
    statement->put_Parameters(MakeRow(3, "Zürich"));
    std::cout << "values: " << statement->Execute() << " row changed\n";
    statement->BindBigInt(1, 4);
    statement->BindVarchar(2, FromUtf8("Graz"));
    std::cout << "typed binds: " << statement->Execute() << " row changed\n";
}

std::string Text(I_DuckDBCursor& cursor, uint32_t column) {
    return ToUtf8(cursor.get_Value(column)->get_Text());
}

void ReadRows(I_DuckDBDatabase& database) {
    const String sql = FromUtf8("SELECT id, name FROM city ORDER BY id");
    // Forward only: the rows come from DuckDB as they are requested.
    const auto stream = database.SqlSelect(sql, kServerCursor, nullptr);
    std::cout << "server cursor:";
    while (stream->NextRecord()) {
        std::cout << ' ' << Text(*stream, 0) << '=' << Text(*stream, 1);
    }
    // All rows are kept here, so it moves in any direction.
    const auto rows = database.SqlSelect(sql, kClientCursor, nullptr);
    rows->LastRecord();
    std::cout << "\nclient cursor: " << rows->get_RecordCount() << " rows, the last is " << Text(*rows, 1);
    rows->put_CurrentRecord(2);
    std::cout << ", the second " << Text(*rows, 1) << '\n';
}

/** Runs something that fails and reports how. The most derived class comes first. */
template <class Action>
void Report(const char* what, Action action) {
    std::cout << what << ": ";
    try {
        action();
        std::cout << "no error\n";
    } catch (const xDuckDBError& error) {
        std::cout << "xDuckDBError of " << ToUtf8(error.get_DatabasePath()) << ": "
                  << ToUtf8(error.get_Message()) << '\n';
    } catch (const nbx::xInterruptError&) {
        std::cout << "xInterruptError\n";
    } catch (const nbx::xDBError& error) {
        std::cout << "xDBError " << std::hex << error.get_Code() << std::dec << '\n';
    } catch (const nbx::xFeatureError&) {
        std::cout << "xFeatureError\n";
    } catch (const nbx::xException& error) {
        std::cout << "xException " << std::hex << error.get_Code() << std::dec << '\n';
    }
}

void ShowErrors(I_DuckDBExtension& extension, I_DuckDBDatabase& database, const String& folder) {
    Report("usage error",
           [&] { database.SqlSelect(FromUtf8("CREATE TABLE t (i INT)"), kServerCursor, nullptr); });
    Report("no location", [&] { extension.CreateDatabase(nullptr); });
    Report("a folder is no database", [&] { extension.CreateDatabase(nbx::CreateLocation(folder))->Open(); });
    Report("rows of parameters for a query", [&] {
        const auto statement = database.CreateStatement(FromUtf8("SELECT ?::BIGINT, ?::VARCHAR"));
        const auto rows = nbx::MakeObject<nbx::ValueRows>();
        rows->Append(MakeRow(1, "a"));
        rows->Append(MakeRow(2, "b"));
        statement->PrepareNext();
        statement->put_ParameterRows(rows);
        statement->OpenCursor(kServerCursor);
    });
}

void ShowFacts(I_DuckDBDatabase& database) {
    const std::string sql = "SELECT id, nam FROM city";
    // docs: facts
    try {
        database.SqlExecute(FromUtf8(sql), nullptr);
    } catch (const xDuckDBError& error) {
        const auto* facts = nbx::mrsql::FindDuckDBErrorFacts(error);
        if (facts != nullptr && facts->get_Kind() == nbx::mrsql::DuckDBErrorKind::binder) {
            std::cout << ToUtf8(facts->get_Subtype()) << " at byte " << facts->get_Position() << ": "
                      << ToUtf8(facts->get_PlainMessage()) << '\n';
        }
    }
    // docs: end
}

/** A second thread interrupts the statement of the first one. */
void ShowInterruption(I_DuckDBDatabase& database) {
    gpIsLocalSqlCall_PTR = [] { return true; };
    std::atomic<bool> is_over = false;
    std::thread watch([&] {
        // An interruption that comes before the statement runs has no effect, so it is repeated.
        while (!is_over) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            database.Interrupt();
        }
    });
    Report("interrupted", [&] {
        database.SqlExecute(FromUtf8("SELECT count(*) FROM range(1000000000000) WHERE range % 7 = 3"),
                            nullptr);
    });
    is_over = true;
    watch.join();
}

void ShowTimeLimit(I_DuckDBDatabase& database) {
    // docs: deadline
    auto* deadlines = static_cast<nbx::mrsql::I_DuckDBDeadlines*>(
        database.QueryInterface(nbx::mrsql::kDuckDBDeadlinesInterfaceId));
    deadlines->put_TimeLimit(100);
    try {
        database.SqlExecute(FromUtf8("SELECT count(*) FROM range(1000000000000) WHERE range % 7 = 3"),
                            nullptr);
    } catch (const xDuckDBError& error) {
        std::cout << "cut: " << ToUtf8(error.get_Message()) << '\n';
    }
    deadlines->put_TimeLimit(0);
    // docs: end
}

void ShowProgress(I_DuckDBDatabase& database) {
    database.SqlExecute(FromUtf8("CREATE TABLE numbers AS SELECT range AS n FROM range(2000000)"), nullptr);
    std::atomic<int> percent{0};
    // docs: progress
    auto* progress = static_cast<nbx::mrsql::I_DuckDBProgress*>(
        database.QueryInterface(nbx::mrsql::kDuckDBProgressInterfaceId));
    progress->put_IsTracked(true);
    std::thread watch([&] {
        while (percent < 5) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            percent = static_cast<int>(progress->get_Progress().share * 100);
        }
        database.Interrupt();
    });
    // docs: end
    Report("stopped after 5 percent", [&] {
        database.SqlExecute(FromUtf8("SELECT sum(length(sha256(repeat(n::VARCHAR, 20)))) FROM numbers"),
                            nullptr);
    });
    watch.join();
    progress->put_IsTracked(false);
    database.SqlExecute(FromUtf8("DROP TABLE numbers"), nullptr);
}

void ShowAppender(I_DuckDBDatabase& database) {
    database.SqlExecute(FromUtf8("CREATE TABLE notes (number BIGINT, text VARCHAR)"), nullptr);
    // docs: appender
    auto* appenders = static_cast<nbx::mrsql::I_DuckDBAppenders*>(
        database.QueryInterface(nbx::mrsql::kDuckDBAppendersInterfaceId));
    nbx::mrsql::DuckDBAppenderOptions options;
    options.table = FromUtf8("notes");
    options.in_one_transaction = true;
    const auto appender = appenders->CreateAppender(options);
    // A row of host values: a BIGINT and a VARCHAR.
    appender->AppendRow(MakeRow(1, "first"));
    // Three rows as arrays; the second text is NULL. 5 is BIGINT and 17 is VARCHAR in DuckDB's C API.
    const int64_t numbers[] = {2, 3, 4};
    const nbx::mrsql::DuckDBBytes texts[] = {{"second", 6}, {nullptr, 0}, {"fourth", 6}};
    const uint64_t validity[] = {0b101};
    const nbx::mrsql::DuckDBColumnArray arrays[] = {{.type = 5, .data = numbers},
                                                    {.type = 17, .data = texts, .validity = validity}};
    appender->AppendColumns(arrays, 2, 3);
    appender->Close();
    std::cout << "appended: " << appender->get_StoredRowCount() << " rows\n";
    // docs: end
}

void ShowBudget(I_DuckDBExtension& extension) {
    // docs: budget
    auto* budget = static_cast<nbx::mrsql::I_DuckDBBudget*>(
        extension.QueryInterface(nbx::mrsql::kDuckDBBudgetInterfaceId));
    budget->put_Budget(2000, 4);
    const nbx::mrsql::DuckDBBudgetFigures figures = budget->get_Figures();
    std::cout << "budget: " << figures.memory_limit << " bytes for " << figures.engines << " engine\n";
    // docs: end
}

// docs: census
class EngineCounter final : public nbx::mrsql::I_DuckDBCensusReader {
  public:
    void Add(const nbx::mrsql::DuckDBCensusLine& line) override {
        engines_ += line.kind == nbx::mrsql::DuckDBCensusLine::kEngine ? 1 : 0;
    }
    int get_Engines() const { return engines_; }

  private:
    int engines_ = 0;
};

void ShowCensus(I_DuckDBExtension& extension) {
    auto* census = static_cast<nbx::mrsql::I_DuckDBCensus*>(
        extension.QueryInterface(nbx::mrsql::kDuckDBCensusInterfaceId));
    EngineCounter counter;
    census->List(counter);
    std::cout << "open engines: " << counter.get_Engines() << '\n';
}
// docs: end

void BackUpAndRestore(I_DuckDBExtension& extension, I_DuckDBDatabase& database,
                      const smart_ptr<nbx::I_Location>& folder) {
    static smart_ptr<nbx::I_Location> made_backup;
    gCreateBackupLocation = [](const smart_ptr<nbx::I_Location>& parent) {
        made_backup = nbx::PrepareFolder(parent, "today");
        return made_backup;
    };
    database.Backup(nbx::PrepareFolder(folder, "backups"));
    const auto copy = extension.RestoreDatabase(folder->MakeChild(FromUtf8("copy.duckdb")), made_backup);
    made_backup.reset();
    copy->Open();
    const auto count = copy->SqlSelect(FromUtf8("SELECT count(*) FROM city"), kClientCursor, nullptr);
    count->FirstRecord();
    std::cout << "restored: " << Text(*count, 0) << " rows\n";
}

void Run(const char* folder_text, const char* module) {
    nbx::MironaInit3();
    const auto extension = LoadModule(module);
    std::cout << "DuckDB " << extension->get_LibraryVersion() << '\n';
    const auto folder = nbx::CreateLocation(FromUtf8(folder_text));
    const auto database = extension->CreateDatabase(folder->MakeChild(FromUtf8("cities.duckdb")));
    database->Create();
    RunScript(*database);
    RunExpanded(*database);
    BindParameters(*database);
    ReadRows(*database);
    ShowErrors(*extension, *database, folder->get_PathText());
    ShowFacts(*database);
    ShowInterruption(*database);
    ShowTimeLimit(*database);
    ShowStream(*database);
    ShowArrow(*database);
    ShowProgress(*database);
    ShowAppender(*database);
    ShowBudget(*extension);
    ShowCensus(*extension);
    BackUpAndRestore(*extension, *database, folder);
    database->Close();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 && argc != 3) {
        std::cerr << "usage: host-cpp FOLDER [MODULE]\n";
        return 2;
    }
    try {
        Run(argv[1], argc == 3 ? argv[2] : DEFAULT_MODULE);
        // The module's objects are released while the module's own state still exists.
        SetDuckDBExtension(nullptr);
    } catch (const std::exception& error) {
        std::cerr << "host-cpp: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
