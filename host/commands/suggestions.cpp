#include "commands/suggestions.h"

#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <memory>
#include <numeric>

#include "commands/program.h"
#include "text/messages.h"

namespace mduckdb_host {

namespace {

/** How many characters must be replaced, inserted, removed or swapped with their neighbour to turn one word
    into the other. */
std::size_t MeasureDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> before;
    std::vector<std::size_t> last(b.size() + 1);
    std::iota(last.begin(), last.end(), 0);
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::vector<std::size_t> row(b.size() + 1, i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                row[j] = std::min(row[j], before[j - 2] + 1);
            }
        }
        before = std::move(last);
        last = std::move(row);
    }
    return last.back();
}

void AppendOptions(std::vector<std::string>& names, const CLI::App& app) {
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
        for (const std::string& name : option->get_snames()) {
            names.push_back("-" + name);
        }
    }
}

std::string MakeSuggestion(const std::string& similar) {
    return similar.empty() ? std::string() : fmt::format(" Did you mean {}?", similar);
}

std::vector<CLI::App*> ListCommands(CLI::App& app) {
    return app.get_subcommands([](CLI::App* /*command*/) { return true; });
}

/** The name that is most like the word; empty when none is like it. */
std::string FindSimilar(std::string_view word, const std::vector<std::string>& names) {
    // One mistake in a short word, more in a long one.
    std::size_t least = word.size() / 3 + 2;
    std::string found;
    for (const std::string& name : names) {
        const bool is_start = word.size() > 1 && name.starts_with(word);
        const std::size_t distance = is_start ? 1 : MeasureDistance(word, name);
        if (distance < least && distance < name.size()) {
            least = distance;
            found = name;
        }
    }
    return found;
}

void PrintHelp(Program& program, CLI::App& app, const std::string& name) {
    std::vector<std::string> names;
    for (CLI::App* const command : ListCommands(app)) {
        if (command->get_name() == name) {
            program.out.Write(command->help("mduckdb-host"));
            return;
        }
        names.push_back(command->get_name());
    }
    throw xUsageError(fmt::format("Unknown command '{}'.{}\nSee mduckdb-host --help.", name,
                                  MakeSuggestion(FindSimilar(name, names))));
}

}  // namespace

void AddHelpCommand(CLI::App& app, Program& program) {
    CLI::App* const command = app.add_subcommand("help", "Describe the program or a command");
    auto name = std::make_shared<std::string>();
    command->add_option("COMMAND", *name, "Name of the command");
    command->callback([&app, &program, name] {
        program.command = [&app, &program, name] {
            if (name->empty()) {
                program.out.Write(
                    app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal));
            } else {
                PrintHelp(program, app, *name);
            }
            return kWorked;
        };
    });
}

std::string DescribeUnknownWords(CLI::App& app, const std::vector<std::string>& words) {
    const std::string command = FindCommandWord(words);
    std::vector<std::string> commands;
    std::vector<std::string> options;
    AppendOptions(options, app);
    for (const CLI::App* const known : ListCommands(app)) {
        commands.push_back(known->get_name());
    }
    const bool is_known = std::find(commands.begin(), commands.end(), command) != commands.end();
    for (const CLI::App* const known : ListCommands(app)) {
        if (!is_known || known->get_name() == command) {
            AppendOptions(options, *known);
        }
    }
    std::string text;
    bool is_after_unknown_option = false;
    for (const std::string& word : words) {
        const std::string name = word.substr(0, word.find('='));
        const bool is_unknown_option = name.starts_with("--") && name.size() > 2 &&
                                       std::find(options.begin(), options.end(), name) == options.end();
        // The word behind an unknown option may be its value.
        if (is_unknown_option) {
            text += fmt::format("Unknown option {}.{}\n", name, MakeSuggestion(FindSimilar(name, options)));
        } else if (word == command && !is_known && !is_after_unknown_option) {
            text +=
                fmt::format("Unknown command '{}'.{}\n", word, MakeSuggestion(FindSimilar(word, commands)));
        }
        is_after_unknown_option = is_unknown_option;
    }
    return text.empty() ? text
                        : fmt::format("{}See mduckdb-host {}{}--help.", text, is_known ? command : "",
                                      is_known ? " " : "");
}

}  // namespace mduckdb_host
