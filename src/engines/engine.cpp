#include "engines/engine.h"

#include <utility>

#include "base/holders.h"

namespace mduckdb {

namespace {

constexpr const char* kHeldElsewhere =
    "Cannot open file: it is open for writing under another path of this process";

/** The announcement of an engine, taken back unless the engine was opened. */
class Announcement : nbx::noncopyable {
  public:
    Announcement(const std::string& file, Engine::Access access)
        : file_(file), access_(access), is_held_(!file.empty() && EngineFiles::Get().TryHold(file, access)) {}
    ~Announcement() {
        if (is_held_) {
            EngineFiles::Get().CancelHold(file_, access_);
        }
    }
    bool get_IsGranted() const { return file_.empty() || is_held_; }
    void Keep() { is_held_ = false; }

  private:
    const std::string& file_;
    Engine::Access access_;
    bool is_held_;
};

bool OpenAnnounced(Engine& engine, const std::string& path, const Configuration& configuration,
                   Engine::Access access, std::string& error) {
    engine.access = access;
    engine.configuration = configuration.get_Text();
    Announcement announcement(engine.file, access);
    if (!announcement.get_IsGranted()) {
        error = kHeldElsewhere;
        return false;
    }
    TextHolder text;
    if (duckdb_open_ext(path.c_str(), &engine.handle, configuration.get(), text.Receive()) != DuckDBSuccess) {
        engine.handle = nullptr;
        error = text ? text.get() : "";
        return false;
    }
    announcement.Keep();
    return true;
}

}  // namespace

bool OpenForWriting(Engine& engine, const std::string& path, const Configuration& configuration,
                    std::string& error) {
    if (!engine.file.empty()) {
        if (const duckdb_database idle = EngineFiles::Get().TakeIdleWriter(engine.file)) {
            engine.handle = idle;
            engine.access = Engine::Access::writing;
            return true;
        }
    }
    return OpenAnnounced(engine, path, configuration, Engine::Access::writing, error);
}

bool OpenForReading(Engine& engine, const std::string& path, const Configuration& configuration,
                    bool may_reuse, std::string& error) {
    if (may_reuse && !engine.file.empty()) {
        engine.configuration = configuration.get_Text();
        if (const duckdb_database idle =
                EngineFiles::Get().TakeIdleReader(engine.file, engine.configuration)) {
            engine.handle = idle;
            engine.access = Engine::Access::reading;
            return true;
        }
    }
    return OpenAnnounced(engine, path, configuration, Engine::Access::reading, error);
}

void RetireEngine(Engine& engine) noexcept {
    if (!engine.file.empty()) {
        EngineFiles::Get().Retire(engine.file, engine.access);
    }
    engine.access = Engine::Access::dead;
}

void GiveUpEngine(Engine& engine) noexcept {
    duckdb_database handle = std::exchange(engine.handle, nullptr);
    if (handle == nullptr) {
        return;
    }
    if (engine.file.empty()) {
        duckdb_close(&handle);
    } else {
        EngineFiles::Get().GiveUp(engine.file, engine.access, std::move(engine.configuration), handle);
    }
}

}  // namespace mduckdb
