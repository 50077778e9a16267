// Texts that people and files give: scripts, parameters, manifests.
#include <algorithm>
#include <vector>

#include "backup/export_scripts.h"
#include "backup/manifest.h"
#include "base/text.h"
#include "commands/parameters.h"
#include "data/host_values.h"
#include "data/literals.h"
#include "session.h"
#include "shell/statement_splitter.h"
#include "targets.h"
#include "text/messages.h"

namespace fuzz {

namespace {

struct Split {
    std::vector<std::string> statements{};
    std::vector<int64_t> lines{};
    std::string rest;

    bool operator==(const Split&) const = default;
};

/** Where the line that begins there ends. */
std::size_t EndOfLine(std::string_view text, std::size_t begin) {
    const std::size_t end = text.find('\n', begin);
    return end == std::string_view::npos ? text.size() : end + 1;
}

/** The statements when so many lines arrive at a time, as the shell reads them. */
Split SplitByLines(std::string_view text, std::size_t lines) {
    mduckdb_host::StatementSplitter splitter;
    Split split;
    std::string statement;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t begin = at;
        for (std::size_t i = 0; i < lines; ++i) {
            at = EndOfLine(text, at);
        }
        splitter.Add(text.substr(begin, at - begin));
        while (splitter.TakeStatement(statement)) {
            split.statements.push_back(statement);
            split.lines.push_back(splitter.get_StatementLine());
        }
    }
    splitter.get_IsInside();
    split.rest = splitter.TakeRest();
    return split;
}

/** The text contains each statement, after the previous one. */
bool StandInOrder(const std::vector<std::string>& statements, std::string_view text) {
    std::size_t at = 0;
    for (const std::string& statement : statements) {
        const std::size_t found = text.find(statement, at);
        if (found == std::string_view::npos) {
            return false;
        }
        at = found + statement.size();
    }
    return true;
}

}  // namespace

void SqlScript(Input& input) {
    Session session(1000);
    const bool is_query = input.Flag();
    const uint32_t location = input.Flag() ? nbx::mrsql::kClientCursor : nbx::mrsql::kServerCursor;
    const nbx::String sql = Session::Text(input.Rest());
    session.Try(
        [&] { session.Run("CREATE TABLE t AS SELECT range AS i, 'x' || range AS s FROM range(10)"); });
    session.Try([&] {
        if (!is_query) {
            session->SqlExecute(sql, nullptr);
            return;
        }
        const auto result = session->SqlQuery(sql, location, nullptr);
        if (const auto cursor = result->get_Cursor()) {
            ReadAll(*cursor);
        }
    });
    session.Try([&] { session->CreateStatement(sql)->TryExecuteAll(); });
}

void StatementSplitting(Input& input) {
    const std::size_t lines = 1 + input.Pick(4);
    const std::string_view text = input.Rest();
    const Split whole = SplitByLines(text, text.size() + 1);
    Require(SplitByLines(text, lines) == whole,
            "the lines that arrive together change a script's statements");
    Require(StandInOrder(whole.statements, text), "a statement is not in the script");
    Require(whole.rest.empty() || text.find(whole.rest) != std::string_view::npos,
            "the rest is not in the script");
}

void ExportScripts(Input& input) {
    const bool must_fail = input.Flag();
    const std::string_view script = input.Rest();
    mduckdb::ExportScripts scripts;
    scripts.schema = mduckdb::SplitScript(script);
    Require(StandInOrder(scripts.schema, script), "a statement is not in the script");
    for (const std::string& statement : scripts.schema) {
        scripts.load.push_back(mduckdb::MendLoad(statement, "/folder with 'quotes'"));
    }
    std::size_t runs = 0;
    try {
        mduckdb::RunExportScripts(scripts, [&](const std::string&) {
            // Each second statement fails at first.
            if (++runs % 2 == 0 && must_fail && runs <= scripts.schema.size()) {
                throw std::runtime_error("fails");
            }
        });
        Require(runs >= scripts.schema.size() + scripts.load.size(), "a statement did not run");
    } catch (const std::runtime_error&) {
        Require(must_fail, "nothing failed, but an error is reported");
    }
}

void CommandLineParameter(Input& input) {
    const std::string text(input.Rest());
    try {
        const mduckdb_host::Datum datum = mduckdb_host::ParseParameter(text);
        mduckdb_host::ToText(datum);
        std::string json;
        mduckdb_host::AppendJson(json, datum);
        std::string again;
        mduckdb_host::AppendJson(again, mduckdb_host::ParseParameter(json));
        Require(json == again, "a parameter that is written as JSON and read changes");
        mduckdb_host::ToDatum(mduckdb_host::ToHostValue(datum));
    } catch (const mduckdb_host::xUsageError&) {
        // The text is not JSON, or goes too deep.
    }
    try {
        mduckdb_host::ParseArgument(text);
        if (const auto call = mduckdb_host::FindCall(text)) {
            mduckdb_host::ParseLiterals(call->arguments);
        }
    } catch (const mduckdb_host::xNestingError&) {
    } catch (const mduckdb_host::xLiteralError& error) {
        Require(error.get_Position() <= text.size(), "an error beyond the end of the text");
    }
}

void BackupManifest(Input& input) {
    const std::string text(input.Rest());
    mduckdb::ReadManifest(text);
    mduckdb::SnapshotManifest manifest;
    Input parts(text);
    manifest.size = parts.Number(8);
    // A text that is not UTF-8 becomes another one.
    manifest.sha256 = mduckdb::ToUtf8(mduckdb::FromUtf8(std::string("x").append(parts.Text())));
    manifest.duckdb_version = mduckdb::ToUtf8(mduckdb::FromUtf8(parts.Text()));
    manifest.objects = {{mduckdb::ToUtf8(mduckdb::FromUtf8(parts.Text())), 1}};
    const auto identity = mduckdb::ReadManifest(mduckdb::WriteManifest(manifest));
    Require(identity && identity->size == manifest.size && identity->sha256 == manifest.sha256 &&
                identity->duckdb_version == manifest.duckdb_version,
            "a manifest that is written and read changes");
}

}  // namespace fuzz
