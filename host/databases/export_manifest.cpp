#include "databases/export_manifest.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>
#include <fstream>
#include <stdexcept>

#include "databases/databases.h"

namespace mduckdb_host {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr const char* kExportManifest = "manifest.json";

}  // namespace

Json ReadManifest(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    Json json = Json::parse(stream, nullptr, false);
    if (!json.is_object()) {
        throw std::runtime_error(fmt::format("{} is not a manifest.", file.string()));
    }
    return json;
}

void WriteExportManifest(const std::string& folder, const std::vector<ExportedTable>& tables,
                         const std::vector<int64_t>& rows) {
    Json manifest{{"kind", "export"},
                  {"duckdb_version", GetExtension()->get_LibraryVersion()},
                  {"date", fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(std::time(nullptr)))},
                  {"tables", Json::array()}};
    for (std::size_t i = 0; i < tables.size(); ++i) {
        manifest["tables"].push_back({{"table", tables[i].name},
                                      {"file", fs::path(tables[i].file).filename().string()},
                                      {"size", fs::file_size(tables[i].file)},
                                      {"rows", rows[i]}});
    }
    const fs::path part = fs::path(folder) / (std::string(kExportManifest) + ".part");
    std::ofstream file(part, std::ios::binary);
    file << manifest.dump(2) << "\n";
    file.close();
    if (!file) {
        throw std::runtime_error(fmt::format("{} cannot be written.", part.string()));
    }
    fs::rename(part, fs::path(folder) / kExportManifest);
}

void CheckExportManifest(const std::string& folder) {
    const fs::path file = fs::path(folder) / kExportManifest;
    if (!fs::exists(file)) {
        return;
    }
    const Json manifest = ReadManifest(file);
    for (const Json& table : manifest.at("tables")) {
        const fs::path part = fs::path(folder) / table.at("file").get<std::string>();
        std::error_code error;
        const uint64_t size = fs::file_size(part, error);
        if (error || size != table.at("size").get<uint64_t>()) {
            throw std::runtime_error(fmt::format("The backup is incomplete or damaged: {} is not as {} says.",
                                                 part.string(), file.string()));
        }
    }
}

}  // namespace mduckdb_host
