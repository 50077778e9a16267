#include "shell/shell.h"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

#include "data/literals.h"
#include "databases/interruption.h"
#include "databases/results.h"
#include "nbx/exception.h"
#include "shell/dot_commands.h"
#include "shell/editor.h"
#include "table/procedures.h"
#include "text/messages.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

/** Limit for files that read each other with `.read`. */
constexpr int kDeepestFile = 20;
/** Columns that are shown of a statement that was interrupted or failed. */
constexpr int kShownColumns = 66;

/** The start of a statement, as far as it fits on a line. */
std::string DescribeStart(std::string_view sql) {
    const std::string first_line = ToPrintable(sql.substr(0, sql.find('\n')));
    const std::string_view shown = CutToWidth(first_line, kShownColumns);
    return fmt::format("{}{}", shown, shown.size() < first_line.size() ? "…" : "");
}

/** The dot command that a line means: itself, or one of the words that people enter without the dot; empty if
    the line is SQL. */
std::string FindDotCommand(const std::string& line) {
    if (line.starts_with('.')) {
        return line;
    }
    const std::string word = line.substr(0, line.find_last_not_of("; \t\r") + 1);
    if (word == "exit" || word == "quit" || word == "help") {
        return "." + word;
    }
    return word == "\\x" ? ".lines" : std::string();
}

bool IsBlank(const std::string& line) {
    return line.find_first_not_of(" \t\r\n") == std::string::npos;
}

[[noreturn]] void ThrowReadError(const std::string& file, int error) {
    throw xUsageError(fmt::format("Cannot read '{}': {}.", file, std::strerror(error)));
}

/** Whether Ctrl-C is pressed within the time. */
bool WaitForInterrupt(double seconds) {
    pollfd key = {get_InterruptDescriptor(), POLLIN, 0};
    return ::poll(&key, 1, static_cast<int>(seconds * 1000)) > 0 && TakeInterrupt();
}

}  // namespace

Shell::Shell(Session& session, bool is_interactive) : session_(session), is_interactive_(is_interactive) {
    session.put_Runner(this);
}

void Shell::RunStartUpFile(const std::string& name) {
    std::error_code error;
    if (std::filesystem::exists(name, error)) {
        RunReported({}, [&] { RunFile(name); });
    }
}

Shell::~Shell() {
    session_.put_Runner(nullptr);
}

bool Shell::Run(LineReader& reader) {
    reader_ = &reader;
    std::string line;
    while (!session_.get_IsOver()) {
        session_.get_Output().Flush();
        switch (reader.ReadLine(MakePrompt(), line)) {
            case ReadOutcome::kInterrupted:
                splitter_.Clear();
                break;
            case ReadOutcome::kEnd:
                session_.Quit();
                break;
            case ReadOutcome::kLine:
                ++line_number_;
                Accept(reader, line);
                break;
        }
    }
    const std::string rest = splitter_.TakeRest();
    if (!rest.empty() && !is_interactive_) {
        RunStatement(rest, splitter_.get_StatementLine());
    }
    session_.get_Output().Flush();
    reader_ = nullptr;
    return !has_failed_;
}

void Shell::RunFile(const std::string& name) {
    std::ifstream file(name);
    if (!file) {
        ThrowReadError(name, errno);
    }
    if (file_depth_ == kDeepestFile) {
        throw xUsageError("Too many nested .read commands. Do the files read each other?");
    }
    ++file_depth_;
    session_.EndPage();  // each statement has its own
    const int64_t outer_line_number = std::exchange(line_number_, 0);
    const std::string outer_file_name = std::exchange(file_name_, name);
    const std::unique_ptr<LineReader> reader = MakePipeReader(file);
    std::string line;
    while (!session_.get_IsOver() && !is_leaving_files_ && reader->ReadLine({}, line) == ReadOutcome::kLine) {
        ++line_number_;
        Accept(*reader, line);
    }
    const int error = file.bad() ? errno : 0;
    const std::string rest = splitter_.TakeRest();
    if (!rest.empty()) {
        RunStatement(rest, splitter_.get_StatementLine());
    }
    line_number_ = outer_line_number;
    file_name_ = outer_file_name;
    --file_depth_;
    is_leaving_files_ = is_leaving_files_ && file_depth_ > 0;
    if (error != 0) {
        ThrowReadError(name, error);
    }
}

void Shell::Repeat(double seconds, uint64_t count) {
    const std::string statement = last_statement_;
    if (statement.empty()) {
        throw xUsageError("There is no statement to repeat yet.");
    }
    const bool has_failed_before = std::exchange(has_failed_, false);
    session_.EndPage();
    is_paging_ = false;  // nobody waits for a pager every few seconds
    for (uint64_t run = 0; !has_failed_ && (count == 0 || run < count); ++run) {
        if (run > 0 && WaitForInterrupt(seconds)) {
            break;
        }
        RunStatement(statement, line_number_);
        session_.get_Output().Flush();
    }
    is_paging_ = true;
    has_failed_ = has_failed_ || has_failed_before;
}

void Shell::Edit() {
    if (!is_interactive_ || file_depth_ > 0 || reader_ == nullptr) {
        throw xUsageError(".edit needs a terminal.");
    }
    session_.EndPage();
    const std::string text = EditText(last_statement_.empty() ? "" : last_statement_ + "\n");
    if (text == last_statement_ + "\n" || IsBlank(text)) {
        session_.Print("Not run: the statement is unchanged.\n");
        return;
    }
    session_.Print(text.ends_with('\n') ? text : text + "\n");
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line) && !session_.get_IsOver();) {
        Accept(*reader_, line);
    }
}

