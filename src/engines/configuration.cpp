#include "engines/configuration.h"

#include <stdexcept>

#include "base/text.h"
#include "duckdb_internals/engine_settings.h"

namespace mduckdb {

namespace {

using Options = nbx::mrsql::DuckDBDatabaseOptions;

/** One option: its key, and its value, as a text that is made or as a folder. An empty value leaves the key
    unset. */
struct OptionRow {
    const char* key;
    std::string (*get_value)(const Options& options);
    nbx::String Options::*folder;
};

/** DuckDB accepts any number, and starts that many threads. */
constexpr uint32_t kMostThreads = 1024;

std::string NumberOrNothing(uint32_t number, const char* unit) {
    return number == 0 ? std::string() : std::to_string(number) + unit;
}

// In the order in which DuckDB gets them.
constexpr OptionRow kOptionRows[] = {
    {"threads", [](const Options& o) { return NumberOrNothing(o.threads, ""); }, nullptr},
    {"max_memory", [](const Options& o) { return NumberOrNothing(o.max_memory_mb, "MB"); }, nullptr},
    {"temp_directory", nullptr, &Options::temp_directory},
    {"enable_external_access",
     [](const Options& o) { return std::string(o.enable_external_access ? "true" : "false"); }, nullptr},
    {"home_directory", nullptr, &Options::home_directory},
    {"secret_directory", nullptr, &Options::secret_directory},
    {"extension_directory", nullptr, &Options::extension_directory},
};

}  // namespace

Configuration::Configuration() {
    if (duckdb_create_config(config_.Receive()) != DuckDBSuccess || !WriteEngineSettings(config_.get())) {
        throw std::runtime_error("Failed to create DuckDB config");
    }
}

void Configuration::Set(const char* key, const std::string& value) {
    SetUnmarked(key, value);
    text_.append(key).append(1, '\0').append(value).append(1, '\0');
}

void Configuration::SetUnmarked(const char* key, const std::string& value) {
    if (value.find('\0') != std::string::npos) {
        error_ = "The value of " + std::string(key) + " must not contain NUL characters";
        return;
    }
    // DuckDB reports a rejected key or value when the database is opened.
    static_cast<void>(duckdb_set_config(config_.get(), key, value.c_str()));
}

void Configuration::SetText(const char* key, const nbx::String& text) {
    const std::string value = ToUtf8(text);
    if (!(FromUtf8(value) == text)) {
        error_ = "The value of " + std::string(key) + " is not valid UTF-16";
    } else if (!value.empty()) {
        Set(key, value);
    }
}

void Configuration::ApplyCredentials(const nbx::String& token, const nbx::String& user_agent) {
    if (token.isEmpty()) {
        return;
    }
    SetText("motherduck_token", token);
    SetText("custom_user_agent", user_agent);
}

void Configuration::ApplyOptions(const Options& options) {
    if (options.threads > kMostThreads) {
        error_ = "threads must not be above " + std::to_string(kMostThreads) + "; it is " +
                 std::to_string(options.threads);
    }
    for (const OptionRow& row : kOptionRows) {
        if (row.folder != nullptr) {
            SetText(row.key, options.*row.folder);
        } else if (const std::string value = row.get_value(options); !value.empty()) {
            Set(row.key, value);
        }
    }
}

}  // namespace mduckdb
