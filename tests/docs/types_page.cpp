/* Writes docs/types.md from what the running modules return, or checks that the page is up to date.

     types_page MODULE CASTS_MODULE PAGE [--write] */

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "module_probe.h"
#include "nbx/hooks.h"
#include "nbx/mrsql/registry.h"
#include "parameter_samples.h"
#include "support/kind_names.h"
#include "type_samples.h"

namespace mduckdb_docs {
namespace {

using mduckdb::KindName;
using nbx::I_Value;

std::string TableName(std::size_t index) {
    return "t" + std::to_string(index);
}

std::string ValueOf(const CellSample& sample) {
    return "CAST(" + std::string(sample.expression) + " AS " + sample.type + ")";
}

std::string Shown(const Answer& answer) {
    if (answer.is_error) {
        return "error: " + answer.text;
    }
    return answer.kind + " " + (answer.text == "null" ? answer.text : Code(answer.text));
}

/** Binds the value that a cursor returned where a value of its type is expected. */
std::string RoundTrip(DatabaseProbe& probe, const Answer& answer, const std::string& original,
                      const std::string& parameter) {
    if (answer.is_error) {
        return "-";
    }
    const Answer same =
        probe.Select("SELECT " + parameter + " IS NOT DISTINCT FROM " + original, answer.value);
    if (same.is_error) {
        return "refused";
    }
    return same.text == "true" ? "same" : "other";
}

void MakeTables(DatabaseProbe& probe) {
    for (std::size_t i = 0; i < std::size(kCells); ++i) {
        probe.Run("CREATE TABLE " + TableName(i) + " AS SELECT " + ValueOf(kCells[i]) + " AS v");
    }
    probe.Run("CREATE TABLE n AS SELECT NULL::DOUBLE AS v");
}

void WriteCells(std::ostream& page, const std::string& file, const LoadedModule& plain,
                const LoadedModule& casts) {
    DatabaseProbe probe(file + ".cursor");
    MakeTables(probe);
    probe.Run("SET TimeZone = 'UTC'");
    page << "| DuckDB type | value | cursor | bound again | `mduckdb` | `mduckdb_casts` | lost |\n"
            "|---|---|---|---|---|---|---|\n";
    for (std::size_t i = 0; i < std::size(kCells); ++i) {
        const CellSample& sample = kCells[i];
        const Answer cell = probe.Select("SELECT v FROM " + TableName(i));
        const Answer text = probe.Select("SELECT v::VARCHAR FROM " + TableName(i));
        page << "| " << Code(sample.type) << " | " << Code(text.text) << " | " << Shown(cell) << " | "
             << RoundTrip(probe, cell, ValueOf(sample), std::string("CAST($1 AS ") + sample.type + ")")
             << " | " << plain.FetchCell(file, TableName(i)) << " | " << casts.FetchCell(file, TableName(i))
             << " | " << sample.remark << " |\n";
    }
    page << "| NULL of any type | `NULL` | " << Shown(probe.Select("SELECT v FROM n")) << " | same | "
         << plain.FetchCell(file, "n") << " | " << casts.FetchCell(file, "n") << " | the type |\n";
}

void WriteVariants(std::ostream& page, const std::string& file) {
    DatabaseProbe probe(file + ".variant");
    probe.Run("SET TimeZone = 'UTC'");
    page << "| content | cursor | bound again |\n|---|---|---|\n";
    for (const char* content : kVariantContents) {
        const std::string variant = "(" + std::string(content) + ")::VARIANT";
        const Answer cell = probe.Select("SELECT " + variant);
        page << "| " << Code(content) << " | " << Shown(cell) << " | "
             << RoundTrip(probe, cell, variant, "$1::VARIANT") << " |\n";
    }
}

smart_ptr<I_Value> MakeArray(nbx::ValueType element_kind, const char* text) {
    auto array = smart_ptr<I_Value>::Adopt(nbx::CreateValueArray(static_cast<uint32_t>(element_kind)));
    auto element =
        smart_ptr<I_Value>::Adopt(nbx::CreateValueOfType(static_cast<uint32_t>(element_kind), true));
    element->put_Text(FromUtf8(text));
    static_cast<nbx::I_ArrayValue*>(array->QueryInterface(nbx::kArrayInterfaceId))->Append(element);
    return array;
}

smart_ptr<I_Value> MakeKind(const KindSample& sample) {
    const int32_t number = -5;
    if (sample.kind == nbx::ValueType::Reference) {
        return smart_ptr<I_Value>::Adopt(nbx::CreateValueReference(
            smart_ptr<I_Value>::Adopt(nbx::CreateValueLong(true, &number, nullptr))));
    }
    if (sample.kind == nbx::ValueType::Array) {
        return MakeArray(nbx::ValueType::Long, "-5");
    }
    auto value = smart_ptr<I_Value>::Adopt(nbx::CreateValueOfType(static_cast<uint32_t>(sample.kind), true));
    value->put_Text(FromUtf8(sample.text));
    return value;
}

const char* TextOfKind(nbx::ValueType kind) {
    for (const KindSample& sample : kKindSamples) {
        if (sample.kind == kind) {
            return sample.text;
        }
    }
    return "";
}

/** The ways to bind a parameter of one DuckDB type. */
struct Ways {
    std::string binds;
    std::string kinds;
    std::string words;
};

void Add(std::string& list, const std::string& item) {
    list += (list.empty() ? "" : ", ") + item;
}

/** Types in the order of their first appearance. */
class ParameterTypes {
  public:
    Ways& operator[](const std::string& type) {
        for (auto& [name, ways] : rows_) {
            if (name == type) {
                return ways;
            }
        }
        return rows_.emplace_back(type, Ways()).second;
    }
    void Write(std::ostream& page) const {
        page << "| DuckDB type | typed bind | host value | envelope type |\n|---|---|---|---|\n";
        for (const auto& [type, ways] : rows_) {
            page << "| " << type << " | " << ways.binds << " | " << ways.kinds << " | " << ways.words
                 << " |\n";
        }
    }

