#include <chrono>
#include <condition_variable>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "nbx/open_files.h"

namespace nbx {
namespace {

struct EngineRecord : OpenEngine {
    std::string text;
    std::string path_text;
};

int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/** The place of a file: the identity that it has before it exists. */
struct Place {
    uint64_t device;
    uint64_t inode;
    std::string name;
};

struct FileRecord : OpenFile {
    bool has_inode = false;
    uint64_t device = 0;
    uint64_t inode = 0;
    bool has_place = false;
    Place place{};
    /** How many nested turns the owner has. */
    uint32_t turns = 0;
    std::thread::id owner;
    uint32_t waiting = 0;
    std::condition_variable released;

    bool Is(const FileIdentity& identity) const {
        if (has_inode && identity.exists && device == identity.device && inode == identity.inode) {
            return true;
        }
        return has_place && place.device == identity.folder_device && place.inode == identity.folder_inode &&
               place.name == identity.name;
    }
};

FileRecord& RecordOf(OpenFile* file) {
    return static_cast<FileRecord&>(*file);
}

// Never destroyed, so that a database may be released while static objects are being destroyed.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor)
class OpenFileList final : public I_OpenFiles {
  public:
    OpenFile* Take(const FileIdentity& identity) override {
        std::unique_lock lock(mutex_);
        for (FileRecord& file : files_) {
            if (file.Is(identity)) {
                WaitForTurn(file, lock);
                return &file;
            }
        }
        return &Add(identity);
    }
    void TakeAgain(OpenFile* file) noexcept override {
        std::unique_lock lock(mutex_);
        WaitForTurn(RecordOf(file), lock);
    }
    void Release(OpenFile* file) noexcept override {
        const std::scoped_lock lock(mutex_);
        FileRecord& record = RecordOf(file);
        if (--record.turns > 0) {
            return;
        }
        record.has_place = record.has_place && !record.has_inode;
        if (record.waiting > 0) {
            record.released.notify_one();
        } else if (record.engines == nullptr) {
            files_.remove_if([&record](const FileRecord& each) { return &each == &record; });
        }
    }
    bool Matches(const OpenFile* file, const FileIdentity& identity) noexcept override {
        const std::scoped_lock lock(mutex_);
        return static_cast<const FileRecord*>(file)->Is(identity);
    }
    void ClaimPlace(OpenFile* file, const FileIdentity& identity) override {
        Place place{identity.folder_device, identity.folder_inode, identity.name};
        const std::scoped_lock lock(mutex_);
        RecordOf(file).place = std::move(place);
        RecordOf(file).has_place = true;
    }
    void SetIdentity(OpenFile* file, const FileIdentity& identity) noexcept override {
        const std::scoped_lock lock(mutex_);
        RecordOf(file).has_inode = identity.exists;
        RecordOf(file).device = identity.device;
        RecordOf(file).inode = identity.inode;
    }
    OpenEngine* AddEngine(OpenFile* file, const char* path, const char* configuration,
                          uint64_t configuration_length) override {
        auto* engine = new EngineRecord{{}, std::string(configuration, configuration_length), path};
        engine->access = OpenEngine::kDead;
        engine->configuration = engine->text.data();
        engine->configuration_length = configuration_length;
        engine->path = engine->path_text.c_str();
        engine->begun_ms = NowMs();
        const std::scoped_lock lock(mutex_);
        engine->number = ++last_number_;
        engine->next = file->engines;
        file->engines = engine;
        return engine;
    }
    void SetHandle(OpenEngine* engine, void* handle, uint32_t access) noexcept override {
        const std::scoped_lock lock(mutex_);
        engine->handle = handle;
        engine->access = access;
    }
    void SetAccess(OpenEngine* engine, uint32_t access) noexcept override {
        const std::scoped_lock lock(mutex_);
        engine->access = access;
    }
    void SetUsers(OpenEngine* engine, uint32_t users) noexcept override {
        const std::scoped_lock lock(mutex_);
        engine->users = users;
    }
    void RemoveEngine(OpenFile* file, OpenEngine* engine) noexcept override {
        const std::scoped_lock lock(mutex_);
        for (OpenEngine** link = &file->engines; *link != nullptr; link = &(*link)->next) {
            if (*link == engine) {
                *link = engine->next;
                delete static_cast<EngineRecord*>(engine);
                return;
            }
        }
    }
    uint64_t CountEngines() noexcept override {
        const std::scoped_lock lock(mutex_);
        uint64_t count = 0;
        for (const FileRecord& file : files_) {
            for (const OpenEngine* engine = file.engines; engine != nullptr; engine = engine->next) {
                ++count;
            }
        }
        return count;
    }
    void ListEngines(void (*visit)(void* context, const OpenEngine& engine), void* context) override {
        const std::scoped_lock lock(mutex_);
        for (const FileRecord& file : files_) {
            for (const OpenEngine* engine = file.engines; engine != nullptr; engine = engine->next) {
                visit(context, *engine);
            }
        }
    }

  private:
    static void WaitForTurn(FileRecord& file, std::unique_lock<std::mutex>& lock) {
        if (file.turns == 0 || file.owner != std::this_thread::get_id()) {
            ++file.waiting;
            file.released.wait(lock, [&file] { return file.turns == 0; });
            --file.waiting;
            file.owner = std::this_thread::get_id();
        }
        ++file.turns;
    }
    FileRecord& Add(const FileIdentity& identity) {
        Place place{identity.folder_device, identity.folder_inode, identity.name};
        FileRecord& file = files_.emplace_back();
        file.has_inode = identity.exists;
        file.device = identity.device;
        file.inode = identity.inode;
        file.has_place = !identity.exists;
        file.place = std::move(place);
        file.turns = 1;
        file.owner = std::this_thread::get_id();
        return file;
    }

    std::mutex mutex_;
    uint64_t last_number_ = 0;
    std::list<FileRecord> files_;
};

}  // namespace

I_OpenFiles& MakeOpenFiles() {
    return *new OpenFileList;
}

}  // namespace nbx
