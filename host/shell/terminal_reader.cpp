#include <fmt/format.h>
#include <histedit.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <memory>
#include <stdexcept>
#include <utility>

#include "databases/interruption.h"
#include "print/output.h"
#include "shell/file_names.h"
#include "shell/history_file.h"
#include "shell/line_painter.h"
#include "shell/line_reader.h"
#include "text/text.h"

namespace mduckdb_host {

namespace {

constexpr int kHistoryEntries = 10000;
constexpr std::string_view kWordBreaks = " \t\n\"'`@><=;|&{}(),[]*+/";
/** Files are completed up to the quote or blank, with their folders. */
constexpr std::string_view kFileBreaks = " \t\n\"'`";
constexpr std::size_t kShownCandidates = 100;
constexpr const char* kPasteStart = "\x1b[200~";
constexpr std::string_view kPasteEnd = "\x1b[201~";

struct EditorDeleter {
    void operator()(EditLine* editor) const noexcept { el_end(editor); }
};
struct HistoryDeleter {
    void operator()(History* history) const noexcept { history_end(history); }
};

/** The longest text with which all words begin. */
std::string FindCommonStart(const std::vector<std::string>& words) {
    std::string common = words.front();
    for (const std::string& word : words) {
        const auto end = std::mismatch(common.begin(), common.end(), word.begin(), word.end()).first;
        common.erase(end, common.end());
    }
    // Not half a character.
    while (!common.empty() && ToUtf8(FromUtf8(common)) != common) {
        common.pop_back();
    }
    return common;
}

int CountCharacters(std::string_view text) {
    return static_cast<int>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

class TerminalReader final : public LineReader {
  public:
    TerminalReader(std::string history_file, LineHelp help)
        : history_file_(std::move(history_file)),
          help_(std::move(help)),
          has_colours_(UnderstandsEscapes() && std::getenv("NO_COLOR") == nullptr),
          history_(history_init()),
          editor_(el_init("mduckdb-host", stdin, stdout, stderr)) {
        if (editor_ == nullptr || history_ == nullptr) {
            throw std::runtime_error("The terminal cannot be used to edit lines.");
        }
        SetUpEditor();
        HistEvent event;
        history(history_.get(), &event, H_SETSIZE, kHistoryEntries);
        entries_ = ReadHistory(history_file_);
        for (const std::string& entry : entries_) {
            history(history_.get(), &event, H_ENTER, entry.c_str());
        }
    }
    ~TerminalReader() override {
        if (!history_file_.empty()) {
            ShortenHistory(history_file_, kHistoryEntries);
        }
    }

    ReadOutcome ReadLine(const std::string& prompt, std::string& line) override {
        prompt_ = prompt;
        is_interrupted_ = false;
        SetPasteMarks(true);
        // Before the prompt, or a key that follows it at once, such as Ctrl-D, would not reach the editor.
        el_set(editor_.get(), EL_PREP_TERM, 1);
        int length = 0;
        const char* const text = el_gets(editor_.get(), &length);
        SetPasteMarks(false);
        if (is_interrupted_) {
            std::fputs("^C\n", stdout);
            std::fflush(stdout);
            return ReadOutcome::kInterrupted;
        }
        if (text == nullptr || length <= 0) {
            std::fputc('\n', stdout);
            return ReadOutcome::kEnd;
        }
        line.assign(text, static_cast<std::size_t>(length));
        if (line.ends_with('\n')) {
            line.pop_back();
        }
        return ReadOutcome::kLine;
    }

    void AddToHistory(const std::string& entry) override {
        if (entry.empty() || entry == last_entry_) {
            return;
        }
        last_entry_ = entry;
        entries_.push_back(entry);
        HistEvent event;
        history(history_.get(), &event, H_ENTER, entry.c_str());
        if (!history_file_.empty()) {
            AppendToHistory(history_file_, entry);
        }
    }

  private:
    void SetUpEditor() {
        EditLine* const editor = editor_.get();
        el_set(editor, EL_CLIENTDATA, this);
        el_set(editor, EL_PROMPT, &MakePrompt);
        el_set(editor, EL_EDITOR, "emacs");
        el_set(editor, EL_SIGNAL, 0);  // Ctrl-C arrives through a descriptor, see BlockInterrupts
        el_set(editor, EL_HIST, history, history_.get());
        el_set(editor, EL_GETCFN, &ReadCharacter);
        // The call for narrow texts copies both and never frees them.
        el_wset(editor, EL_ADDFN, L"complete-word", L"Complete the word", &Complete);
        el_wset(editor, EL_ADDFN, L"accept-hint", L"Insert the hint, or move right", &AcceptHint);
        el_wset(editor, EL_ADDFN, L"insert-paste", L"Insert pasted text", &InsertPaste);
        constexpr const char* kBindings[][2] = {
            {"^I", "complete-word"},       {kPasteStart, "insert-paste"},      {"^R", "em-inc-search-prev"},
            {"^W", "ed-delete-prev-word"}, {"\x1b[3~", "ed-delete-next-char"}, {"\x1b[1~", "ed-move-to-beg"},
            {"\x1b[4~", "ed-move-to-end"}, {"\x1b[H", "ed-move-to-beg"},       {"\x1b[F", "ed-move-to-end"},
            {"\x1b[C", "accept-hint"},     {"\x1bOC", "accept-hint"},          {"\x1b[1;5C", "em-next-word"},
            {"\x1b[1;5D", "ed-prev-word"}};
        for (const auto& [key, function] : kBindings) {
            el_set(editor, EL_BIND, key, function, nullptr);
        }
        el_source(editor, nullptr);  // the user's own keys, in ~/.editrc
    }

    static TerminalReader& Of(EditLine* editor) {
        void* reader = nullptr;
        el_get(editor, EL_CLIENTDATA, &reader);
        return *static_cast<TerminalReader*>(reader);
    }

    static char* MakePrompt(EditLine* editor) { return Of(editor).prompt_.data(); }

    /** Asks the terminal to mark pasted text, whose line ends then do not run statements one by one. */
    static void SetPasteMarks(bool are_on) {
        if (UnderstandsEscapes()) {
            std::fputs(are_on ? "\x1b[?2004h" : "\x1b[?2004l", stdout);
            std::fflush(stdout);
        }
    }

    /** Returns 1, 0 at the end of the input, and -1 for a Ctrl-C and for an error. */
    static int ReadCharacter(EditLine* editor, wchar_t* character) {
        std::mbstate_t state{};
        Of(editor).Paint();
        for (;;) {
            pollfd descriptors[] = {{STDIN_FILENO, POLLIN, 0}, {get_InterruptDescriptor(), POLLIN, 0}};
            if (::poll(descriptors, 2, -1) < 0) {
                if (errno != EINTR) {
                    return -1;
                }
                el_resize(editor);
                continue;
            }
            Of(editor).EraseHint();
            if ((descriptors[1].revents & POLLIN) != 0 && TakeInterrupt()) {
                Of(editor).is_interrupted_ = true;
                return -1;
            }
            char byte = '\0';
            const ssize_t count = descriptors[0].revents != 0 ? ::read(STDIN_FILENO, &byte, 1) : -1;
            if (count == 0) {
                return 0;
            }
            if (count < 0) {
                continue;
            }
            constexpr auto kIncomplete = static_cast<std::size_t>(-2);
            constexpr auto kInvalid = static_cast<std::size_t>(-1);
            const std::size_t length = std::mbrtowc(character, &byte, 1, &state);
            if (length == kInvalid) {
                *character = L'\uFFFD';
            }
            if (length != kIncomplete) {
                return 1;
            }
        }
    }

    /** Shows the line in colours, and a hint behind it. Not while more keys wait, as in a paste, and not on
       long lines, so that typing costs nothing noticeable. */
    void Paint() {
        constexpr std::ptrdiff_t kLongest = 4000;
        const LineInfoW* const info = el_wline(editor_.get());
        const std::ptrdiff_t length = info->lastchar - info->buffer;
        pollfd keys = {STDIN_FILENO, POLLIN, 0};
        if (!UnderstandsEscapes() || is_pasting_ || length == 0 || length > kLongest ||
            ::poll(&keys, 1, 0) != 0) {
            return;
        }
        const EditedLine line{{info->buffer, static_cast<std::size_t>(length)},
                              static_cast<std::size_t>(info->cursor - info->buffer),
                              DisplayWidth(prompt_),
                              screen_.get_Columns(),
                              screen_.get_Lines()};
        RedrawWideCharacters(line);
        if (!has_colours_) {
            return;
        }
        const std::string hint = info->cursor == info->lastchar ? FindHint(ToText(line.text)) : std::string();
        const std::string painted = PaintLine(line, ClassifyCharacters(line.text), hint);
        std::fputs(painted.c_str(), stdout);
        std::fflush(stdout);
        is_hint_shown_ = !painted.empty() && !hint.empty();
    }

    /** libedit loses the column when it changes a row after the first that contains wide characters, and then
        overwrites other rows. Redrawing the whole line corrects them. */
    void RedrawWideCharacters(const EditedLine& line) {
        const int row = FindRowToRedraw(line);
        if (row >= 0) {
            std::fputs("\r", stdout);
            if (row > 0) {
                fmt::print(stdout, "\x1b[{}A", row);
            }
            std::fputs("\x1b[J", stdout);
            el_set(editor_.get(), EL_REFRESH);
        }
    }

    static std::string ToText(std::wstring_view characters) {
        std::string text;
        for (const wchar_t character : characters) {
            AppendCharacter(text, character);
        }
        return text;
    }

    /** The `TextKind` of each character. */
    std::string ClassifyCharacters(std::wstring_view characters) const {
        const std::string byte_kinds = help_.classify(ToText(characters));
        std::string kinds;
        std::string text;
        for (const wchar_t character : characters) {
            kinds += byte_kinds[text.size()];
            AppendCharacter(text, character);
        }
        return kinds;
    }

    std::string FindHint(const std::string& text) const {
        const std::string rest = FindRest(text);
        return rest.empty() ? help_.describe(text) : rest;
    }

    /** The rest of the last line of the history that begins like the text. */
    std::string FindRest(const std::string& text) const {
        for (auto entry = entries_.rbegin(); entry != entries_.rend(); ++entry) {
            if (entry->size() > text.size() && entry->starts_with(text) &&
                entry->find('\n') == std::string::npos) {
                return entry->substr(text.size());
            }
        }
        return {};
    }

    void EraseHint() {
        if (std::exchange(is_hint_shown_, false)) {
            std::fputs("\x1b[K", stdout);
            std::fflush(stdout);
        }
    }

    static unsigned char AcceptHint(EditLine* editor, int /*key*/) {
        const TerminalReader& reader = Of(editor);
        const LineInfo* const info = el_line(editor);
        const std::string text(info->buffer, info->lastchar);
        if (reader.has_colours_ && info->cursor == info->lastchar && !text.empty()) {
            const std::string rest = reader.FindRest(text);
            return rest.empty() || el_insertstr(editor, rest.c_str()) != 0 ? CC_ERROR : CC_REFRESH;
        }
        el_cursor(editor, 1);
        return CC_CURSOR;
    }

    static unsigned char InsertPaste(EditLine* editor, int /*key*/) {
        std::string text;
        wchar_t character = 0;
        Of(editor).is_pasting_ = true;
        while (!text.ends_with(kPasteEnd) && ReadCharacter(editor, &character) == 1) {
            const wchar_t c = character == L'\r' ? L'\n' : character;
            AppendCharacter(text, c);
        }
        Of(editor).is_pasting_ = false;
        if (text.ends_with(kPasteEnd)) {
            text.resize(text.size() - kPasteEnd.size());
        }
        return el_insertstr(editor, text.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    }

    static void AppendCharacter(std::string& text, wchar_t character) {
        char bytes[16];
        std::mbstate_t state{};
        const std::size_t length = std::wcrtomb(bytes, character, &state);
        if (length <= sizeof bytes) {
            text.append(bytes, length);
        }
    }

    static unsigned char Complete(EditLine* editor, int /*key*/) {
        TerminalReader& reader = Of(editor);
        const LineInfo* const info = el_line(editor);
        const std::string before(info->buffer, info->cursor);
        std::string word = before.substr(before.find_last_of(kWordBreaks) + 1);
        std::vector<std::string> candidates =
            reader.help_.complete(before.substr(0, before.size() - word.size()), word);
        std::string end = " ";
        if (candidates.empty()) {
            const std::size_t start = before.find_last_of(kFileBreaks) + 1;
            word = before.substr(start);
            candidates = CompleteFileName(word);
            const bool is_quoted = start > 0 && (before[start - 1] == '\'' || before[start - 1] == '"');
            end = is_quoted ? std::string(1, before[start - 1]) : end;
        }
        return candidates.empty() ? CC_ERROR : Insert(editor, word, candidates, end);
    }

    /** Replaces the word by what its candidates have in common, or lists them. */
    static unsigned char Insert(EditLine* editor, const std::string& word,
                                const std::vector<std::string>& candidates, const std::string& end) {
        std::string common = FindCommonStart(candidates);
        if (candidates.size() > 1 && common.size() <= word.size()) {
            List(candidates);
            return CC_REDISPLAY;
        }
        if (candidates.size() == 1 && !common.ends_with('/')) {
            common += end;
        }
        el_deletestr(editor, CountCharacters(word));
        return el_insertstr(editor, common.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    }

    static void List(const std::vector<std::string>& candidates) {
        std::string text = "\n";
        const std::size_t shown = std::min(candidates.size(), kShownCandidates);
        for (std::size_t i = 0; i < shown; ++i) {
            text += ToPrintable(candidates[i]) + (i + 1 < shown ? "  " : "\n");
        }
        if (shown < candidates.size()) {
            text += fmt::format("... and {} more\n", candidates.size() - shown);
        }
        std::fputs(text.c_str(), stdout);
        std::fflush(stdout);
    }

    std::string history_file_;
    LineHelp help_;
    bool has_colours_;
    /** For the size of the screen. */
    Output screen_{STDOUT_FILENO};
    /** Of the history, oldest first. */
    std::vector<std::string> entries_;
    bool is_hint_shown_ = false;
    bool is_pasting_ = false;
    std::unique_ptr<History, HistoryDeleter> history_;
    std::unique_ptr<EditLine, EditorDeleter> editor_;
    std::string last_entry_;
    std::string prompt_;
    bool is_interrupted_ = false;
};

}  // namespace

std::unique_ptr<LineReader> MakeTerminalReader(const std::string& history_file, LineHelp help) {
    return std::make_unique<TerminalReader>(history_file, std::move(help));
}

}  // namespace mduckdb_host
