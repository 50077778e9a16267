// Runs every input of a corpus once: replay CORPUS [TARGET...], where CORPUS has a folder for each target.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "targets.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> Sorted(const fs::path& folder) {
    std::vector<fs::path> found(fs::directory_iterator(folder), fs::directory_iterator{});
    std::sort(found.begin(), found.end());
    return found;
}

/** False if the folder belongs to no target or has no input. */
bool Replay(const fs::path& folder) {
    const std::string name = folder.filename().string();
    const fuzz::Target* const target = fuzz::FindTarget(name);
    if (target == nullptr) {
        std::printf("%s: no such target\n", name.c_str());
        return false;
    }
    std::size_t count = 0;
    for (const fs::path& file : Sorted(folder)) {
        std::ifstream in(file, std::ios::binary);
        const std::string bytes(std::istreambuf_iterator<char>(in), {});
        // Before it runs: the last one that is printed is the one that ended the process.
        std::printf("%s/%s\n", name.c_str(), file.filename().c_str());
        std::fflush(stdout);
        fuzz::Input input(bytes);
        target->run(input);
        ++count;
    }
    std::printf("%zu inputs of %s replayed\n", count, name.c_str());
    return count > 0;
}

}  // namespace

int main(int count, char** words) {
    if (count < 2) {
        std::fprintf(stderr, "replay CORPUS [TARGET...]\n");
        return 2;
    }
    std::vector<fs::path> folders;
    for (int i = 2; i < count; ++i) {
        folders.push_back(fs::path(words[1]) / words[i]);
    }
    if (folders.empty()) {
        folders = Sorted(words[1]);
    }
    bool is_whole = !folders.empty();
    for (const fs::path& folder : folders) {
        is_whole = Replay(folder) && is_whole;
    }
    return is_whole ? 0 : 1;
}