  private:
    std::vector<std::pair<std::string, Ways>> rows_;
};

std::string TypeOf(const Answer& answer) {
    return answer.is_error ? "refused: " + answer.text
                           : Code(answer.text == "\"NULL\"" ? "NULL" : answer.text);
}

constexpr const char* kTypeOfParameter = "SELECT typeof($1)";

std::string EnvelopeText(const EnvelopeSample& sample) {
    const bool is_variant = std::string_view(sample.marker) == "duckdb_variant";
    return std::string("{\"") + sample.marker + "\":true,\"" + (is_variant ? "variant_type" : "value_type") +
           "\":\"" + sample.word + "\",\"value\":" + sample.value + "}";
}

smart_ptr<I_Value> MakeEnvelope(const EnvelopeSample& sample) {
    const std::string text = EnvelopeText(sample);
    const std::string_view content = text;
    return smart_ptr<I_Value>::Adopt(nbx::CreateValueJSON(true, &content, nullptr));
}

void WriteParameters(std::ostream& page, DatabaseProbe& probe) {
    ParameterTypes types;
    for (const TypedBind& bind : kTypedBinds) {
        Add(types[TypeOf(probe.SelectBound(kTypeOfParameter, bind.bind))].binds, Code(bind.name));
    }
    for (const KindSample& sample : kKindSamples) {
        Add(types[TypeOf(probe.Select(kTypeOfParameter, MakeKind(sample)))].kinds,
            KindName(static_cast<uint32_t>(sample.kind)));
    }
    for (const EnvelopeSample& sample : kEnvelopes) {
        Add(types[TypeOf(probe.Select(kTypeOfParameter, MakeEnvelope(sample)))].words, Code(sample.word));
    }
    types.Write(page);
}

void WriteKinds(std::ostream& page, DatabaseProbe& probe) {
    page << "| host value | content | DuckDB receives | lost |\n|---|---|---|---|\n";
    for (const KindSample& sample : kKindSamples) {
        const smart_ptr<I_Value> value = MakeKind(sample);
        const Answer answer = probe.Select("SELECT $1::VARCHAR", value);
        page << "| " << KindName(value->get_TypeCode()) << " | " << Code(ToUtf8(value->get_Text())) << " | "
             << (answer.is_error ? "refused: " + answer.text : Code(answer.text)) << " | " << sample.remark
             << " |\n";
    }
}

void WriteEnvelopes(std::ostream& page, DatabaseProbe& probe) {
    page << "| envelope | DuckDB receives |\n|---|---|\n";
    for (const EnvelopeSample& sample : kEnvelopes) {
        const Answer answer = probe.Select("SELECT $1::VARCHAR", MakeEnvelope(sample));
        page << "| " << Code(EnvelopeText(sample)) << " | "
             << (answer.is_error         ? "refused: " + answer.text
                 : answer.text == "null" ? "NULL"
                                         : Code(answer.text))
             << " |\n";
    }
}

void WriteArrays(std::ostream& page, DatabaseProbe& probe) {
    page << "| array of | DuckDB type | one element | DuckDB receives this element |\n|---|---|---|---|\n";
    for (const nbx::ValueType kind : kElementKinds) {
        const char* const text = TextOfKind(kind);
        page << "| " << KindName(static_cast<uint32_t>(kind)) << " | "
             << TypeOf(probe.Select(kTypeOfParameter, MakeArray(kind, text))) << " | " << Code(text) << " | ";
        const Answer answer = probe.Select("SELECT ($1)[1]::VARCHAR", MakeArray(kind, text));
        page << (answer.is_error ? "" : Code(answer.text)) << " |\n";
    }
}

/** The fixed texts of the page, with the tables between them. */
void WritePage(std::ostream& page, const std::string& file, const LoadedModule& plain,
               const LoadedModule& casts) {
    {
        DatabaseProbe probe(file);
        MakeTables(probe);
    }
    page << "# Types\n\n"
            "Generated by `tests/docs/types_page.cpp` from what the running modules return, with the time "
            "zone "
            "set to UTC. The\ntest `docs_types_page` fails when the page differs. After a change: "
            "`types_page ... --write`.\n\n"
            "## From DuckDB to the host\n\n"
            "The column *cursor* shows the kind and text of the host value that both kinds of cursor return; "
            "*bound again* shows\nwhether that value, bound as a parameter and cast to the type, equals the "
            "original. The columns `mduckdb` and\n`mduckdb_casts` show the host type and text that "
            "`fetch_duckdb` returns through each module (`fetch_parquet` reads\ncells the same way). "
            "`mduckdb` reads the memory of a column whose type the host does not have: such a cell may be "
            "null\nor a wrong number, as the table shows. [operating.md](operating.md#which-module) explains "
            "which module to choose.\n\n";
    WriteCells(page, file, plain, casts);
    page << "\nA cell with a value that its type does not allow (a TIME outside the day, from a damaged "
            "file) is "
            "the empty text in a\ncursor and null in a procedure. A DECIMAL with more digits than its width "
            "is the "
            "number that DuckDB reads.\nInside a list, struct or map JSON is quoted like any text: "
            "`['[1]']`.\n\n"
            "### What is in a VARIANT\n\n"
            "A cursor unwraps the VARIANT and returns its content. A kind that the host does not have is "
            "returned "
            "as a JSON value,\nthe envelope that a parameter accepts too. *Refused*: DuckDB's text of the "
            "content is not the JSON that its own cast to\nVARIANT requires.\n\n";
    WriteVariants(page, file);
    DatabaseProbe probe(file + ".parameters");
    probe.Run("SET TimeZone = 'UTC'");
    page << "\nThe envelope of a parameter does not accept `BLOB` and `UNKNOWN`. The envelope of a cursor "
            "writes "
            "a character outside\nASCII as one `\\u00xx` for each byte of its UTF-8 form; the reader joins "
            "the bytes.\n\n"
            "## From the host to a parameter\n\n"
            "The `typeof` of a parameter for each way to bind it. DuckDB then casts it to the type that the "
            "statement needs.\n\n";
    WriteParameters(page, probe);
    page << "\n### Host values\n\nThe text that DuckDB returns for the parameter.\n\n";
    WriteKinds(page, probe);
    page << "\nText that is not valid UTF-8, and a host array that cannot become a LIST, are errors, never "
            "null.\n\n### Arrays\n\n";
    WriteArrays(page, probe);
    page << "\nAn array inside another array arrives as DuckDB's text of it. Each level escapes the quotes "
            "and "
            "backslashes of\nthe levels inside it, so about 20 levels are the most that can be bound. "
            "References may "
            "go 200 levels deep.\n";
    page << "\n### Envelopes\n\nA host JSON value with the member `duckdb_value` or `duckdb_variant` states "
            "the DuckDB type of the parameter.\n\n";
    WriteEnvelopes(page, probe);
}

std::string ReadFile(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/** The first line that differs, with its number. */
void ReportDifference(const std::string& page, const std::string& wanted) {
    std::istringstream left(page);
    std::istringstream right(wanted);
    std::string has;
    std::string should;
    for (int number = 1; std::getline(right, should) || !right.eof(); ++number) {
        if (!std::getline(left, has) || has != should) {
            std::cerr << "line " << number << "\n  page:   " << has << "\n  module: " << should << '\n';
            return;
        }
    }
    std::cerr << "the page is longer than the output of the modules\n";
}

int Run(const std::vector<std::string>& arguments) {
    const bool is_writing = arguments.size() == 4 && arguments[3] == "--write";
    if (arguments.size() != 3 && !is_writing) {
        std::cerr << "usage: types_page MODULE CASTS_MODULE PAGE [--write]\n";
        return 2;
    }
    char folder[] = "/tmp/types_page.XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        std::cerr << "cannot create a folder in /tmp\n";
        return 2;
    }
    std::ostringstream page;
    {
        nbx::MironaInit3();
        const LoadedModule plain(arguments[0]);
        const LoadedModule casts(arguments[1]);
        WritePage(page, std::string(folder) + "/types.duckdb", plain, casts);
        nbx::mrsql::SetDuckDBExtension(nullptr);
    }
    std::filesystem::remove_all(folder);
    if (is_writing) {
        std::ofstream(arguments[2], std::ios::binary) << page.str();
        return 0;
    }
    const std::string present = ReadFile(arguments[2]);
    if (present != page.str()) {
        std::cerr << arguments[2] << " is stale: run the same command with --write\n";
        ReportDifference(present, page.str());
        return 1;
    }
    return 0;
}

}  // namespace
}  // namespace mduckdb_docs

int main(int argc, char** argv) {
    // DuckDB shows timestamps in the time zone of the process.
    setenv("TZ", "UTC", 1);
    try {
        return mduckdb_docs::Run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::cerr << "types_page: " << error.what() << '\n';
        return 1;
    }
}
