#include "modules/stress_worker.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "nbx/exception.h"
#include "nbx/location.h"
#include "nbx/mrsql/duckdb_snapshot.h"
#include "nbx/value.h"

using nbx::FromUtf8;
using nbx::mrsql::kClientCursor;
using nbx::mrsql::kServerCursor;

namespace {

nbx::smart_ptr<nbx::ValueRow> MakeParameters(int64_t worker, int64_t number) {
    auto row = nbx::MakeObject<nbx::ValueRow>();
    for (const int64_t content : {worker, number}) {
        row->Append(nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueLLong(true, &content, nullptr)));
    }
    return row;
}

constexpr const char* kInsert = "INSERT INTO t VALUES ($1, $2)";
constexpr const char* kSelect = "SELECT worker, number, number::VARCHAR FROM t";

}  // namespace

void StressWorker::Run() {
    std::vector<unsigned> weights;
    for (const Operation& operation : GetOperations()) {
        weights.push_back(operation.weight);
    }
    std::discrete_distribution<std::size_t> choose(weights.begin(), weights.end());
    while (!plan_.is_over) {
        const std::size_t index = choose(random_);
        const Operation& operation = GetOperations()[index];
        try {
            (this->*operation.run)();
            ++plan_.successes[index];
        } catch (const nbx::xException&) {
            // Another worker closes, drops or interrupts what this one uses.
        } catch (const std::exception& error) {
            ADD_FAILURE() << operation.name << ": " << error.what();
        }
        ++plan_.steps;
    }
}

const std::vector<StressWorker::Operation>& StressWorker::GetOperations() {
    static const std::vector<Operation> kOperations = {
        {"open an object of its own", &StressWorker::OpenOwn, 6},
        {"open a shared object", &StressWorker::OpenShared, 8},
        {"close a shared object", &StressWorker::CloseShared, 4},
        {"replace a shared object", &StressWorker::ReplaceShared, 3},
        {"insert by SQL", &StressWorker::InsertBySql, 10},
        {"insert by parameters", &StressWorker::InsertByParameters, 10},
        {"insert by a statement", &StressWorker::InsertByStatement, 10},
        {"insert in a transaction", &StressWorker::InsertInTransaction, 5},
        {"count its own rows", &StressWorker::CountOwnRows, 5},
        {"read by a server cursor", &StressWorker::ReadByServerCursor, 8},
        {"read by a client cursor", &StressWorker::ReadByClientCursor, 8},
        {"read by a query result", &StressWorker::ReadByQueryResult, 6},
        {"use a cursor that it kept", &StressWorker::UseKeptCursor, 20},
        {"use a statement that it kept", &StressWorker::UseKeptStatement, 10},
        {"use a result that it kept", &StressWorker::UseKeptResult, 10},
        {"ask a shared object", &StressWorker::AskShared, 8},
        {"ask the extension", &StressWorker::AskExtension, 6},
        {"interrupt a shared object", &StressWorker::InterruptShared, 4},
        {"back up", &StressWorker::BackUp, 1},
        {"take a snapshot", &StressWorker::TakeSnapshot, 1},
        {"drop", &StressWorker::DropFile, 2},
        {"create", &StressWorker::CreateFile, 2},
        {"restore an export", &StressWorker::RestoreExport, 1},
        {"restore a snapshot", &StressWorker::RestoreSnapshot, 1},
        {"read what is restored", &StressWorker::ReadRestored, 2},
        {"fetch_duckdb", &StressWorker::FetchDuckDB, 5},
        {"parquet_count", &StressWorker::CountParquet, 3},
    };
    return kOperations;
}

StressedFile& StressWorker::FileOf(FileUse use) {
    for (const auto& file : plan_.files) {
        if (file->get_Use() == use) {
            return *file;
        }
    }
    throw std::logic_error("no such file");
}

DatabasePtr StressWorker::MakeDatabase(const std::string& path) {
    return PickModule()->CreateDatabase(Location(path));
}

