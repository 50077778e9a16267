#pragma once

#include <functional>
#include <istream>
#include <memory>
#include <string>
#include <vector>

namespace mduckdb_host {

enum class ReadOutcome { kLine, kInterrupted, kEnd };

/** Where the shell's lines come from. */
class LineReader {
  public:
    LineReader() = default;
    virtual ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    /** Reads a line without its end; a pasted one may hold line ends. */
    virtual ReadOutcome ReadLine(const std::string& prompt, std::string& line) = 0;
    /** Remembers what the user entered, if it is kept at all. */
    virtual void AddToHistory(const std::string& entry) = 0;
};

/** Gives the words that may stand where `word` is begun; `line` is the text before it. */
using Completer = std::function<std::vector<std::string>(const std::string& line, const std::string& word)>;

/** Reads lines as they come, without prompt and history. The stream must outlive the reader. */
std::unique_ptr<LineReader> MakePipeReader(std::istream& in);

/** Reads from the terminal with line editing and completion, and keeps a history in the file unless its
    name is empty. At most one at a time. Needs `BlockInterrupts`: a Ctrl-C gives `kInterrupted`. */
std::unique_ptr<LineReader> MakeTerminalReader(const std::string& history_file, Completer completer);

/** `mduckdb/history` in `$XDG_STATE_HOME` or `~/.local/state`, the folder made; empty when that is not
    possible. */
std::string PrepareHistoryFile();

}  // namespace mduckdb_host
