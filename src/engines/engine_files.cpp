#include "engines/engine_files.h"

#include <sys/stat.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include "base/holders.h"
#include "base/open_duckdb.h"
#include "base/text.h"

namespace mduckdb {

namespace {

using nbx::OpenEngine;

constexpr const char* kForeignLibrary =
    "Cannot open file: a module with another copy of DuckDB has it open in this process";
constexpr const char* kOtherUse =
    "Cannot open file: this process has it open by other means already, for example by ATTACH";

/** DuckDB would wait for a process at its other end, for ever and deaf to interrupts. */
constexpr const char* kPipe = "Cannot open file: it is a named pipe";

bool IsNamedPipe(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISFIFO(info.st_mode);
}

std::string DescribeReaders(uint32_t count) {
    return "Cannot open file for writing: " + std::to_string(count) + (count == 1 ? " reader" : " readers") +
           " of this process " + (count == 1 ? "has" : "have") + " it open";
}

struct ProcessFiles {
    template <class Make>
    explicit ProcessFiles(const Make& make) : files(make()) {}

    const uint32_t process = get_ProcessNumber();
    EngineFiles files;
};

}  // namespace

const void* get_DuckDBLibrary() noexcept {
    return reinterpret_cast<const void*>(&duckdb_library_version);
}

bool IsEngineAlive(duckdb_database engine) {
    duckdb_connection connection = nullptr;
    if (duckdb_connect(engine, &connection) != DuckDBSuccess) {
        return false;
    }
    const bool is_alive = duckdb_query(connection, "SELECT 1", nullptr) == DuckDBSuccess;
    duckdb_disconnect(&connection);
    return is_alive;
}

namespace {

/** The list in `current`, or in the child of a fork a new one. Never destroyed: engines may be released while
    static objects are being destroyed. */
template <class Make>
EngineFiles& OfProcess(std::atomic<ProcessFiles*>& current, const Make& make) {
    ProcessFiles* files = current.load();
    if (files->process != get_ProcessNumber()) {
        auto made = std::make_unique<ProcessFiles>(make);
        if (current.compare_exchange_strong(files, made.get())) {
            files = made.release();
        }
    }
    return files->files;
}

nbx::I_OpenFiles& GetSharedFiles() {
    return nbx_open_files_1 != nullptr ? *nbx_open_files_1() : nbx::MakeOpenFiles();
}

}  // namespace

EngineFiles& EngineFiles::Get() {
    static std::atomic<ProcessFiles*> current{new ProcessFiles(GetSharedFiles)};
    return OfProcess(current, GetSharedFiles);
}

EngineFiles& EngineFiles::Nameless() {
    static std::atomic<ProcessFiles*> current{new ProcessFiles(nbx::MakeOpenFiles)};
    return OfProcess(current, nbx::MakeOpenFiles);
}

std::atomic<void (*)() noexcept> EngineFiles::gChangeHandler{nullptr};

void EngineFiles::ReportChange() noexcept {
    if (const auto handler = gChangeHandler.load()) {
        handler();
    }
}

bool EngineFiles::IsInUse(const std::string& path) {
    return FileTurn(*this, path).get_UserCount() > 0;
}

Engine::~Engine() {
    GiveUpEngine(*this);
}

void GiveUpEngine(Engine& engine) noexcept {
    if (engine.record != nullptr && !engine.IsInherited()) {
        FileTurn turn(*engine.files, engine.file);
        turn.GiveUp(engine);
    }
}

FileTurn::FileTurn(EngineFiles& files, const std::string& path) : files_(files) {
    for (;;) {
        look_ = files_.system_.Look(path);
        file_ = files_.files_.Take(look_.get_Identity());
        // While this thread waited, another file may have taken the path.
        try {
            look_ = files_.system_.Look(path);
        } catch (...) {
            files_.files_.Release(file_);
            throw;
        }
        if (files_.files_.Matches(file_, look_.get_Identity())) {
            return;
        }
        files_.files_.Release(file_);
    }
}

FileTurn::FileTurn(const std::string& name) : files_(EngineFiles::Nameless()), is_file_(false) {
    look_.name = look_.path = name;
    file_ = files_.files_.Take(look_.get_Identity());
}

FileTurn::FileTurn(EngineFiles& files, nbx::OpenFile* file) : files_(files), file_(file) {
    files_.files_.TakeAgain(file_);
}

FileTurn::~FileTurn() {
    CloseUnused();
    files_.files_.Release(file_);
}

void FileTurn::CloseUnused() noexcept {
    if (get_UserCount() > 0) {
        return;
    }
    // The writer first: it may still fold its log into the file, for which it needs the lock.
    for (const uint32_t access : {OpenEngine::kWriting, OpenEngine::kReading, OpenEngine::kDead}) {
        while (OpenEngine* const record = Find(access)) {
            auto handle = static_cast<duckdb_database>(record->handle);
            files_.files_.SetHandle(record, nullptr, access);
            duckdb_close(&handle);
            files_.files_.RemoveEngine(file_, record);
            EngineFiles::ReportChange();
        }
    }
}

uint32_t FileTurn::get_UserCount() const {
    uint32_t count = 0;
    for (const OpenEngine* each = file_->engines; each != nullptr; each = each->next) {
        count += each->users;
    }
    return count;
}

uint32_t FileTurn::CountReaders() const {
    uint32_t count = 0;
    for (const OpenEngine* each = file_->engines; each != nullptr; each = each->next) {
        count += each->access == OpenEngine::kReading ? each->users : 0;
    }
    return count;
}

bool FileTurn::IsOpenByOtherMeans() const {
    return is_file_ && file_->engines == nullptr && files_.system_.IsDatabaseOpenHere(look_);
}

std::string FileTurn::get_Refusal(Engine::Access access) const {
    if (Find(OpenEngine::kWriting) != nullptr) {
        return kForeignLibrary;
    }
    if (access == Engine::Access::writing && CountReaders() > 0) {
        return DescribeReaders(CountReaders());
    }
    // DuckDB would create another file than the system: it removes a ".." with whatever is before it.
    if (access == Engine::Access::writing && is_file_ && !look_.get_HasFolder()) {
        return "IO Error: Cannot open file " + QuoteIdentifier(look_.path) + ": No such file or directory";
    }
    if (is_file_ && IsNamedPipe(look_.path)) {
        return kPipe;
    }
    return IsOpenByOtherMeans() ? kOtherUse : "";
}

OpenEngine* FileTurn::Find(uint32_t access) const {
    for (OpenEngine* each = file_->engines; each != nullptr; each = each->next) {
        if (each->access == access) {
            return each;
        }
    }
    return nullptr;
}

SharedEngine FileTurn::Use(OpenEngine& record) {
    auto engine = std::make_shared<Engine>();
    Bind(*engine, record);
    return engine;
}

void FileTurn::Bind(Engine& engine, OpenEngine& record) noexcept {
    engine.handle = static_cast<duckdb_database>(record.handle);
    engine.access = record.access == OpenEngine::kReading ? Engine::Access::reading : Engine::Access::writing;
    engine.files = &files_;
    engine.file = file_;
    engine.record = &record;
    files_.files_.SetUsers(&record, record.users + 1);
}

SharedEngine FileTurn::JoinWriter() {
    OpenEngine* const record = Find(OpenEngine::kWriting);
    return record != nullptr && record->library == get_DuckDBLibrary() ? Use(*record) : nullptr;
}

SharedEngine FileTurn::TakeIdleReader(const Configuration& configuration) {
    // The system cannot see files on a network, so a change of one would not be noticed.
    if (!look_.exists) {
        return nullptr;
    }
    const FileStamp stamp = files_.system_.ReadStamp(look_.path);
    for (OpenEngine* each = file_->engines; each != nullptr; each = each->next) {
        const bool is_equal =
            each->access == OpenEngine::kReading && each->users == 0 &&
            each->library == get_DuckDBLibrary() &&
            std::memcmp(each->stamp, stamp.data(), sizeof each->stamp) == 0 &&
            std::string_view(each->configuration, each->configuration_length) == configuration.get_Text();
        if (is_equal && IsEngineAlive(static_cast<duckdb_database>(each->handle))) {
            return Use(*each);
        }
    }
    return nullptr;
}

SharedEngine FileTurn::OpenWriter(const std::string& path, const Configuration& configuration,
                                  std::string& error) {
    // An idle reader of the same file would not see what the writer writes.
    for (OpenEngine* each = file_->engines; each != nullptr; each = each->next) {
        if (each->access == OpenEngine::kReading && each->users == 0) {
            files_.files_.SetAccess(each, OpenEngine::kDead);
        }
    }
    return Open(path, configuration, Engine::Access::writing, error);
}

SharedEngine FileTurn::OpenReader(const std::string& path, const Configuration& configuration,
                                  std::string& error) {
    return Open(path, configuration, Engine::Access::reading, error);
}

SharedEngine FileTurn::Open(const std::string& path, const Configuration& configuration,
                            Engine::Access access, std::string& error) {
    error = configuration.get_Error().empty() ? get_Refusal(access) : configuration.get_Error();
    if (!error.empty()) {
        return nullptr;
    }
    // Allocate everything before the engine exists, so that a lack of memory cannot leak it.
    const std::string& text = configuration.get_Text();
    const FileStamp stamp = files_.system_.ReadStamp(look_.path);
    auto engine = std::make_shared<Engine>();
    OpenEngine* const record = files_.files_.AddEngine(file_, path.c_str(), text.data(), text.size());
    record->library = get_DuckDBLibrary();
    std::memcpy(record->stamp, stamp.data(), sizeof record->stamp);
    Bind(*engine, *record);
    TextHolder reason;
    if (OpenDuckDB(path.c_str(), &engine->handle, configuration.get(), reason.Receive()) != DuckDBSuccess) {
        GiveUp(*engine);
        files_.files_.RemoveEngine(file_, record);
        error = reason ? reason.get() : "";
        if (is_file_ && file_->engines == nullptr) {
            error = NameLockHolder(std::move(error), look_);
        } else if (is_file_) {
            // DuckDB has closed what it had opened, and with it the readers' lock.
            RenewReadLock(look_);
        }
        return nullptr;
    }
    files_.files_.SetHandle(record, engine->handle,
                            access == Engine::Access::reading ? OpenEngine::kReading : OpenEngine::kWriting);
    engine->access = access;
    EngineFiles::ReportChange();
    if (is_file_ && !look_.exists) {
        LookAgain();
    }
    return engine;
}

void FileTurn::LookAgain() noexcept {
    look_.exists = files_.system_.Identify(look_.path.c_str(), look_.device, look_.inode);
    files_.files_.SetIdentity(file_, look_.get_Identity());
}

void FileTurn::MarkDeleted() noexcept {
    look_.exists = false;
    files_.files_.SetIdentity(file_, look_.get_Identity());
}

void FileTurn::GiveUp(Engine& engine) noexcept {
    OpenEngine* const record = std::exchange(engine.record, nullptr);
    files_.files_.SetUsers(record, record->users - 1);
    engine.handle = nullptr;
}

void FileTurn::Retire(Engine& engine) noexcept {
    files_.files_.SetAccess(engine.record, OpenEngine::kDead);
    GiveUp(engine);
}

}  // namespace mduckdb
