#include "shell/shell.h"

#include <fmt/format.h>

#include <chrono>
#include <fstream>

#include "data/literals.h"
#include "databases/interruption.h"
#include "databases/results.h"
#include "nbx/exception.h"
#include "shell/dot_commands.h"
#include "table/procedures.h"
#include "text/messages.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

/** Limit for files that read each other with `.read`. */
constexpr int kDeepestFile = 20;
/** Columns of an interrupted statement that are shown. */
constexpr int kShownColumns = 66;

bool IsBlank(const std::string& line) {
    return line.find_first_not_of(" \t\r\n") == std::string::npos;
}

}  // namespace

Shell::Shell(Session& session, bool is_interactive) : session_(session), is_interactive_(is_interactive) {
    session.put_FileRunner([this](const std::string& name) { RunFile(name); });
}

Shell::~Shell() {
    session_.put_FileRunner(nullptr);
}

bool Shell::Run(LineReader& reader) {
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
                Accept(reader, line);
                break;
        }
    }
    const std::string rest = splitter_.TakeRest();
    if (!rest.empty() && !is_interactive_) {
        RunStatement(rest);
    }
    session_.get_Output().Flush();
    return !has_failed_;
}

void Shell::RunFile(const std::string& name) {
    std::ifstream file(name);
    if (!file) {
        throw xUsageError(fmt::format("Cannot read '{}'.", name));
    }
    if (file_depth_ == kDeepestFile) {
        throw xUsageError("Too many nested .read commands. Do the files read each other?");
    }
    ++file_depth_;
    const std::unique_ptr<LineReader> reader = MakePipeReader(file);
    std::string line;
    while (!session_.get_IsOver() && reader->ReadLine({}, line) == ReadOutcome::kLine) {
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
    for (std::string statement; !session_.get_IsOver() && splitter_.TakeStatement(statement);) {
        if (is_kept_) {
            reader.AddToHistory(statement);
        }
        RunStatement(statement);
    }
}

void Shell::AcceptDotCommand(const std::string& line) {
    RunReported({}, [&] { RunDotCommand(session_, line); });
}

void Shell::RunStatement(const std::string& statement) {
    const auto start = std::chrono::steady_clock::now();
    const std::optional<CallStatement> call = FindCall(statement);
    const bool is_procedure = call && session_.get_Registry().Find(call->procedure) != nullptr;
    RunReported(statement, [&] { is_procedure ? RunCall(statement) : RunSql(statement); });
    if (session_.get_HasTimer()) {
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        session_.Print(fmt::format("Time: {:.3f} s\n", elapsed.count()));
    }
}

void Shell::RunCall(const std::string& statement) {
    const CallStatement call = FindCall(statement).value();
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

void Shell::RunSql(const std::string& statement) {
    const DatabasePtr database = session_.get_Current().database;
    InterruptWatch watch(database);
    auto result = database->SqlQuery(FromUtf8(statement), session_.get_CursorLocation(), nullptr);
    watch.EndProgress();
    PrintResults(std::move(result), session_.get_Printer(), [&watch] { return watch.get_IsInterrupted(); });
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
        const std::string first_line = ToPrintable(sql.substr(0, sql.find('\n')));
        const std::string_view shown = CutToWidth(first_line, kShownColumns);
        Report(fmt::format("Interrupted: {}{}", shown, shown.size() < first_line.size() ? "…" : ""));
        // After an interrupt, the rest of a pasted script should not run either.
        splitter_.Clear();
        is_interrupted_ = true;
        if (!is_interactive_) {
            session_.Quit();
        }
    } catch (const std::exception& error) {
        Report(DescribeException(error, sql));
    }
}

void Shell::Report(const std::string& text) {
    has_failed_ = true;
    // Flush, so that earlier output precedes the error. A printer in the middle of a result cannot be reused.
    session_.get_Output().Flush();
    session_.DropPrinter();
    PrintError(text);
}

std::string Shell::MakePrompt() const {
    const std::string name = session_.HasCurrent() ? session_.get_Current().name : "(none)";
    if (!splitter_.get_IsInside()) {
        return name + "> ";
    }
    return std::string(name.size() < 3 ? 0 : name.size() - 3, ' ') + "...> ";
}

}  // namespace mduckdb_host
