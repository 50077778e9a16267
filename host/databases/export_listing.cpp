#include "databases/export_listing.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace mduckdb_host {

namespace {

namespace fs = std::filesystem;
constexpr const char* kLoadScript = "load.sql";

/** Reads names and texts from the front of a script. */
class ScriptReader {
  public:
    explicit ScriptReader(std::string_view script) : rest_(script) {}

    /** Skips everything up to and including the next occurrence of the word outside of quotes. */
    bool SkipTo(std::string_view word) { return !TakeUntil(word).empty() || was_found_; }

    /** Returns the text before the next occurrence of the word outside of quotes, and skips both. */
    std::string_view TakeUntil(std::string_view word) {
        char quote = '\0';
        for (std::size_t i = 0; i < rest_.size(); ++i) {
            if (quote == '\0' && rest_.substr(i).starts_with(word)) {
                const std::string_view before = rest_.substr(0, i);
                rest_.remove_prefix(i + word.size());
                was_found_ = true;
                return before;
            }
            if (quote == '\0' && (rest_[i] == '"' || rest_[i] == '\'')) {
                quote = rest_[i];
            } else if (rest_[i] == quote) {
                quote = '\0';
            }
        }
        was_found_ = false;
        rest_ = {};
        return {};
    }

    /** Reads the rest of a text in single quotes whose opening quote was skipped. */
    std::string TakeText() {
        std::string text;
        for (std::size_t i = 0; i < rest_.size(); ++i) {
            if (rest_[i] == '\'' && !rest_.substr(i + 1).starts_with('\'')) {
                rest_.remove_prefix(i + 1);
                break;
            }
            if (rest_[i] == '\'') {
                ++i;
            }
            text += rest_[i];
        }
        return text;
    }

  private:
    std::string_view rest_;
    bool was_found_ = false;
};

/** The table name without the column list that may follow it. */
std::string_view WithoutColumns(std::string_view table) {
    bool is_quoted = false;
    for (std::size_t i = 0; i < table.size(); ++i) {
        is_quoted = table[i] == '"' ? !is_quoted : is_quoted;
        if (table[i] == '(' && !is_quoted) {
            table = table.substr(0, i);
        }
    }
    while (table.ends_with(' ')) {
        table.remove_suffix(1);
    }
    return table;
}

/** The backups in subfolders: users often name the folder that contains the backup. */
std::string ListBackupsIn(const std::string& folder) {
    std::string list;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        if (fs::exists(entry.path() / kLoadScript, error)) {
            list += "\n  " + entry.path().string();
        }
    }
    return list.empty() ? list : "\nBackups are in:" + list;
}

}  // namespace

std::vector<ExportedTable> ParseLoadScript(std::string_view script) {
    std::vector<ExportedTable> tables;
    ScriptReader reader(script);
    while (reader.SkipTo("COPY ")) {
        const std::string_view name = WithoutColumns(reader.TakeUntil(" FROM '"));
        if (!name.empty()) {
            tables.push_back({std::string(name), reader.TakeText()});
        }
    }
    return tables;
}

std::vector<ExportedTable> ReadExport(const std::string& folder) {
    std::ifstream file(fs::path(folder) / kLoadScript, std::ios::binary);
    if (std::error_code error; !file && !fs::exists(folder, error)) {
        throw std::runtime_error(fmt::format("'{}' does not exist.", folder));
    }
    if (!file) {
        throw std::runtime_error(fmt::format("'{}' contains no backup.{}", folder, ListBackupsIn(folder)));
    }
    const std::string script{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    std::vector<ExportedTable> tables = ParseLoadScript(script);
    for (ExportedTable& table : tables) {
        const fs::path here = fs::path(folder) / fs::path(table.file).filename();
        if (std::error_code error; fs::exists(here, error)) {
            table.file = here.string();
        }
    }
    return tables;
}

uint64_t GetFolderSize(const std::string& folder) noexcept {
    uint64_t size = 0;
    try {
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            std::error_code error;
            const uint64_t bytes = entry.is_regular_file(error) ? entry.file_size(error) : 0;
            size += error ? 0 : bytes;
        }
    } catch (const std::exception&) {
        return size;
    }
    return size;
}

}  // namespace mduckdb_host
