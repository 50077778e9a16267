#include "program.h"

#include <fmt/format.h>

#include <cstdio>

#include "module_loader.h"

namespace mduckdb_host {

namespace {

constexpr char kGuard = '\x02';

}  // namespace

std::vector<std::string> ReadCommandLine(int argc, const char* const* argv, Program& program) {
    std::vector<std::string> words;
    bool is_call = false;
    for (int i = 1; i < argc; ++i) {
        std::string word = argv[i];
        if (is_call && word == "--") {
            program.words_after_dashes.assign(argv + i + 1, argv + argc);
            break;
        }
        if (is_call && word.starts_with('[') && word.ends_with(']')) {
            word.insert(word.begin(), kGuard);
        }
        is_call = is_call || word == "call";
        words.push_back(std::move(word));
    }
    return words;
}

std::string UnguardWord(const std::string& word) {
    return word.starts_with(kGuard) ? word.substr(1) : word;
}

const void* Program::Load() {
    return LoadModule(module_name, registry);
}

void PrintError(std::string_view text) {
    std::fflush(stdout);
    // Nobody may be there to read it; that is no reason to fail differently.
    std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
}

}  // namespace mduckdb_host
