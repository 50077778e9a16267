/* Writes docs/types.md from what the running modules do, or tells whether the page still says that.

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
#include "type_names.h"
#include "type_samples.h"

namespace mduckdb_docs {
namespace {

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

/** The value that a cursor gave, bound again where a value of its type is wanted. */
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

/** The ways by which a parameter of one DuckDB type is made. */
struct Ways {
    std::string binds;
    std::string kinds;
    std::string words;
};

void Add(std::string& list, const std::string& item) {
    list += (list.empty() ? "" : ", ") + item;
}

/** Types in the order in which they were first met. */
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
        page << "| DuckDB type | typed bind | host value | envelope word |\n|---|---|---|---|\n";
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
    page << "| host value | content | DuckDB gets | lost |\n|---|---|---|---|\n";
    for (const KindSample& sample : kKindSamples) {
        const smart_ptr<I_Value> value = MakeKind(sample);
        const Answer answer = probe.Select("SELECT $1::VARCHAR", value);
        page << "| " << KindName(value->get_TypeCode()) << " | " << Code(ToUtf8(value->get_Text())) << " | "
             << (answer.is_error ? "refused: " + answer.text : Code(answer.text)) << " | " << sample.remark
             << " |\n";
    }
}

void WriteEnvelopes(std::ostream& page, DatabaseProbe& probe) {
    page << "| envelope | DuckDB gets |\n|---|---|\n";
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
    page << "| array of | DuckDB type | one element | DuckDB gets |\n|---|---|---|---|\n";
    for (const nbx::ValueType kind : kElementKinds) {
        const char* const text = TextOfKind(kind);
        page << "| " << KindName(static_cast<uint32_t>(kind)) << " | "
             << TypeOf(probe.Select(kTypeOfParameter, MakeArray(kind, text))) << " | " << Code(text) << " | ";
        const Answer answer = probe.Select("SELECT $1::VARCHAR", MakeArray(kind, text));
        page << (answer.is_error ? "" : Code(answer.text)) << " |\n";
    }
}

/** The parts of the page that no measurement gives, and where the tables stand between them. */
void WritePage(std::ostream& page, const std::string& file, const LoadedModule& plain,
               const LoadedModule& casts) {
    {
        DatabaseProbe probe(file);
        MakeTables(probe);
    }
    page << "# Types\n\n"
            "Made by `tests/docs/types_page.cpp` from what the running modules answer, with the time zone "
            "set to "
            "UTC; the test\n`docs_types_page` fails when the page says something else. After a change: "
            "`types_page ... --write`.\n\n"
            "## From DuckDB to the host\n\n"
            "The column *cursor* is the kind and text of the host value that both kinds of cursor give; "
            "*bound "
            "again* tells whether\nthat value, bound as a parameter and cast to the type, equals the "
            "original. "
            "The columns `mduckdb` and `mduckdb_casts` are\nthe host type and text that `fetch_duckdb` gives "
            "through each module (`fetch_parquet` reads cells the same way). In\n`mduckdb` a column of "
            "another "
            "type than the host's is read as it lies in memory: such a cell may be null or a wrong\nnumber, "
            "and "
            "the table shows it. [operating.md](operating.md#which-module) tells when to take which.\n\n";
    WriteCells(page, file, plain, casts);
    page << "\nA cell whose content is no value of its type (a TIME outside the day, from a damaged file) is "
            "the "
            "empty text in a cursor\nand null in a procedure.\n\n"
            "### What is in a VARIANT\n\n"
            "A cursor opens the VARIANT and gives what is inside; kinds that the host lacks travel as a JSON "
            "value, the envelope\nthat a parameter takes too. *Refused*: DuckDB's text of the content is not "
            "the JSON that its own cast to VARIANT wants.\n\n";
    WriteVariants(page, file);
    DatabaseProbe probe(file + ".parameters");
    probe.Run("SET TimeZone = 'UTC'");
    page << "\n`BLOB` and `UNKNOWN` are no words of a parameter's envelope. A character outside ASCII stands "
            "in "
            "the envelope of a\ncursor as one `\\u00xx` for each byte of its UTF-8 form; a reader puts the "
            "bytes "
            "together again.\n\n"
            "## From the host to a parameter\n\n"
            "`typeof` of the parameter, by the way in which it was bound. DuckDB then casts it to the type "
            "that "
            "the statement wants.\n\n";
    WriteParameters(page, probe);
    page << "\n### Host values\n\nThe text that DuckDB makes of the parameter.\n\n";
    WriteKinds(page, probe);
    page
        << "\nText that is not valid UTF-8, and a host array that DuckDB makes no LIST of, are errors, never "
           "a null.\n\n### Arrays\n\n";
    WriteArrays(page, probe);
    page << "\n### Envelopes\n\nA host JSON value with the member `duckdb_value` or `duckdb_variant` states "
            "the "
            "DuckDB type of the parameter.\n\n";
    WriteEnvelopes(page, probe);
}

std::string ReadFile(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/** The first line that differs, with its number. */
void TellDifference(const std::string& page, const std::string& wanted) {
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
    std::cerr << "the page is longer than what the modules say\n";
}

int Run(const std::vector<std::string>& arguments) {
    const bool is_writing = arguments.size() == 4 && arguments[3] == "--write";
    if (arguments.size() != 3 && !is_writing) {
        std::cerr << "usage: types_page MODULE CASTS_MODULE PAGE [--write]\n";
        return 2;
    }
    char folder[] = "/tmp/types_page.XXXXXX";
    if (mkdtemp(folder) == nullptr) {
        std::cerr << "cannot make a folder in /tmp\n";
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
        TellDifference(present, page.str());
        return 1;
    }
    return 0;
}

}  // namespace
}  // namespace mduckdb_docs

int main(int argc, char** argv) {
    // DuckDB shows moments in the time zone of the process.
    setenv("TZ", "UTC", 1);
    try {
        return mduckdb_docs::Run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::cerr << "types_page: " << error.what() << '\n';
        return 1;
    }
}
