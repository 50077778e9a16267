#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

// The readline headers need the types of stdio.
#include <cstdio>

#include <readline/history.h>
#include <readline/readline.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "databases/interruption.h"
#include "shell/line_reader.h"

namespace mduckdb_host {

namespace {

constexpr int kHistoryEntries = 10000;
constexpr const char* kWordBreaks = " \t\n\"'`@><=;|&{}(),[]*+/";

class TerminalReader;
/** The only reader, for readline's callbacks, which have no argument for it. */
TerminalReader* gReader = nullptr;

/** A text that readline frees. */
char* MakeReadlineText(const std::string& text) {
    return ::strdup(text.c_str());
}

class TerminalReader final : public LineReader {
  public:
    TerminalReader(std::string history_file, Completer completer)
        : history_file_(std::move(history_file)), completer_(std::move(completer)) {
        gReader = this;
        rl_readline_name = "mduckdb-host";
        rl_catch_signals = 0;  // Ctrl-C arrives through a descriptor, see BlockInterrupts
        rl_basic_word_break_characters = kWordBreaks;
        rl_completer_quote_characters = "'\"";
        rl_attempted_completion_function = &Complete;
        StartHistory();
    }
    ~TerminalReader() override {
        if (!history_file_.empty()) {
            history_truncate_file(history_file_.c_str(), kHistoryEntries);
        }
        gReader = nullptr;
    }

    ReadOutcome ReadLine(const std::string& prompt, std::string& line) override {
        is_done_ = false;
        rl_callback_handler_install(prompt.c_str(), &OnLine);
        while (!is_done_) {
            pollfd descriptors[] = {{STDIN_FILENO, POLLIN, 0}, {get_InterruptDescriptor(), POLLIN, 0}};
            if (::poll(descriptors, 2, -1) < 0) {
                if (errno == EINTR) {
                    rl_resize_terminal();
                    continue;
                }
                break;
            }
            if ((descriptors[1].revents & POLLIN) != 0 && TakeInterrupt()) {
                return GiveUpLine();
            }
            if (descriptors[0].revents != 0) {
                rl_callback_read_char();
            }
        }
        rl_callback_handler_remove();
        if (!has_line_) {
            return ReadOutcome::kEnd;
        }
        line = std::move(line_);
        return ReadOutcome::kLine;
    }

    void AddToHistory(const std::string& entry) override {
        if (entry.empty() || entry == last_entry_) {
            return;
        }
        last_entry_ = entry;
        add_history(entry.c_str());
        if (!history_file_.empty()) {
            append_history(1, history_file_.c_str());
        }
    }

  private:
    void StartHistory() {
        using_history();
        stifle_history(kHistoryEntries);
        // A time stamp before each entry allows entries of several lines.
        history_comment_char = '#';
        history_write_timestamps = 1;
        if (!history_file_.empty()) {
            read_history(history_file_.c_str());
        }
    }

    static ReadOutcome GiveUpLine() {
        // Print the mark after the line, wherever the cursor was.
        rl_point = rl_end;
        rl_redisplay();
        rl_callback_sigcleanup();
        rl_free_line_state();
        std::fputs("^C\n", rl_outstream);
        rl_callback_handler_remove();
        return ReadOutcome::kInterrupted;
    }

    static void OnLine(char* text) {
        gReader->is_done_ = true;
        gReader->has_line_ = text != nullptr;
        gReader->line_ = text != nullptr ? text : "";
        std::free(text);
        // Remove it here, since readline would print the prompt again.
        rl_callback_handler_remove();
    }

    static char** Complete(const char* word, int start, int /*end*/) {
        gReader->candidates_ =
            gReader->completer_(std::string(rl_line_buffer, static_cast<std::size_t>(start)), word);
        if (gReader->candidates_.empty()) {
            return nullptr;  // readline tries file names
        }
        rl_attempted_completion_over = 1;
        gReader->next_candidate_ = 0;
        return rl_completion_matches(word, &NextCandidate);
    }

    static char* NextCandidate(const char* /*word*/, int /*state*/) {
        auto& reader = *gReader;
        return reader.next_candidate_ < reader.candidates_.size()
                   ? MakeReadlineText(reader.candidates_[reader.next_candidate_++])
                   : nullptr;
    }

    std::string history_file_;
    Completer completer_;
    std::string last_entry_;
    std::string line_;
    bool is_done_ = false;
    bool has_line_ = false;
    std::vector<std::string> candidates_;
    std::size_t next_candidate_ = 0;
};

}  // namespace

std::unique_ptr<LineReader> MakeTerminalReader(const std::string& history_file, Completer completer) {
    return std::make_unique<TerminalReader>(history_file, std::move(completer));
}

namespace {

namespace fs = std::filesystem;

/** The user's folder for the program: in the one that the variable names, or in a folder of the home
    directory. Empty when neither is known. */
fs::path FindUserFolder(const char* variable, const char* below_home) {
    const char* const named = std::getenv(variable);
    const char* const home = std::getenv("HOME");
    if (named != nullptr && *named == '/') {
        return fs::path(named) / "mduckdb";
    }
    return home != nullptr && *home != '\0' ? fs::path(home) / below_home / "mduckdb" : fs::path();
}

}  // namespace

std::string FindStartUpFile() {
    const fs::path folder = FindUserFolder("XDG_CONFIG_HOME", ".config");
    return folder.empty() ? std::string() : (folder / "shellrc").string();
}

std::string PrepareHistoryFile() {
    const fs::path folder = FindUserFolder("XDG_STATE_HOME", ".local/state");
    if (folder.empty()) {
        return {};
    }
    std::error_code error;
    fs::create_directories(folder, error);
    std::string file = (folder / "history").string();
    // Only the owner may read it, since statements may contain secrets.
    const int descriptor = ::open(file.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        return {};
    }
    ::close(descriptor);
    return file;
}

}  // namespace mduckdb_host
