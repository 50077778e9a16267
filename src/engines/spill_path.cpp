#include "engines/spill_path.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "engines/engine_files.h"

namespace mduckdb {

namespace {

constexpr std::string_view kMemory = ":memory:";

constexpr const char* kKey = "temp_directory";

/** The temporary directory of an engine with this configuration, as DuckDB chooses it; empty if it has one of
    its own. */
std::string SpillOf(std::string_view path, std::string_view configuration) {
    const std::string key = '\0' + std::string(kKey) + '\0';
    // The first key has none before it.
    const std::string texts = '\0' + std::string(configuration);
    const std::size_t at = texts.rfind(key);
    if (at != texts.npos) {
        return texts.c_str() + at + key.size();
    }
    return path == kMemory ? ".tmp" : std::string(path) + ".tmp";
}

std::vector<std::string> ListSpills() {
    std::vector<std::string> folders;
    for (EngineFiles* files : {&EngineFiles::Get(), &EngineFiles::Nameless()}) {
        files->Visit(
            [](void* context, const nbx::OpenEngine& engine) {
                std::string folder =
                    SpillOf(engine.path, {engine.configuration, engine.configuration_length});
                if (!folder.empty()) {
                    static_cast<std::vector<std::string>*>(context)->push_back(std::move(folder));
                }
            },
            &folders);
    }
    return folders;
}

FileLook LookAtFolder(std::string path) {
    while (path.size() > 1 && path.ends_with('/')) {
        path.pop_back();
    }
    return FileSystem::Get().Look(path);
}

bool IsSame(const FileLook& one, const FileLook& other) {
    return one.exists == other.exists &&
           (one.exists ? one.device == other.device && one.inode == other.inode
                       : one.folder_device == other.folder_device && one.folder_inode == other.folder_inode &&
                             one.name == other.name);
}

/** The beginning of a path, with what makes it the path of one engine. */
std::string MakeSpillPath(const std::string& beginning) {
    // Another module of this process has another variable.
    static std::atomic<unsigned long> count{0};
    return beginning + std::to_string(getpid()) + "-" +
           std::to_string(reinterpret_cast<std::uintptr_t>(&count)) + "-" + std::to_string(++count);
}

}  // namespace

void PutOwnSpill(Configuration& configuration, const std::string& beginning) {
    configuration.SetUnmarked(kKey, MakeSpillPath(beginning));
    configuration.Mark(kKey);
    configuration.Mark("");
}

void SeparateSpill(Configuration& configuration, const std::string& path) {
    const FileLook wanted = LookAtFolder(SpillOf(path, configuration.get_Text()));
    const std::vector<std::string> others = ListSpills();
    const bool is_taken = std::any_of(others.begin(), others.end(), [&](const std::string& folder) {
        return IsSame(LookAtFolder(folder), wanted);
    });
    if (is_taken) {
        configuration.SetUnmarked(kKey, MakeSpillPath(wanted.path + (wanted.exists ? "/mduckdb-" : "-")));
    }
}

}  // namespace mduckdb
