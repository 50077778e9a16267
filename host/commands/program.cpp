#include "commands/program.h"

#include <fmt/format.h>
#include <unistd.h>

#include <stdexcept>

#include "databases/databases.h"
#include "databases/interruption.h"
#include "nbx/exception.h"
#include "table/module.h"
#include "text/messages.h"

namespace mduckdb_host {

namespace {

constexpr char kGuard = '\x02';
/** The status that shells report for a program that Ctrl-C terminated. */
constexpr int kInterruptedStatus = 130;

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

DatabasePtr OpenForCommand(const std::string& path, bool is_read_only) {
    const InterruptWatch watch([] { ::_exit(kInterruptedStatus); });
    try {
        DatabasePtr database = OpenDatabase(path, IfMissing::kFail, is_read_only);
        if (database->get_IsReadOnly() && !is_read_only) {
            PrintError(fmt::format("{} is open read-only: it is write-protected or in use.", path));
        }
        return database;
    } catch (const nbx::xException& error) {
        throw std::runtime_error(fmt::format("Cannot open {}: {}", path, DescribeException(error, {})));
    }
}

}  // namespace mduckdb_host
