// Values of the host on their way into DuckDB, and DuckDB's on their way out and in again.
#include <string>
#include <vector>

#include "base/text.h"
#include "host_value_input.h"
#include "nbx/json.h"
#include "nbx/mrsql/registry.h"
#include "session.h"
#include "support/sample_values.h"
#include "targets.h"

namespace fuzz {

using mduckdb::ToUtf8;
using nbx::mrsql::kClientCursor;
using nbx::mrsql::kServerCursor;

namespace {

// `typeof($1)` of a text is an internal error of DuckDB; behind a subquery it is not.
constexpr std::string_view kSelect = "SELECT v, CAST(v AS VARCHAR) FROM (SELECT $1 AS v)";

/** What comes back for the parameter is read, bound again and written as JSON. */
void PassThrough(const Value& value, uint32_t location) {
    Session& session = Session::Shared();
    session.Try([&] {
        const auto cursor = session.Select(kSelect, location, value);
        while (cursor->NextRecord()) {
            const Value seen = cursor->get_Value(0);
            ToUtf8(seen->get_Text());
            session.Try([&] { ReadAll(*session.Select(kSelect, location, seen)); });
        }
    });
    session.Try([&] {
        const auto cursor = session.Select(kSelect, location, value);
        const std::string json = ToUtf8(nbx::mrsql::CursorToJSON(cursor));
        Require(nbx::Json(json.c_str()).isValid(), "the rows as JSON are not valid JSON");
    });
}

/** The kinds of VARIANTs, and words that are none. */
const std::vector<std::string>& TypeWords() {
    static const std::vector<std::string> words = [] {
        std::vector<std::string> all = mduckdb::get_VariantKindNames();
        all.insert(all.end(), {"BOOL", "BOOLEAN", "JSON"});
        return all;
    }();
    return words;
}

std::string Quoted(std::string_view text) {
    std::string json = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            json += '\\';
        }
        // A control character would end every envelope early.
        json += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
    }
    return json + "\"";
}

/** SQL types whose values survive the way out and in, as texts; the others only must not crash. */
struct TrippedType {
    const char* sql;
    bool is_exact;
};
constexpr TrippedType kTripped[] = {{"BOOLEAN", true},
                                    {"TINYINT", true},
                                    {"SMALLINT", true},
                                    {"INTEGER", true},
                                    {"BIGINT", true},
                                    {"HUGEINT", true},
                                    {"UTINYINT", true},
                                    {"USMALLINT", true},
                                    {"UINTEGER", true},
                                    {"UBIGINT", true},
                                    {"UHUGEINT", true},
                                    {"FLOAT", true},
                                    {"DOUBLE", true},
                                    {"DECIMAL(18,3)", true},
                                    {"DECIMAL(38,10)", true},
                                    {"VARCHAR", true},
                                    {"BLOB", true},
                                    {"UUID", true},
                                    {"DATE", true},
                                    {"TIME", true},
                                    {"TIME_NS", true},
                                    {"TIMESTAMP_S", true},
                                    {"TIMESTAMP_MS", true},
                                    {"TIMESTAMP", true},
                                    {"TIMESTAMP_NS", true},
                                    {"TIMETZ", true},
                                    {"TIMESTAMPTZ", true},
                                    {"INTERVAL", true},
                                    {"BIGNUM", true},
                                    {"BIT", true},
                                    {"GEOMETRY", false},
                                    {"JSON", false},
                                    {"INTEGER[]", false},
                                    {"VARCHAR[]", false},
                                    {"STRUCT(a INTEGER, b VARCHAR)", false},
                                    {"MAP(VARCHAR, DOUBLE)", false},
                                    {"VARCHAR[2]", false},
                                    {"DECIMAL(5,1)[][]", false}};

/** The text of the VARIANT, and the host's value for it. */
bool ReadVariant(const TrippedType& type, std::string_view text, uint32_t location, Value& value,
                 std::string& shown) {
    Session& session = Session::Shared();
    bool has_row = false;
    session.Try([&] {
        const std::string sql =
            std::string("SELECT v, CAST(v AS VARCHAR) FROM (SELECT CAST(CAST($1 AS VARCHAR) AS ") + type.sql +
            ")::VARIANT AS v)";
        const auto cursor = session.Select(sql, location, MakeText(text));
        has_row = cursor->NextRecord();
        if (has_row) {
            value = cursor->get_Value(0);
            shown = ToUtf8(cursor->get_Value(1)->get_Text());
        }
    });
    return has_row;
}

}  // namespace

void JsonParameter(Input& input) {
    const bool is_json = input.Flag();
    const uint32_t location = input.Flag() ? kClientCursor : kServerCursor;
    const std::string_view text = input.Rest();
    const std::string terminated(text);
    const nbx::Json json(terminated.c_str());
    for (const char* const key : {"", "a", "value"}) {
        ToUtf8(json.get_JsonValue(key));
    }
    PassThrough(is_json ? MakeJson(text) : MakeText(text), location);
}

void EnvelopeParameter(Input& input) {
    const uint32_t location = input.Flag() ? kClientCursor : kServerCursor;
    const bool is_typed = input.Flag();
    const std::vector<std::string>& words = TypeWords();
    const std::size_t word = input.Pick(words.size() + 1);
    const std::string type = word < words.size() ? words[word] : std::string(input.Text());
    const bool is_quoted = input.Flag();
    const std::string_view content = input.Rest();
    const std::string json = std::string(is_typed ? R"({"duckdb_value":true,"value_type":)"
                                                  : R"({"duckdb_variant":true,"variant_type":)") +
                             Quoted(type) + R"(,"value":)" +
                             (is_quoted ? Quoted(content) : std::string(content)) + "}";
    PassThrough(MakeJson(json), location);
}

void HostValues(Input& input) {
    const uint32_t location = input.Flag() ? kClientCursor : kServerCursor;
    PassThrough(TakeHostValue(input), location);
}

void VariantRoundTrip(Input& input) {
    const TrippedType& type = kTripped[input.Pick(std::size(kTripped))];
    const uint32_t location = input.Flag() ? kClientCursor : kServerCursor;
    Value value;
    std::string shown;
    if (!ReadVariant(type, input.Rest(), location, value, shown)) {
        return;
    }
    std::string back = "refused";
    Session& session = Session::Shared();
    const bool is_accepted = session.Try([&] {
        const auto cursor = session.Select(kSelect, location, value);
        Require(cursor->NextRecord(), "the second way has no row");
        back = ToUtf8(cursor->get_Value(1)->get_Text());
    });
    if (type.is_exact && (!is_accepted || back != shown)) {
        std::fprintf(stderr, "%s: '%s' came back as '%s'\n", type.sql, shown.c_str(), back.c_str());
        Require(false, "a VARIANT changed on its way");
    }
}

}  // namespace fuzz
