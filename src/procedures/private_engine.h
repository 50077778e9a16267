#pragma once

#include <duckdb.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "base/deadline.h"
#include "base/holders.h"
#include "duckdb_internals/remote_files.h"
#include "engines/engine_files.h"
#include "engines/idle_engines.h"
#include "engines/memory_engine.h"
#include "procedures/call_limits.h"
#include "procedures/call_time.h"
#include "procedures/running_call.h"

namespace mduckdb {

/** The DuckDB engine of one procedure call and its connection, within the limits that are set now. Move-only;
   the destructor disconnects, then releases the engine or hands it on. Failures are std::runtime_error with
   their fixed texts. */
class PrivateEngine {
  public:
    /** In memory, to read the file or pattern: an idle engine of an earlier call under the same limits, or a
        new one. It serves the next call if this one finishes reading. For a file on a network: one of its
       own, which caches what it reads. */
    static PrivateEngine OpenInMemory(const char* procedure_name, const std::string& uri = {});
    /** Reads a database file. If this process has it open for writing, reads through that engine, in a
        read-only transaction that lasts until `FinishReading`; otherwise through a read-only engine. In both
        cases it creates, checkpoints and deletes nothing. `:memory:` is an empty database. With limited
        folders the file must be in one of them, and is not read through the writing engine, whose views may
        read any file. */
    static PrivateEngine OpenFile(const char* procedure_name, const std::string& path);

    PrivateEngine(PrivateEngine&& other) noexcept;
    PrivateEngine(const PrivateEngine&) = delete;
    PrivateEngine& operator=(const PrivateEngine&) = delete;
    ~PrivateEngine();

    /** Runs the text to the end; throws with DuckDB's text when it fails. */
    ResultHolder Query(const std::string& sql);
    duckdb_connection get_Connection() const noexcept { return connection_; }
    const CallTime& get_Time() const noexcept { return time_; }
    /** Returns what the work returns, which uses the connection or opens the file. When the call's time is
        over, the work is cut, and this throws. */
    template <class Work>
    auto RunInTime(Work work);
    /** Called when the result is complete: ends the transaction, so that it does not block checkpoints. An
        engine whose call failed is not handed on. */
    void FinishReading() noexcept;
    RunningCall& get_Call() noexcept { return *call_; }
    /** Makes names that start with the name of the file's catalog refer to the file, even when a shared
       engine has attached it under another name. */
    void QualifyName(std::vector<std::string>& parts);

  private:
    PrivateEngine(const char* procedure_name, const std::string& path)
        : limits_(GetLimits()),
          time_(procedure_name, limits_->time),
          is_remote_(IsRemotePath(path)),
          call_(std::make_unique<RunningCall>(procedure_name,
                                              is_remote_ ? std::make_shared<ServerWaits>() : nullptr)) {}
    /** The settings of an engine within the limits; `spill_beginning` is for a call without a folder. */
    void Configure(Configuration& configuration, const std::string& spill_beginning) const;
    void OpenMemory();
    void OpenNewMemory();
    void Connect(const char* failure_text);
    /** Connects to the engine, which was just opened, and sets what cannot be configured before that: its
        allowed folders, for example, after which its settings are locked. */
    void LimitOpened(FileTurn& turn);
    bool RunLimits();
    struct Setting {
        const char* name;
        std::string value;
    };
    /** For DuckDB's HTTP client: its own time for a request, cut to that of the call, after which it asks
       again once instead of three times. No server must take longer, also where `ServerWaits` finds
       nothing. */
    std::vector<Setting> HttpSettings() const;
    void UseFile(const std::string& file);
    void OpenReader(FileTurn& turn, const std::string& file);
    void OpenNewReader(FileTurn& turn, const std::string& file, Configuration& configuration,
                       std::string& error);
    /** After a file could not be opened, when nobody waits for its turn any more. */
    [[noreturn]] void ThrowOpenFailed(const std::string& file);
    /** Connects to the writing engine, if there is a working one. */
    bool JoinWriter(FileTurn& turn);
    bool Run(const char* sql) noexcept;
    /** The time is over. */
    static void Cut(void* engine) noexcept;

    SharedLimits limits_;
    CallTime time_;
    /** What the call reads is on a network. */
    bool is_remote_;
    std::unique_ptr<RunningCall> call_;
    /** Of the file or in memory; null until it is open. */
    SharedEngine engine_;
    /** Ends after the engine has been handed on. */
    EngineUse use_;
    /** The engine in memory, which may serve other calls afterwards. */
    std::optional<MemoryEngine> memory_engine_;
    bool has_finished_ = false;
    duckdb_connection connection_ = nullptr;
    /** The engine is the writing engine of this process. */
    bool is_shared_ = false;
    /** What DuckDB says about a file that it cannot open. */
    std::string open_error_;
    /** The name of the catalog when a file is opened under the path. */
    std::string catalog_;
};

template <class Work>
auto PrivateEngine::RunInTime(Work work) {
    std::optional<Deadline> deadline;
    if (time_.get_IsLimited()) {
        deadline.emplace(time_.get_End(), &Cut, this);
    }
    std::optional<ServerWaits::Work> waiting;
    if (call_->get_Waits()) {
        waiting.emplace(*call_->get_Waits(), call_->get_IsCut());
    }
    try {
        auto outcome = work();
        if (time_.IsOver()) {
            time_.ThrowEnd();
        }
        return outcome;
    } catch (const std::exception&) {
        if (deadline && deadline->get_HasCut()) {
            time_.ThrowEnd();
        }
        throw;
    }
}

/** The error of a failed query, with DuckDB's text if it has one. */
std::runtime_error QueryError(duckdb_result& result);

/** The path of the database file that DuckDB means by the text: without the prefix that names the kind of
    database, without the scheme of a file URL and with the home folder in place of a tilde. Empty for a text
    that does not name a file. */
std::string DatabaseFilePath(const std::string& uri);

}  // namespace mduckdb
