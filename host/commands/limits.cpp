#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cmath>

#include "commands/program.h"
#include "text/messages.h"

namespace mduckdb_host {

namespace {

using nbx::mrsql::I_DuckDBProcedureLimits;

constexpr double kMostSeconds = 4'000'000;
constexpr const char* kGroup = "Limits for each call of a procedure";

}  // namespace

void AddLimitOptions(CLI::App& app, Program& program) {
    Limits& limits = program.limits;
    const auto number = [&app](const char* name, auto& value, double most, const char* help) {
        app.add_option(name, value, help)->type_name("N")->check(CLI::Range(0.0, most))->group(kGroup);
    };
    number("--memory-mb", limits.memory_mb, UINT32_MAX, "Memory of its engine, in megabytes");
    number("--threads", limits.threads, UINT32_MAX, "Threads of its engine");
    number("--seconds", limits.seconds, kMostSeconds,
           "Seconds until the call is cut; also limits SQL statements");
    app.add_option("--temp-directory", limits.temp_directory, "Folder for rows that exceed the memory")
        ->type_name("DIR")
        ->group(kGroup);
    app.add_option("--allow-directory", limits.allowed_directories,
                   "Folder that it may read; can be repeated; without it, every file")
        ->type_name("DIR")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false)
        ->group(kGroup);
}

bool Limits::get_IsSet() const noexcept {
    return memory_mb > 0 || threads > 0 || seconds > 0 || !temp_directory.empty() ||
           !allowed_directories.empty();
}

void Limits::Apply() const {
    if (!get_IsSet()) {
        return;
    }
    const auto extension = nbx::mrsql::GetDuckDBExtension();
    auto* const target = extension ? static_cast<I_DuckDBProcedureLimits*>(extension->QueryInterface(
                                         nbx::mrsql::kDuckDBProcedureLimitsInterfaceId))
                                   : nullptr;
    if (target == nullptr) {
        throw std::runtime_error("The module cannot limit the calls of procedures.");
    }
    nbx::mrsql::DuckDBProcedureLimits record;
    record.memory_mb = memory_mb;
    record.threads = threads;
    record.time_ms = static_cast<uint32_t>(std::ceil(seconds * 1000));
    put_StatementTimeLimit(record.time_ms);
    try {
        if (!temp_directory.empty()) {
            record.temp_directory = MakeLocation(temp_directory);
        }
        if (!allowed_directories.empty()) {
            record.allowed_directories =
                nbx::MakeObject<nbx::ArrayOfSmartPtrs<nbx::smart_ptr<nbx::I_Location>>>();
        }
        for (const std::string& folder : allowed_directories) {
            record.allowed_directories->Append(MakeLocation(folder));
        }
        target->put_Limits(record);
    } catch (const nbx::xException& error) {
        throw std::runtime_error(fmt::format("Cannot limit the calls of procedures to '{}': {}",
                                             ToUtf8(error.get_Text(0)), DescribeException(error, {})));
    }
}

}  // namespace mduckdb_host
