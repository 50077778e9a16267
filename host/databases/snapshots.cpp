#include "databases/snapshots.h"

#include <fmt/format.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "databases/export_manifest.h"
#include "databases/interruption.h"
#include "mirona/extension_api.h"
#include "nbx/mrsql/duckdb_snapshot.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

template <class Interface, class Object>
Interface& Ask(const Object& object, uint32_t interface_id) {
    void* const found = object->QueryInterface(interface_id);
    if (found == nullptr) {
        throw std::runtime_error("The module does not offer snapshots.");
    }
    return *static_cast<Interface*>(found);
}

nbx::mrsql::I_DuckDBRestore& GetRestorer() {
    return Ask<nbx::mrsql::I_DuckDBRestore>(GetExtension(), nbx::mrsql::kDuckDBRestoreInterfaceId);
}

/** Throws `std::runtime_error` if there is none. */
Json ReadSnapshotManifest(const std::string& file) {
    return ReadManifest(file + ".manifest.json");
}

/** Bytes written so far of the snapshot that is being made. */
uint64_t GetGrownSize(const std::string& file) noexcept {
    uint64_t size = 0;
    try {
        const fs::path target = fs::absolute(file);
        for (const auto& entry : fs::directory_iterator(target.parent_path())) {
            if (entry.path().filename().string().starts_with(target.filename().string() + ".part-")) {
                size += GetFolderSize(entry.path().string());
            }
        }
    } catch (const std::exception&) {
        return size;
    }
    return size;
}

void PrintHeading(const BackupReport& report, const std::string& file, const Json& manifest) {
    const std::string text =
        fmt::format("Snapshot: {}\nSize: {}\nCompared: {}\n", fs::absolute(file).string(),
                    DescribeSize(manifest.value("size", uint64_t{0})), manifest.value("compared", "nothing"));
    if (report.is_for_people) {
        report.out.Write(text);
    } else {
        fmt::print(stderr, "{}", text);
    }
}

}  // namespace

bool IsSnapshot(const std::string& path) {
    std::error_code error;
    return fs::is_regular_file(path, error);
}

void TakeSnapshot(const DatabasePtr& database, const std::string& file, const BackupReport& report) {
    auto& snapshots = Ask<nbx::mrsql::I_DuckDBSnapshot>(database, nbx::mrsql::kDuckDBSnapshotInterfaceId);
    {
        const InterruptWatch watch([&database] { database->Interrupt(); },
                                   [&file] { return DescribeSize(GetGrownSize(file)) + " written"; });
        snapshots.Snapshot(MakeLocation(file));
    }
    const Json manifest = ReadSnapshotManifest(file);
    PrintHeading(report, file, manifest);
    report.printer.Begin({{"table", 0, MIRONA_TYPE_TEXT}, {"rows", 0, MIRONA_TYPE_INT64}});
    for (const Json& table : manifest.at("tables")) {
        report.printer.Add({{table.at("table").get<std::string>()}, {table.at("rows").get<int64_t>()}});
    }
    report.printer.End();
}

bool RestoreFromSnapshot(const std::string& database, const std::string& file, const BackupReport& report) {
    {
        const InterruptWatch watch([] { fmt::print(stderr, "\nA restore cannot be interrupted.\n"); },
                                   nullptr, "cannot be interrupted");
        GetRestorer().RestoreSnapshot(MakeLocation(database), MakeLocation(file));
    }
    const Json manifest = ReadSnapshotManifest(file);
    PrintHeading(report, file, manifest);
    const DatabasePtr restored = OpenDatabase(database, IfMissing::kFail, true);
    report.printer.Begin({{"table", 0, MIRONA_TYPE_TEXT},
                          {"rows_in_backup", 0, MIRONA_TYPE_INT64},
                          {"rows_restored", 0, MIRONA_TYPE_INT64},
                          {"result", 0, MIRONA_TYPE_TEXT}});
    bool is_equal = true;
    for (const Json& table : manifest.at("tables")) {
        const auto name = table.at("table").get<std::string>();
        const auto saved = table.at("rows").get<int64_t>();
        const auto found = std::stoll(QueryTexts(restored, "SELECT count(*) FROM " + name).at(0));
        report.printer.Add(
            {{name}, {saved}, {int64_t{found}}, {std::string(saved == found ? "same" : "DIFFERS")}});
        is_equal = is_equal && saved == found;
    }
    report.printer.End();
    restored->Close();
    return is_equal;
}

std::vector<std::string> VerifyExport(const DatabasePtr& database, const std::string& folder) {
    std::string text;
    {
        const InterruptWatch watch([&database] { database->Interrupt(); },
                                   [] { return std::string("verifying"); });
        text = ToUtf8(GetRestorer().VerifyBackup(database, MakeLocation(folder)));
    }
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

}  // namespace mduckdb_host
