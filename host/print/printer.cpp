#include "print/printer.h"

#include <fmt/format.h>

#include <array>
#include <utility>

namespace mduckdb_host {

namespace {

constexpr std::array<std::pair<std::string_view, Format>, 6> kFormats = {{{"table", Format::kTable},
                                                                          {"csv", Format::kCsv},
                                                                          {"json", Format::kJson},
                                                                          {"jsonl", Format::kJsonl},
                                                                          {"markdown", Format::kMarkdown},
                                                                          {"line", Format::kLine}}};

}  // namespace

Printer::~Printer() = default;

std::optional<Format> FindFormat(std::string_view name) {
    for (const auto& [known_name, format] : kFormats) {
        if (known_name == name) {
            return format;
        }
    }
    return std::nullopt;
}

std::vector<std::string> ListFormats() {
    std::vector<std::string> names;
    names.reserve(kFormats.size());
    for (const auto& [name, format] : kFormats) {
        names.emplace_back(name);
    }
    return names;
}

std::string DescribeUnknownFormat(std::string_view name) {
    std::string names;
    for (const auto& [known_name, format] : kFormats) {
        names += names.empty() ? "" : ", ";
        names += known_name;
    }
    return fmt::format("Unknown format '{}'. Use one of: {}.", name, names);
}

std::unique_ptr<Printer> MakePrinter(Output& out, const PrintOptions& options) {
    switch (options.format) {
        case Format::kCsv:
            return MakeCsvPrinter(out, options);
        case Format::kJson:
            return MakeJsonPrinter(out);
        case Format::kJsonl:
            return MakeJsonlPrinter(out);
        case Format::kMarkdown:
            return MakeMarkdownPrinter(out);
        case Format::kLine:
            return MakeLinePrinter(out, options);
        case Format::kTable:
            break;
    }
    return MakeTablePrinter(out, options);
}

}  // namespace mduckdb_host