void StressWorker::Insert(StressedFile& file, const std::function<int64_t(int64_t number)>& insert) {
    const int64_t generation = file.get_Generation();
    const int64_t number = file.TakeNumber();
    if (insert(number) == 1) {
        file.AddCommitted({number_, number}, generation);
    }
}

std::string StressWorker::NewName(const char* kind) {
    return plan_.folder + "/" + kind + "_" + std::to_string(number_) + "_" + std::to_string(++last_name_);
}

/** Keeps a few; which one goes is random, so some outlive their database. */
template <class Kept>
void StressWorker::Keep(std::vector<Kept>& kept, Kept child) {
    constexpr std::size_t kMost = 6;
    if (kept.size() < kMost) {
        kept.push_back(std::move(child));
    } else {
        kept[Pick(kMost)] = std::move(child);
    }
}

void StressWorker::OpenOwn() {
    StressedFile& file = PickFile();
    const DatabasePtr database = MakeDatabase(file.get_Name(Pick(2)));
    database->Open();
    Keep(cursors_, database->SqlSelect(FromUtf8(kSelect), kServerCursor, nullptr));
    if (Pick(2) == 0) {
        database->Close();
    }
}

void StressWorker::OpenShared() {
    const DatabasePtr database = PickShared().Get();
    if (!database->get_IsOpen()) {
        database->Open();
    }
}

void StressWorker::CloseShared() {
    PickShared().Get()->Close();
}

void StressWorker::ReplaceShared() {
    SharedDatabase& shared = PickShared();
    shared.Put(MakeDatabase(shared.file->get_Name(Pick(2))));
}

void StressWorker::InsertBySql() {
    SharedDatabase& shared = PickShared();
    const DatabasePtr database = shared.Get();
    Insert(*shared.file, [&](int64_t number) {
        return database->SqlExecute(FromUtf8("INSERT INTO t VALUES (" + std::to_string(number_) + ", " +
                                             std::to_string(number) + ")"),
                                    nullptr);
    });
}

void StressWorker::InsertByParameters() {
    SharedDatabase& shared = PickShared();
    const DatabasePtr database = shared.Get();
    Insert(*shared.file, [&](int64_t number) {
        return database->SqlExecute(FromUtf8(kInsert), MakeParameters(number_, number));
    });
}

void StressWorker::InsertByStatement() {
    SharedDatabase& shared = PickShared();
    const auto statement = shared.Get()->CreateStatement(FromUtf8(kInsert));
    Keep(statements_, statement);
    Insert(*shared.file, [&](int64_t number) {
        statement->PrepareNext();
        statement->put_Parameters(MakeParameters(number_, number));
        return statement->Execute();
    });
}

void StressWorker::InsertInTransaction() {
    StressedFile& file = PickFile();
    const DatabasePtr database = MakeDatabase(file.get_Name(Pick(2)));
    database->Open();
    Insert(file, [&](int64_t number) {
        database->SqlExecute(FromUtf8("BEGIN"), nullptr);
        const int64_t rows = database->SqlExecute(FromUtf8(kInsert), MakeParameters(number_, number));
        const bool is_rolled_back = Pick(4) == 0;
        database->SqlExecute(FromUtf8(is_rolled_back ? "ROLLBACK" : "COMMIT"), nullptr);
        return is_rolled_back ? 0 : rows;
    });
}

void StressWorker::CountOwnRows() {
    SharedDatabase& shared = PickShared();
    if (shared.file->get_Use() == FileUse::kReplaced) {
        return;
    }
    const std::size_t expected = shared.file->CountCommitted(number_);
    const auto cursor = shared.Get()->SqlSelect(
        FromUtf8("SELECT count(*) FROM t WHERE worker = " + std::to_string(number_)), kClientCursor, nullptr);
    if (cursor->NextRecord()) {
        EXPECT_GE(cursor->get_Value(0)->get_LLong(), static_cast<int64_t>(expected))
            << shared.file->get_Name(0) << " lost rows of worker " << number_;
    }
}

