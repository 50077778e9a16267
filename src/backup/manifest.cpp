#include "backup/manifest.h"

#include <array>
#include <charconv>
#include <cmath>
#include <ctime>

#include "base/text.h"
#include "nbx/json.h"

namespace mduckdb {

namespace {

std::string JsonText(const std::string& text) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string result = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            result += '\\';
            result += c;
        } else if (byte < 0x20) {
            result += "\\u00";
            result += kDigits[byte >> 4U];
            result += kDigits[byte & 15U];
        } else {
            result += c;
        }
    }
    return result + "\"";
}

std::string Member(const char* name, const std::string& value, const char* end = ",\n") {
    return "  " + JsonText(name) + ": " + value + end;
}

std::string Seconds(double seconds) {
    // Whole milliseconds, and no decimal comma in any locale.
    const long long milliseconds = std::llround(seconds * 1000);
    const std::string rest = std::to_string(milliseconds % 1000);
    return std::to_string(milliseconds / 1000) + "." + std::string(3 - rest.size(), '0') + rest;
}

std::string ObjectCounts(const SnapshotManifest& manifest) {
    std::string text;
    for (const auto& [kind, count] : manifest.objects) {
        text += (text.empty() ? "" : ", ") + JsonText(kind) + ": " + std::to_string(count);
    }
    return "{" + text + "}";
}

std::string TableList(const SnapshotManifest& manifest) {
    std::string text;
    for (const TableFacts& table : manifest.tables) {
        text += (text.empty() ? "\n    {" : ",\n    {") + std::string("\"table\": ") + JsonText(table.name) +
                ", \"rows\": " + std::to_string(table.rows) + ", \"hash\": " + JsonText(table.hash) + "}";
    }
    return "[" + text + (text.empty() ? "]" : "\n  ]");
}

}  // namespace

std::string WriteManifest(const SnapshotManifest& manifest) {
    return "{\n" + Member("kind", "\"snapshot\"") +
           Member("duckdb_version", JsonText(manifest.duckdb_version)) +
           Member("storage_version", JsonText(manifest.storage_version)) +
           Member("date", JsonText(manifest.date)) + Member("size", std::to_string(manifest.size)) +
           Member("sha256", JsonText(manifest.sha256)) + Member("compared", JsonText(manifest.compared)) +
           Member("copy_seconds", Seconds(manifest.copy_seconds)) +
           Member("check_seconds", Seconds(manifest.check_seconds)) +
           Member("objects", ObjectCounts(manifest)) + Member("tables", TableList(manifest), "\n") + "}\n";
}

std::optional<FileIdentity> ReadManifest(const std::string& text) {
    const nbx::Json json(text.c_str());
    if (!json.isValid() || ToUtf8(json.get_JsonValue("kind")) != "snapshot") {
        return std::nullopt;
    }
    FileIdentity identity;
    const std::string size = ToUtf8(json.get_JsonValue("size"));
    const auto parsed = std::from_chars(size.data(), size.data() + size.size(), identity.size);
    identity.sha256 = ToUtf8(json.get_JsonValue("sha256"));
    identity.duckdb_version = ToUtf8(json.get_JsonValue("duckdb_version"));
    const bool is_whole = parsed.ec == std::errc() && parsed.ptr == size.data() + size.size();
    return is_whole && !identity.sha256.empty() ? std::optional(identity) : std::nullopt;
}

std::vector<std::pair<std::string, uint64_t>> CountObjects(const std::vector<CatalogFact>& catalog) {
    std::vector<std::pair<std::string, uint64_t>> counts;
    for (const CatalogFact& fact : catalog) {
        if (!fact.aspect.empty()) {
            continue;
        }
        if (counts.empty() || counts.back().first != fact.kind) {
            counts.emplace_back(fact.kind, 0);
        }
        ++counts.back().second;
    }
    return counts;
}

std::string DateNow() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

}  // namespace mduckdb
