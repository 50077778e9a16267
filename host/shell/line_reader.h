#pragma once

#include <functional>
#include <istream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace mduckdb_host {

enum class ReadOutcome { kLine, kInterrupted, kEnd };

/** The source of the shell's lines. */
class LineReader {
  public:
    LineReader() = default;
    virtual ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    /** Reads a line without its line end; pasted text may contain line ends. */
    virtual ReadOutcome ReadLine(const std::string& prompt, std::string& line) = 0;
    /** Adds an entry to the history, if there is one. */
    virtual void AddToHistory(const std::string& entry) = 0;
};

/** Returns the words that can complete `word`; `line` is the text before it. */
using Completer = std::function<std::vector<std::string>(const std::string& line, const std::string& word)>;

/** Reads lines from a stream, without prompt and history. The stream must outlive the reader. */
std::unique_ptr<LineReader> MakePipeReader(std::istream& in);

/** What helps with a line while it is typed. */
struct LineHelp {
    Completer complete;
    /** Returns the `TextKind` of each byte of the line. */
    std::function<std::string(std::string_view line)> classify;
    /** Returns what the line could continue with, for example the arguments of a command; may be empty. */
    std::function<std::string(const std::string& line)> describe;
};

/** Reads from the terminal with line editing and help, and keeps a history in the file unless its name
    is empty. At most one at a time. Requires `BlockInterrupts`: a Ctrl-C returns `kInterrupted`. */
std::unique_ptr<LineReader> MakeTerminalReader(const std::string& history_file, LineHelp help);

}  // namespace mduckdb_host
