#include "shell/history_file.h"

#include <ctime>
#include <filesystem>
#include <fstream>

namespace mduckdb_host {

namespace {

bool IsTime(const std::string& line) {
    return line.size() > 1 && line[0] == '#' && line.find_first_not_of("0123456789", 1) == std::string::npos;
}

}  // namespace

std::vector<std::string> ReadHistory(const std::string& file) {
    std::vector<std::string> entries;
    std::ifstream in(file);
    bool is_new = true;
    for (std::string line; std::getline(in, line);) {
        if (IsTime(line)) {
            is_new = true;
        } else if (is_new) {
            entries.push_back(std::move(line));
            is_new = false;
        } else {
            entries.back() += "\n" + line;
        }
    }
    return entries;
}

void AppendToHistory(const std::string& file, const std::string& entry) {
    std::ofstream(file, std::ios::app) << '#' << std::time(nullptr) << '\n' << entry << '\n';
}

void ShortenHistory(const std::string& file, std::size_t most) {
    const std::vector<std::string> entries = ReadHistory(file);
    if (entries.size() <= most) {
        return;
    }
    const std::string shorter = file + ".new";
    std::ofstream(shorter, std::ios::trunc).close();
    std::error_code error;
    std::filesystem::permissions(
        shorter, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write, error);
    for (std::size_t i = entries.size() - most; i < entries.size(); ++i) {
        AppendToHistory(shorter, entries[i]);
    }
    std::filesystem::rename(shorter, file, error);
}

}  // namespace mduckdb_host