void StressWorker::ReadByServerCursor() {
    const auto cursor = PickShared().Get()->SqlSelect(FromUtf8(kSelect), kServerCursor, nullptr);
    for (std::size_t rows = Pick(3000); rows > 0 && cursor->NextRecord(); --rows) {
        EXPECT_EQ(cursor->get_Value(1)->get_LLong(), cursor->get_Value(2)->get_LLong());
    }
    Keep(cursors_, cursor);
}

void StressWorker::ReadByClientCursor() {
    const auto cursor = PickShared().Get()->SqlSelect(FromUtf8(kSelect), kClientCursor, nullptr);
    for (std::size_t rows = Pick(100); rows > 0 && cursor->NextRecord(); --rows) {
        EXPECT_EQ(cursor->get_Value(1)->get_LLong(), cursor->get_Value(2)->get_LLong());
    }
    Keep(cursors_, cursor);
}

void StressWorker::ReadByQueryResult() {
    const auto result = PickShared().Get()->SqlQuery(FromUtf8(std::string(kSelect) + "; SELECT 1; SELECT 2"),
                                                     Pick(2) == 0 ? kClientCursor : kServerCursor, nullptr);
    Keep(results_, result);
}

void StressWorker::UseKeptCursor() {
    if (cursors_.empty()) {
        return;
    }
    const auto cursor = cursors_[Pick(cursors_.size())];
    if (const auto database = cursor->get_Database()) {
        database->get_IsOpen();
    }
    if (cursor->NextRecord()) {
        cursor->get_Value(0);
    }
    if (Pick(8) == 0) {
        cursor->Close();
    }
}

void StressWorker::UseKeptStatement() {
    if (statements_.empty()) {
        return;
    }
    const auto statement = statements_[Pick(statements_.size())];
    if (const auto database = statement->get_Database()) {
        database->get_Path();
    }
    statement->put_Parameters(MakeParameters(number_, 0));
    if (Pick(4) == 0) {
        statements_.pop_back();
    }
}

void StressWorker::UseKeptResult() {
    if (results_.empty()) {
        return;
    }
    const auto result = results_[Pick(results_.size())];
    if (const auto cursor = result->get_Cursor()) {
        Keep(cursors_, cursor);
        cursor->NextRecord();
    }
    if (Pick(4) == 0) {
        result->Close();
    } else if (const auto next = result->NextResult()) {
        Keep(results_, next);
    }
}

void StressWorker::AskShared() {
    const DatabasePtr database = PickShared().Get();
    database->get_IsOpen();
    database->get_IsReadOnly();
    database->get_Exists();
    database->get_ConnectionCount();
    EXPECT_FALSE(database->get_Path().isEmpty());
}

void StressWorker::AskExtension() {
    LoadedModule& module = PickModule();
    const std::string& path = PickFile().get_Name(Pick(2));
    module->IsDatabaseOpen(FromUtf8(path));
    const bool is_database = module->IsDuckDBFile(Location(path));
    const StressedFile& held = FileOf(FileUse::kHeldOpen);
    EXPECT_TRUE(is_database || (path != held.get_Name(0) && path != held.get_Name(1)));
}

void StressWorker::InterruptShared() {
    PickShared().Get()->Interrupt();
}

void StressWorker::BackUp() {
    const std::string folder = NewName("export");
    std::filesystem::create_directory(folder);
    try {
        PickShared().Get()->Backup(Location(folder));
    } catch (...) {
        std::filesystem::remove_all(folder);
        throw;
    }
    std::filesystem::remove_all(folder);
}

void StressWorker::TakeSnapshot() {
    const std::string file = NewName("snapshot");
    const DatabasePtr database = PickShared().Get();
    auto* const snapshots = static_cast<nbx::mrsql::I_DuckDBSnapshot*>(
        database->QueryInterface(nbx::mrsql::kDuckDBSnapshotInterfaceId));
    ASSERT_NE(snapshots, nullptr);
    snapshots->Snapshot(Location(file));
    EXPECT_TRUE(std::filesystem::remove(file));
    EXPECT_TRUE(std::filesystem::remove(file + ".manifest.json"));
}

