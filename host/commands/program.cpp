#include "commands/program.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "databases/databases.h"
#include "databases/interruption.h"
#include "nbx/exception.h"
#include "nbx/lock_holder.h"
#include "table/module.h"
#include "text/messages.h"

namespace mduckdb_host {

namespace {

constexpr char kGuard = '\x02';

/** Whether the word is a common option and the next one its value. */
bool HasValue(std::string_view word) {
    constexpr std::array<std::string_view, 7> kOptions{
        "--module",  "--format",         "--memory-mb",       "--threads",
        "--seconds", "--temp-directory", "--allow-directory",
    };
    return std::find(kOptions.begin(), kOptions.end(), word) != kOptions.end();
}

/** A sentence about the process that has a lock on the file; empty when there is none. Closing the file would
    drop this process's locks on it, so use it only for files that this process does not have open. */
std::string DescribeUser(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        return {};
    }
    const std::string holder = nbx::DescribeLockHolder(descriptor);
    ::close(descriptor);
    return holder.empty() ? holder : fmt::format(" {} has it open.", holder);
}

}  // namespace

std::string FindCommandWord(const std::vector<std::string>& words) {
    bool is_option_value = false;
    for (const std::string& word : words) {
        if (!is_option_value && !word.starts_with('-')) {
            return word;
        }
        is_option_value = !is_option_value && HasValue(word);
    }
    return {};
}

std::vector<std::string> ReadCommandLine(int argc, const char* const* argv, Program& program) {
    std::vector<std::string> words;
    for (int i = 1; i < argc; ++i) {
        std::string word = argv[i];
        const std::string command = FindCommandWord(words);
        const bool has_word_list = command == "call" || command == "probe";
        if (has_word_list && word == "--") {
            program.words_after_dashes.assign(argv + i + 1, argv + argc);
            break;
        }
        if (has_word_list && word.starts_with('[') && word.ends_with(']')) {
            word.insert(word.begin(), kGuard);
        }
        words.push_back(std::move(word));
    }
    return words;
}

std::vector<std::string> RestoreWords(const std::vector<std::string>& words, const Program& program) {
    std::vector<std::string> restored;
    restored.reserve(words.size() + program.words_after_dashes.size());
    for (const std::string& word : words) {
        restored.push_back(word.starts_with(kGuard) ? word.substr(1) : word);
    }
    restored.insert(restored.end(), program.words_after_dashes.begin(), program.words_after_dashes.end());
    return restored;
}

int ReportException(Program& program, const std::exception& error, const SqlText& sql) {
    program.out.Flush();
    PrintError(DescribeException(error, sql));
    return dynamic_cast<const nbx::xInterruptError*>(&error) != nullptr ? kEndedByInterrupt : kFailed;
}

const void* Program::Load() {
    const void* const address = LoadModule(module_name, registry);
    limits.Apply();
    return address;
}

DatabasePtr OpenForCommand(const std::string& path, bool is_read_only) {
    const InterruptWatch watch([] { ::_exit(kEndedByInterrupt); });
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

void RequireReplaceable(const std::string& path, bool is_forced) {
    if (!is_forced && MakeDatabase(path)->get_Exists()) {
        throw std::runtime_error(
            fmt::format("'{}' exists.{} Use --force to replace it.", path, DescribeUser(path)));
    }
}

}  // namespace mduckdb_host