void Shell::Accept(LineReader& reader, const std::string& line) {
    if (!splitter_.get_IsInside() && !FindDotCommand(line).empty()) {
        reader.AddToHistory(line);
        AcceptDotCommand(FindDotCommand(line));
        return;
    }
    if (!splitter_.get_IsInside() && IsBlank(line)) {
        return;
    }
    if (!splitter_.get_IsInside()) {
        is_kept_ = !line.starts_with(' ');
        splitter_.Clear(get_IsScript() ? line_number_ : 1);
    }
    splitter_.Add(line + "\n");
    for (std::string statement;
         !session_.get_IsOver() && !is_leaving_files_ && splitter_.TakeStatement(statement);) {
        if (is_kept_) {
            reader.AddToHistory(statement);
        }
        RunStatement(statement, get_IsScript() ? splitter_.get_StatementLine() : 1);
    }
}

void Shell::AcceptDotCommand(const std::string& line) {
    session_.BeginPage();
    RunReported({line, line_number_}, [&] { RunDotCommand(session_, line); });
    session_.EndPage();
}

void Shell::RunStatement(const std::string& statement, int64_t line) {
    last_statement_ = statement;
    const SqlText sql(statement, line);
    const auto start = std::chrono::steady_clock::now();
    const std::optional<CallStatement> call = FindCall(statement);
    const bool is_procedure = call && session_.get_Registry().Find(call->procedure) != nullptr;
    if (is_paging_) {
        session_.BeginPage();
    }
    RunReported(sql, [&] { is_procedure ? RunCall(sql) : RunSql(sql); });
    RunReported(sql, [this] { session_.EndStatement(); });
    session_.EndPage();
    if (session_.get_HasTimer()) {
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        session_.Print(fmt::format("Time: {:.3f} s\n", elapsed.count()));
    }
}

void Shell::RunCall(const SqlText& statement) {
    const CallStatement call = FindCall(statement.text).value();
    std::vector<Datum> arguments;
    try {
        arguments = ParseLiterals(call.arguments);
    } catch (const xLiteralError& error) {
        const std::size_t position = call.arguments_start + error.get_Position();
        throw xUsageError(fmt::format("CALL {}: {}\n\n{}", call.procedure, error.what(),
                                      MakeCaret(statement, static_cast<int64_t>(position))));
    }
    InterruptWatch watch([] {}, nullptr, "Ctrl-C stops at the first row");
    PrintProcedure(session_.get_Registry(), call.procedure, std::move(arguments), session_.get_Printer(),
                   [&watch] {
                       watch.EndProgress();
                       return watch.get_IsInterrupted();
                   });
    if (watch.get_IsInterrupted()) {
        throw nbx::xInterruptError(kInterruptCode);
    }
}

void Shell::RunSql(const SqlText& statement) {
    const DatabasePtr database = session_.get_Current().database;
    InterruptWatch watch(database);
    auto result = database->SqlQuery(ReadSql(statement), session_.get_CursorLocation(), nullptr);
    watch.EndProgress();
    PrintResults(std::move(result), session_.get_Printer(), [&watch] { return watch.get_IsInterrupted(); });
    if (watch.get_IsInterrupted()) {
        throw nbx::xInterruptError(kInterruptCode);
    }
}

void Shell::RunReported(const SqlText& sql, const std::function<void()>& work) {
    try {
        work();
    } catch (const xOutputClosed&) {
        if (!session_.get_IsInPager()) {
            throw;
        }
        // The user has read enough.
        session_.EndPage();
        session_.DropPrinter();
    } catch (const nbx::xInterruptError&) {
        Report("Interrupted: " + DescribeStart(sql.text));
        // After an interrupt, the rest of a pasted script or of a file should not run either.
        splitter_.Clear();
        is_interrupted_ = true;
        is_leaving_files_ = file_depth_ > 0;
        if (!is_interactive_) {
            session_.Quit();
        }
    } catch (const std::exception& error) {
        Report(DescribeException(error, sql));
        Bail(sql);
    }
}

void Shell::Bail(const SqlText& sql) {
    // What a person enters is no script; neither is the rest of it behind a failed `.read`.
    if (!session_.get_Bails() || !get_IsScript() || is_leaving_files_) {
        return;
    }
    is_leaving_files_ = true;
    splitter_.Clear();
    PrintError(fmt::format("Stopped at {}line {}: {}", file_name_.empty() ? "" : file_name_ + ", ", sql.line,
                           DescribeStart(sql.text)));
    if (!is_interactive_) {
        session_.Quit();
    }
}

void Shell::Report(const std::string& text) {
    has_failed_ = true;
    // Flush, so that earlier output precedes the error. A printer in the middle of a result cannot be reused.
    session_.EndPage();
    session_.get_Output().Flush();
    session_.DropPrinter();
    PrintError(text);
}

std::string Shell::Classify(std::string_view line) const {
    if (splitter_.get_IsInside() || FindDotCommand(std::string(line)).empty()) {
        return splitter_.Classify(line);
    }
    std::string kinds(line.size(), static_cast<char>(TextKind::kCode));
    const std::size_t name = std::min(line.find(' '), line.size());
    return kinds.replace(0, name, name, static_cast<char>(TextKind::kKeyword));
}

std::string Shell::MakePrompt() const {
    const std::string name = session_.HasCurrent() ? session_.get_Current().name : "(none)";
    if (!splitter_.get_IsInside()) {
        return name + "> ";
    }
    return std::string(name.size() < 3 ? 0 : name.size() - 3, ' ') + "...> ";
}

}  // namespace mduckdb_host
