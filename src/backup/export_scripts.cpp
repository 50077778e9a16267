#include "backup/export_scripts.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <regex>

#include "backup/error.h"
#include "backup/files.h"
#include "backup/sql_worker.h"
#include "base/text.h"

namespace mduckdb {

namespace {

/** The position of the next such character outside quotes, from `at` on. */
std::size_t FindUnquoted(std::string_view text, char wanted, std::size_t at) {
    char quote = '\0';
    for (; at < text.size(); ++at) {
        const char c = text[at];
        if (quote != '\0') {
            quote = c == quote ? '\0' : quote;
        } else if (c == wanted) {
            return at;
        } else if (c == '"' || c == '\'') {
            quote = c;
        }
    }
    return std::string_view::npos;
}

/** The position after the quoted text that begins at `at`. */
std::size_t EndOfText(std::string_view text, std::size_t at) {
    for (++at; at < text.size(); ++at) {
        if (text[at] == '\'') {
            if (at + 1 >= text.size() || text[at + 1] != '\'') {
                return at + 1;
            }
            ++at;
        }
    }
    return text.size();
}

std::string Unquoted(std::string_view text) {
    std::string result;
    for (std::size_t i = 1; i + 1 < text.size(); ++i) {
        result += text[i];
        i += text[i] == '\'' ? 1U : 0U;
    }
    return result;
}

}  // namespace

std::vector<std::string> SplitScript(std::string_view script) {
    std::vector<std::string> statements;
    while (!script.empty()) {
        const std::size_t end = FindUnquoted(script, ';', 0);
        const std::string_view statement = script.substr(0, end);
        if (statement.find_first_not_of(" \t\r\n") != std::string_view::npos) {
            statements.emplace_back(statement);
        }
        script = end == std::string_view::npos ? std::string_view() : script.substr(end + 1);
    }
    return statements;
}

std::string MendLoad(std::string_view copy, const std::string& folder) {
    // The first text in single quotes is the file.
    const std::size_t start = FindUnquoted(copy, '\'', 0);
    if (start == std::string_view::npos) {
        return std::string(copy);
    }
    const std::size_t end = EndOfText(copy, start);
    const std::filesystem::path file = Unquoted(copy.substr(start, end - start));
    static const std::regex row_group_size(", *ROW_GROUP_SIZE +[0-9_]+|ROW_GROUP_SIZE +[0-9_]+ *,?",
                                           std::regex::icase);
    const std::string options = std::regex_replace(std::string(copy.substr(end)), row_group_size, "");
    return std::string(copy.substr(0, start)) + QuoteLiteral(folder + "/" + file.filename().string()) +
           options;
}

bool IsExportUnfinished(const std::string& folder) {
    const std::string schema = folder + "/schema.sql";
    std::error_code missing;
    if (std::filesystem::file_size(folder + "/load.sql", missing) != 0 ||
        !std::filesystem::exists(schema, missing)) {
        return false;
    }
    std::vector<std::string> statements;
    try {
        statements = SplitScript(ReadWhole(schema));
    } catch (const BackupError&) {
        return false;  // The import says why it cannot be read.
    }
    return std::any_of(statements.begin(), statements.end(), [](std::string_view statement) {
        return statement.substr(statement.find_first_not_of(" \t\r\n")).starts_with("CREATE TABLE ");
    });
}

ExportScripts ReadExportScripts(const std::string& folder) {
    ExportScripts scripts;
    scripts.schema = SplitScript(ReadWhole(folder + "/schema.sql"));
    for (const std::string& copy : SplitScript(ReadWhole(folder + "/load.sql"))) {
        scripts.load.push_back(MendLoad(copy, folder));
    }
    return scripts;
}

void RunExportScripts(const ExportScripts& scripts, const std::function<void(const std::string&)>& run) {
    std::vector<std::string> waiting = scripts.schema;
    while (!waiting.empty()) {
        std::vector<std::string> failed;
        std::exception_ptr error;
        for (const std::string& statement : waiting) {
            try {
                run(statement);
            } catch (...) {
                error = error ? error : std::current_exception();
                failed.push_back(statement);
            }
        }
        if (failed.size() == waiting.size()) {
            std::rethrow_exception(error);
        }
        waiting = std::move(failed);
    }
    for (const std::string& statement : scripts.load) {
        run(statement);
    }
}

}  // namespace mduckdb
