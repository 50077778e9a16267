#include "shell/session.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "databases/interruption.h"
#include "text/messages.h"

namespace mduckdb_host {

namespace {

std::string NameOf(const std::string& path) {
    return path == ":memory:" ? "memory" : std::filesystem::path(path).stem().string();
}

}  // namespace

StatementRunner::~StatementRunner() = default;

Session::Session(Output& out, const PrintOptions& print, const ProcedureRegistry& registry)
    : redirection_(out), print_(print), registry_(registry) {}

Session::~Session() {
    for (const OpenedDatabase& opened : databases_) {
        try {
            opened.database->Close();
        } catch (const std::exception& error) {
            PrintError(error.what());
        }
    }
}

Printer& Session::get_Printer() {
    if (printer_ == nullptr) {
        printer_ = MakePrinter(get_Output(), print_);
    }
    return *printer_;
}

void Session::put_Format(Format format) {
    if (print_.format != Format::kLine) {
        format_before_lines_ = print_.format;
    }
    print_.format = format;
    DropPrinter();
}

void Session::ToggleLines() {
    put_Format(print_.format == Format::kLine ? format_before_lines_ : Format::kLine);
}

void Session::WriteTo(const std::string& path, bool is_once) {
    DropPrinter();
    redirection_.WriteTo(path, is_once);
}

void Session::ResetOutput() {
    DropPrinter();
    redirection_.Reset();
}

void Session::put_IsPaged(bool is_paged) {
    if (pager_ == nullptr) {
        throw xUsageError(".pager needs a terminal.");
    }
    pager_->put_IsPaged(is_paged);
}

void Session::BeginPage() {
    if (pager_ != nullptr) {
        pager_->BeginPage();
    }
}

void Session::EndPage() {
    if (pager_ != nullptr) {
        pager_->EndPage();
    }
}

void Session::EndStatement() {
    if (redirection_.get_IsOnce()) {
        ResetOutput();
    }
}

void Session::Open(const std::string& path, std::string name) {
    if (name.empty()) {
        name = NameOf(path);
    }
    const std::string wanted = name;
    for (int number = 2; Find(name) != databases_.end(); ++number) {
        name = fmt::format("{}_{}", wanted, number);
    }
    const InterruptWatch watch([] {}, nullptr, "");
    DatabasePtr database = OpenDatabase(path, IfMissing::kCreate);
    if (database->get_IsReadOnly()) {
        PrintError(fmt::format("{} is open read-only: it is write-protected or in use.", path));
    }
    databases_.push_back({std::move(name), path, std::move(database)});
    current_ = databases_.size() - 1;
}

std::vector<OpenedDatabase>::const_iterator Session::Find(const std::string& name) const {
    return std::find_if(databases_.begin(), databases_.end(),
                        [&name](const OpenedDatabase& opened) { return opened.name == name; });
}

void Session::Use(const std::string& name) {
    const auto found = Find(name);
    if (found == databases_.end()) {
        throw xUsageError(fmt::format("No open database is named '{}'. .databases lists them.", name));
    }
    current_ = static_cast<std::size_t>(found - databases_.begin());
}

void Session::Close(const std::string& name) {
    const auto found = Find(name);
    if (found == databases_.end()) {
        throw xUsageError(fmt::format("No open database is named '{}'. .databases lists them.", name));
    }
    const DatabasePtr database = found->database;
    const auto index = static_cast<std::size_t>(found - databases_.begin());
    databases_.erase(found);
    current_ =
        current_ > index || current_ == databases_.size() ? std::max<std::size_t>(current_, 1) - 1 : current_;
    database->Close();
}

const OpenedDatabase& Session::get_Current() const {
    if (databases_.empty()) {
        throw std::runtime_error("No database is open. Use .open FILE to open one.");
    }
    return databases_[current_];
}

}  // namespace mduckdb_host