void StressWorker::DropFile() {
    if (Pick(2) == 0) {
        const DatabasePtr held = MakeDatabase(FileOf(FileUse::kHeldOpen).get_Name(Pick(2)));
        EXPECT_THROW(held->Drop(), nbx::xException) << "a file in use was dropped";
        return;
    }
    StressedFile& file = FileOf(FileUse::kReplaced);
    const DatabasePtr database = MakeDatabase(file.get_Name(0));
    try {
        database->Drop();
    } catch (...) {
        file.CountReplacement();
        throw;
    }
    file.CountReplacement();
}

void StressWorker::CreateFile() {
    StressedFile& file = FileOf(FileUse::kReplaced);
    const DatabasePtr database = MakeDatabase(file.get_Name(0));
    try {
        database->Create();
        database->SqlExecute(FromUtf8("CREATE TABLE IF NOT EXISTS t (worker INTEGER, number BIGINT)"),
                             nullptr);
    } catch (...) {
        file.CountReplacement();
        throw;
    }
    file.CountReplacement();
}

template <class Restore>
void StressWorker::ReplaceFile(Restore restore) {
    const bool is_free = Pick(4) != 0;
    StressedFile& file = FileOf(is_free ? FileUse::kRestored : FileUse::kReplaced);
    struct stat old {};
    const bool existed = stat(file.get_Name(0).c_str(), &old) == 0;
    try {
        restore(Location(file.get_Name(0)));
    } catch (...) {
        file.CountReplacement();
        throw;
    }
    file.CountReplacement();
    struct stat restored {};
    if (existed && stat(file.get_Name(0).c_str(), &restored) == 0 && old.st_ino != restored.st_ino) {
        ++plan_.replacements;
    }
}

void StressWorker::RestoreExport() {
    ReplaceFile([this](const nbx::smart_ptr<nbx::I_Location>& target) {
        PickModule()->RestoreDatabase(target, Location(plan_.export_folder));
    });
}

void StressWorker::RestoreSnapshot() {
    auto* const restorer = static_cast<nbx::mrsql::I_DuckDBRestore*>(
        PickModule()->QueryInterface(nbx::mrsql::kDuckDBRestoreInterfaceId));
    ASSERT_NE(restorer, nullptr);
    ReplaceFile([this, restorer](const nbx::smart_ptr<nbx::I_Location>& target) {
        restorer->RestoreSnapshot(target, Location(plan_.snapshot));
    });
}

void StressWorker::ReadRestored() {
    const DatabasePtr database = MakeDatabase(FileOf(FileUse::kRestored).get_Name(Pick(2)));
    database->Open();
    const auto cursor = database->SqlSelect(FromUtf8("SELECT count(*) FROM t"), kClientCursor, nullptr);
    EXPECT_TRUE(cursor->NextRecord());
    database->Close();
}

void StressWorker::FetchDuckDB() {
    StressedFile& file = PickFile();
    const std::size_t expected = file.get_Use() == FileUse::kReplaced ? 0 : file.CountCommitted(number_);
    const bool reads_all = Pick(2) == 0;
    const auto outcome =
        PickModule().Call("fetch_duckdb", {file.get_Name(Pick(2)), "t"}, reads_all ? UINT64_MAX : Pick(3000));
    if (reads_all && outcome.errors.empty()) {
        EXPECT_GE(outcome.rows, expected) << file.get_Name(0);
    }
}

void StressWorker::CountParquet() {
    const auto outcome = PickModule().Call("parquet_count", {plan_.parquet}, UINT64_MAX);
    EXPECT_EQ(outcome.errors, std::vector<std::string>{});
    EXPECT_EQ(outcome.rows, 1U);
}
