#include "shell/print_commands.h"

#include <fmt/format.h>

#include "text/messages.h"

namespace mduckdb_host {

using Words = std::vector<std::string>;

bool ReadSwitch(const std::string& word) {
    if (word != "on" && word != "off") {
        throw xUsageError(fmt::format("Unknown setting '{}'. Use on or off.", word));
    }
    return word == "on";
}

void AllCommand(Session& session, const Words& words) {
    const bool is_on = ReadSwitch(words[0]);
    session.ChangePrintOptions([is_on](PrintOptions& print) { print.is_cut_to_screen = !is_on; });
}

void HeadersCommand(Session& session, const Words& words) {
    const bool is_on = ReadSwitch(words[0]);
    session.ChangePrintOptions([is_on](PrintOptions& print) { print.has_headers = is_on; });
}

void ModeCommand(Session& session, const Words& words) {
    const std::optional<Format> format = FindFormat(words[0]);
    if (!format) {
        throw xUsageError(DescribeUnknownFormat(words[0]));
    }
    session.put_Format(*format);
}

void NullValueCommand(Session& session, const Words& words) {
    session.ChangePrintOptions([&words](PrintOptions& print) {
        print.null_text = words.empty() ? std::nullopt : std::optional<std::string>(words[0]);
    });
}

void OnceCommand(Session& session, const Words& words) {
    session.WriteTo(words[0], true);
}

void OutputCommand(Session& session, const Words& words) {
    if (words.empty()) {
        session.ResetOutput();
    } else {
        session.WriteTo(words[0], false);
    }
}

void PagerCommand(Session& session, const Words& words) {
    session.put_IsPaged(ReadSwitch(words[0]));
}

void SeparatorCommand(Session& session, const Words& words) {
    const std::string separator = words[0] == "\\t" ? "\t" : words[0];
    if (separator.empty() || separator.find_first_of("\"\r\n") != std::string::npos) {
        throw xUsageError("A separator is one or several characters, but no quote and no line end.");
    }
    session.ChangePrintOptions([&separator](PrintOptions& print) { print.separator = separator; });
}

void TypesCommand(Session& session, const Words& words) {
    const bool is_on = ReadSwitch(words[0]);
    session.ChangePrintOptions([is_on](PrintOptions& print) { print.has_types = is_on; });
}

}  // namespace mduckdb_host
