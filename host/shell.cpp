#include "shell.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>

#include "call_parser.h"
#include "interruption.h"
#include "nbx/exception.h"
#include "procedures.h"
#include "results.h"
#include "sql_errors.h"
#include "text.h"

namespace mduckdb_host {

namespace {

/** The module's code of an interruption, for one that came while rows were printed. */
constexpr uint32_t kInterruptCode = 0x57501;
/** Files that read files that read files. */
constexpr int kDeepestFile = 20;

std::string NameOf(const std::string& path) {
    return path == ":memory:" ? "memory" : std::filesystem::path(path).stem().string();
}

bool IsBlank(const std::string& line) {
    return line.find_first_not_of(" \t\r\n") == std::string::npos;
}

}  // namespace

Shell::Shell(Program& program, bool is_interactive) : program_(program), is_interactive_(is_interactive) {}

Shell::~Shell() {
    for (const OpenedDatabase& opened : databases_) {
        try {
            opened.database->Close();
        } catch (const std::exception& error) {
            PrintError(error.what());
        }
    }
}

bool Shell::Run(LineReader& reader) {
    std::string line;
    while (!is_over_) {
        program_.out.Flush();
        switch (reader.ReadLine(MakePrompt(), line)) {
            case ReadOutcome::kInterrupted:
                splitter_.Clear();
                break;
            case ReadOutcome::kEnd:
                is_over_ = true;
                break;
            case ReadOutcome::kLine:
                Accept(reader, line);
                break;
        }
    }
    const std::string rest = splitter_.TakeRest();
    if (!rest.empty() && !is_interactive_) {
        RunStatement(rest);
    }
    program_.out.Flush();
    return !has_failed_;
}

void Shell::RunFile(const std::string& name) {
    std::ifstream file(name);
    if (!file) {
        throw xUsageError(fmt::format("There is no file '{}'.", name));
    }
    if (file_depth_ == kDeepestFile) {
        throw xUsageError("Files read each other without an end.");
    }
    ++file_depth_;
    const std::unique_ptr<LineReader> reader = MakePipeReader(file);
    std::string line;
    while (!is_over_ && reader->ReadLine({}, line) == ReadOutcome::kLine) {
        Accept(*reader, line);
    }
    --file_depth_;
    const std::string rest = splitter_.TakeRest();
    if (!rest.empty()) {
        RunStatement(rest);
    }
}

void Shell::Accept(LineReader& reader, const std::string& line) {
    if (!splitter_.get_IsInside() && line.starts_with('.')) {
        reader.AddToHistory(line);
        AcceptDotCommand(line);
        return;
    }
    if (!splitter_.get_IsInside() && IsBlank(line)) {
        return;
    }
    if (!splitter_.get_IsInside()) {
        is_kept_ = !line.starts_with(' ');
    }
    splitter_.Add(line + "\n");
    for (std::string statement; !is_over_ && splitter_.TakeStatement(statement);) {
        if (is_kept_) {
            reader.AddToHistory(statement);
        }
        RunStatement(statement);
    }
}

void Shell::AcceptDotCommand(const std::string& line) {
    RunReported({}, [&] { RunDotCommand(*this, line); });
}

void Shell::RunStatement(const std::string& statement) {
    const auto start = std::chrono::steady_clock::now();
    const std::optional<CallStatement> call = FindCall(statement);
    const bool is_procedure = call && program_.registry.Find(call->procedure) != nullptr;
    RunReported(statement, [&] { is_procedure ? RunCall(statement) : RunSql(statement); });
    if (has_timer_) {
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        Print(fmt::format("Time: {:.3f} s\n", elapsed.count()));
    }
}

void Shell::RunCall(const std::string& statement) {
    const CallStatement call = FindCall(statement).value();
    std::vector<Cell> arguments;
    try {
        arguments = ParseLiterals(call.arguments);
    } catch (const xLiteralError& error) {
        const std::size_t position = call.arguments_start + error.get_Position();
        throw xUsageError(fmt::format("CALL {}: {}\n\n{}", call.procedure, error.what(),
                                      MakeCaret(statement, static_cast<int64_t>(position))));
    }
    InterruptWatch watch([] {}, nullptr, "Ctrl-C stops at the first row");
    PrintProcedure(program_.registry, call.procedure, std::move(arguments), get_Printer(), [&watch] {
        watch.EndProgress();
        return watch.get_IsInterrupted();
    });
    if (watch.get_IsInterrupted()) {
        throw nbx::xInterruptError(kInterruptCode);
    }
}

void Shell::RunSql(const std::string& statement) {
    const DatabasePtr database = get_Current().database;
    InterruptWatch watch(database);
    auto result = database->SqlQuery(FromUtf8(statement), cursor_location_, nullptr);
    watch.EndProgress();
    PrintResults(std::move(result), get_Printer(), [&watch] { return watch.get_IsInterrupted(); });
    if (watch.get_IsInterrupted()) {
        throw nbx::xInterruptError(kInterruptCode);
    }
}

void Shell::RunReported(const std::string& sql, const std::function<void()>& work) {
    try {
        work();
    } catch (const xOutputClosed&) {
        throw;
    } catch (const nbx::xInterruptError&) {
        const std::string first_line = sql.substr(0, sql.find('\n'));
        Report(fmt::format("Interrupted: {}", first_line));
        // Who interrupts a pasted script wants none of its statements.
        splitter_.Clear();
    } catch (const std::exception& error) {
        Report(DescribeException(error, sql));
    }
}

void Shell::Report(const std::string& text) {
    has_failed_ = true;
    // What was printed before stands before it, also when both go to one place. A printer that an error left
    // in the middle of a result is no use any more.
    program_.out.Flush();
    printer_.reset();
    PrintError(text);
}

std::string Shell::MakePrompt() const {
    const std::string name = databases_.empty() ? "(none)" : databases_[current_].name;
    if (!splitter_.get_IsInside()) {
        return name + "> ";
    }
    return std::string(name.size() < 3 ? 0 : name.size() - 3, ' ') + "...> ";
}

Printer& Shell::get_Printer() {
    if (printer_ == nullptr) {
        printer_ = program_.MakePrinter();
    }
    return *printer_;
}

void Shell::put_Format(Format format) {
    program_.print.format = format;
    printer_.reset();
}

void Shell::put_IsCut(bool is_cut) {
    program_.print.is_cut_to_screen = is_cut;
    printer_.reset();
}

void Shell::Open(const std::string& path, std::string name) {
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
        PrintError(fmt::format("{} is open for reading only: it may not be written or is in use.", path));
    }
    databases_.push_back({std::move(name), path, std::move(database)});
    current_ = databases_.size() - 1;
}

std::vector<OpenedDatabase>::const_iterator Shell::Find(const std::string& name) const {
    return std::find_if(databases_.begin(), databases_.end(),
                        [&name](const OpenedDatabase& opened) { return opened.name == name; });
}

void Shell::Use(const std::string& name) {
    const auto found = Find(name);
    if (found == databases_.end()) {
        throw xUsageError(fmt::format("No database is open as '{}'; .databases lists them.", name));
    }
    current_ = static_cast<std::size_t>(found - databases_.begin());
}

void Shell::Close(const std::string& name) {
    const auto found = Find(name);
    if (found == databases_.end()) {
        throw xUsageError(fmt::format("No database is open as '{}'; .databases lists them.", name));
    }
    const DatabasePtr database = found->database;
    const auto index = static_cast<std::size_t>(found - databases_.begin());
    databases_.erase(found);
    current_ =
        current_ > index || current_ == databases_.size() ? std::max<std::size_t>(current_, 1) - 1 : current_;
    database->Close();
}

const OpenedDatabase& Shell::get_Current() const {
    if (databases_.empty()) {
        throw std::runtime_error("No database is open; .open FILE opens one.");
    }
    return databases_[current_];
}

}  // namespace mduckdb_host
