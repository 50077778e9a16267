#include "extension/file_probe.h"

#include <cstring>
#include <new>
#include <utility>

#include "base/text.h"
#include "engines/engine_files.h"
#include "nbx/file.h"

namespace mduckdb {

namespace {

constexpr uint64_t kMarkOffset = 8;
constexpr char kMark[] = {'D', 'U', 'C', 'K'};

bool HasMark(nbx::I_File& file) {
    if (file.get_Size() == 0) {
        return true;
    }
    char bytes[sizeof kMark] = {};
    file.Read(bytes, kMarkOffset, sizeof bytes);
    return std::memcmp(bytes, kMark, sizeof kMark) == 0;
}

bool Probe(nbx::I_File& file, nbx::smart_ptr<nbx::I_Location> location) {
    bool answer = false;
    try {
        file.put_Location(std::move(location));
        file.put_IsReadOnly(true);
        file.Open();
        answer = HasMark(file);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) {  // A file that cannot be read does not count as a database.
    }
    try {
        file.Close();
    } catch (...) {  // The answer is final.
    }
    return answer;
}

}  // namespace

bool LooksLikeDuckDBFile(nbx::smart_ptr<nbx::I_Location> location) {
    try {
        if (!location) {
            return false;
        }
        // While the probe lasts, no engine of this process opens the file. Opening and closing it while an
        // engine has it open would drop the engine's lock.
        const FileTurn turn(EngineFiles::Get(), ToPath(location->get_PathText()));
        const FileContent known = ReadContentWithoutOpening(turn.get_Look());
        if (known != FileContent::unreadable) {
            return known != FileContent::other;
        }
        const auto file = nbx::MakeObject<nbx::FileWin>();
        return Probe(*file, std::move(location));
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) {
        return false;
    }
}

}  // namespace mduckdb
