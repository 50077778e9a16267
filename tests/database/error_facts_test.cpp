#include "nbx/mrsql/duckdb_error_facts.h"

#include <duckdb.h>

#include <algorithm>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include "database_test_base.h"
#include "nbx/hooks.h"
#include "nbx/json.h"
#include "nbx/mrsql/duckdb_streaming.h"
#include "nbx/value.h"
#include "support/expected_by_version.h"
#include "support/test_engine.h"

namespace {

using Kind = nbx::mrsql::DuckDBErrorKind;
using nbx::mrsql::I_DuckDBErrorFacts;

/** What DuckDB states about an error. */
struct Facts {
    uint32_t kind = 0;
    std::string kind_name;
    std::string message;
    std::string subtype;
    int64_t position = -1;
    std::string name;
    std::string candidates;

    bool operator==(const Facts& other) const {
        return kind == other.kind && kind_name == other.kind_name && message == other.message &&
               subtype == other.subtype && position == other.position && name == other.name &&
               candidates == other.candidates;
    }
};

std::ostream& operator<<(std::ostream& out, const Facts& facts) {
    return out << facts.kind << " [" << facts.kind_name << "] [" << facts.message << "] [" << facts.subtype
               << "] " << facts.position << " [" << facts.name << "] [" << facts.candidates << "]";
}

/** What an action throws. */
struct Caught {
    std::string thrown = "none";
    std::string text;
    bool has_facts = false;
    Facts facts;
};

Facts Read(const I_DuckDBErrorFacts& facts) {
    return {static_cast<uint32_t>(facts.get_Kind()),
            U(facts.get_KindName()),
            U(facts.get_PlainMessage()),
            U(facts.get_Subtype()),
            facts.get_Position(),
            U(facts.get_Detail("name")),
            U(facts.get_Detail("candidates"))};
}

Caught Catch(const std::function<void()>& action) {
    Caught caught;
    try {
        action();
    } catch (const std::exception& error) {
        caught.thrown = DescribeCurrentException();
        if (const auto* of_duckdb = dynamic_cast<const nbx::mrsql::xDuckDBError*>(&error)) {
            caught.text = U(of_duckdb->get_Message());
        }
        if (const I_DuckDBErrorFacts* facts = nbx::mrsql::FindDuckDBErrorFacts(error)) {
            caught.has_facts = true;
            caught.facts = Read(*facts);
        }
    }
    return caught;
}

/** The same error from DuckDB's C API, and what its result and its JSON text state. */
class Oracle {
  public:
    Oracle() { engine_.Query("SET errors_as_json = true"); }
    void Run(const std::string& sql) { engine_.Query(sql); }
    Facts Fail(const std::string& sql) {
        mduckdb::ResultHolder result;
        EXPECT_EQ(duckdb_query(engine_.get(), sql.c_str(), result.Receive()), DuckDBError) << sql;
        const std::string text = duckdb_result_error(result.get());
        const nbx::Json json(text.substr(std::min(text.find('{'), text.size())).c_str());
        EXPECT_TRUE(json.isValid()) << text;
        const auto read = [&json](const char* name) { return U(json.get_JsonValue(name)); };
        const std::string position = read("position");
        return {static_cast<uint32_t>(duckdb_result_error_type(result.get())),
                read("exception_type"),
                read("exception_message"),
                read("error_subtype"),
                position.empty() ? -1 : std::stoll(position),
                read("name"),
                read("candidates")};
    }

  private:
    mduckdb::TestEngine engine_;
};

using nbx::mrsql::I_DuckDBDatabase;

struct Way {
    const char* name;
    void (*run)(I_DuckDBDatabase& database, const nbx::String& sql);
};

const Way kWays[] = {
    {"Script", [](I_DuckDBDatabase& d, const nbx::String& sql) { d.SqlExecute(sql, nullptr); }},
    {"Query", [](I_DuckDBDatabase& d,
                 const nbx::String& sql) { d.SqlQuery(sql, nbx::mrsql::kServerCursor, nullptr); }},
    {"ScriptWithParameters",
     [](I_DuckDBDatabase& d, const nbx::String& sql) {
         d.SqlExecute(sql, nbx::MakeObject<nbx::ValueRow>());
     }},
    {"ClientCursor", [](I_DuckDBDatabase& d,
                        const nbx::String& sql) { d.SqlSelect(sql, nbx::mrsql::kClientCursor, nullptr); }},
    {"Statement",
     [](I_DuckDBDatabase& d, const nbx::String& sql) {
         const auto statement = d.CreateStatement(sql);
         statement->PrepareNext();
         statement->Execute();
     }},
    {"StatementCursor",
     [](I_DuckDBDatabase& d, const nbx::String& sql) {
         const auto statement = d.CreateStatement(sql);
         statement->PrepareNext();
         statement->OpenCursor(nbx::mrsql::kClientCursor);
     }},
};

struct Case {
    const char* name;
    Kind kind;
    const char* sql;
    /** Run before, on both sides. */
    const char* setting = "SELECT 1";
};

const Case kCases[] = {
    {"Parser", Kind::parser, "SELECT 1 FRM t"},
    {"ParserWithoutAPosition", Kind::parser, "CREATE TABLE u (i INTEGER CHECK ((SELECT 1) = 1))"},
    {"Binder", Kind::binder, "SELECT 1, nam FROM t"},
    {"BinderOfAnAggregate", Kind::binder, "SELECT i FROM t WHERE sum(i) = 1"},
    {"Catalog", Kind::catalog, "SELECT 'Gr\u00f6\u00dfe', * FROM tt"},
    {"Constraint", Kind::constraint, "INSERT INTO t VALUES (1, 'again')"},
    {"Conversion", Kind::conversion, "SELECT 'Gr\u00f6\u00dfe'::INTEGER"},
    {"ConversionInTheRows", Kind::conversion, "SELECT name::INTEGER FROM t"},
    {"OutOfRange", Kind::out_of_range, "SELECT 127::TINYINT + i::TINYINT FROM t"},
    {"InvalidInput", Kind::invalid_input, "SELECT error('a \"quoted\" text')"},
    {"Io", Kind::io, "SELECT * FROM read_csv('/nowhere/missing.csv')"},
    {"Transaction", Kind::transaction, "COMMIT"},
    {"Dependency", Kind::dependency, "DROP SCHEMA filled"},
    {"Sequence", Kind::sequence, "SELECT currval('s')"},
    {"Syntax", Kind::syntax, "SET threads = -1"},
    {"Permission", Kind::permission, "SELECT * FROM read_csv('a.csv')", "SET enable_external_access = false"},
    {"MissingExtension", Kind::missing_extension, "SELECT * FROM 'https://localhost:1/a.parquet'",
     "SET autoload_known_extensions = false"},
    {"NotImplemented", Kind::not_implemented, "COMMENT ON SCHEMA main IS 'x'"},
    {"OutOfMemory", Kind::out_of_memory,
     "CREATE TABLE big AS SELECT repeat('x', 100000000) AS x FROM range(1000)", "SET memory_limit = '100MB'"},
};

void SetUpTables(const std::function<void(const std::string&)>& run) {
    run("CREATE TABLE t (i INTEGER PRIMARY KEY, name VARCHAR)");
    run("INSERT INTO t VALUES (1, 'one')");
    run("CREATE SCHEMA filled");
    run("CREATE TABLE filled.t (i INTEGER)");
    run("CREATE SEQUENCE s");
}

class DatabaseErrorFacts : public DatabaseTest {
  protected:
    void SetUp() override {
        DatabaseTest::SetUp();
        nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return true; };
        database = host.Created(":memory:");
        SetUpTables([&](const std::string& sql) { oracle.Run(sql); });
        SetUpTables([&](const std::string& sql) { Execute(*database, sql); });
    }
    void TearDown() override {
        database = nullptr;
        DatabaseTest::TearDown();
    }
    Caught Run(const std::string& sql) const {
        return Catch([&] { Execute(*database, sql); });
    }
    nbx::mrsql::I_DuckDBStreaming& get_Streaming() const {
        return *static_cast<nbx::mrsql::I_DuckDBStreaming*>(
            database->QueryInterface(nbx::mrsql::kDuckDBStreamingInterfaceId));
    }
    Oracle oracle;
    Database database;
};

class EachErrorFacts : public DatabaseErrorFacts, public testing::WithParamInterface<Case> {};

TEST_P(EachErrorFacts, AreWhatDuckDBStatesWhateverTheCall) {
    oracle.Run(GetParam().setting);
    Execute(*database, GetParam().setting);
    const Facts expected = oracle.Fail(GetParam().sql);
    EXPECT_EQ(expected.kind, static_cast<uint32_t>(GetParam().kind)) << expected;
    for (const Way& way : kWays) {
        const Caught caught = Catch([&] { way.run(*database, S(GetParam().sql)); });
        EXPECT_TRUE(caught.has_facts) << way.name << " " << caught.thrown;
        EXPECT_EQ(caught.facts, expected) << way.name;
    }
}

TEST_P(EachErrorFacts, HaveTheKindAndTheSubtypeAlsoWithoutJson) {
    oracle.Run(GetParam().setting);
    Execute(*database, GetParam().setting);
    const Facts expected = oracle.Fail(GetParam().sql);
    Execute(*database, "SET errors_as_json = false");
    for (const Way& way : kWays) {
        const Caught caught = Catch([&] { way.run(*database, S(GetParam().sql)); });
        EXPECT_EQ(caught.facts.kind, expected.kind) << way.name << " " << caught.thrown;
        // Of a text that it cannot parse, DuckDB keeps only its own text.
        EXPECT_EQ(caught.facts.subtype, GetParam().kind == Kind::parser ? "" : expected.subtype) << way.name;
        EXPECT_EQ(caught.facts.candidates, expected.candidates) << way.name;
        EXPECT_EQ(caught.text, caught.facts.kind_name + " Error: " + caught.facts.message) << way.name;
    }
}

INSTANTIATE_TEST_SUITE_P(Each, EachErrorFacts, testing::ValuesIn(kCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(DatabaseErrorFacts, HaveThePositionInTheWholeScript) {
    const std::string first = "SELECT 'Gr\u00f6\u00dfe';\n";
    const std::string second = "SELECT nam FROM t";
    EXPECT_EQ(Run(first + second).facts.position, static_cast<int64_t>((first + second).find("nam")));
    const auto statement = database->CreateStatement(S(first + second));
    statement->PrepareNext();
    const Caught caught = Catch([&] { statement->PrepareNext(); });
    EXPECT_EQ(caught.facts.position, static_cast<int64_t>((first + second).find("nam")));
}

TEST_F(DatabaseErrorFacts, OfAStreamAreThoseOfItsStartAndOfItsRows) {
    for (const std::string sql : {"SELECT nam FROM t", "SELECT 1 FRM t"}) {
        const Caught caught = Catch([&] { get_Streaming().OpenStream(S(sql), nullptr); });
        EXPECT_EQ(caught.facts.kind, oracle.Fail(sql).kind) << caught.thrown;
    }
    const std::string sql =
        "SELECT CASE WHEN i = 5000000 THEN 'x' ELSE '1' END::INTEGER FROM range(10000000) r(i)";
    const Facts expected = oracle.Fail(sql);
    const auto cursor = get_Streaming().OpenStream(S(sql), nullptr);
    for (int call = 0; call < 2; ++call) {
        const Caught caught = Catch([&] {
            while (cursor->NextRecord()) {
            }
        });
        EXPECT_EQ(caught.facts, expected) << caught.thrown;
    }
}

TEST_F(DatabaseErrorFacts, OfParametersAreThere) {
    const auto statement = database->CreateStatement(S("SELECT ?::INTEGER"));
    statement->PrepareNext();
    const Caught missing = Catch([&] { statement->Execute(); });
    EXPECT_EQ(missing.facts.kind, static_cast<uint32_t>(Kind::invalid_input)) << missing.thrown;
    EXPECT_EQ(missing.text == "Invalid Input Error: " + missing.facts.message,
              get_ExpectedByVersion().has_plain_parameter_errors)
        << missing.text;
    const Caught too_many = Catch([&] { statement->BindInteger(2, 1); });
    EXPECT_EQ(too_many.facts.kind, static_cast<uint32_t>(Kind::invalid_input)) << too_many.thrown;
    const Caught impossible = Catch([&] { statement->BindDate(1, 2024, 13, 45); });
    EXPECT_EQ(impossible.facts.kind, static_cast<uint32_t>(Kind::conversion)) << impossible.thrown;
    statement->BindVarchar(1, S("x"));
    const Caught conversion = Catch([&] { statement->Execute(); });
    EXPECT_EQ(conversion.facts.kind, static_cast<uint32_t>(Kind::conversion)) << conversion.thrown;
    const std::string_view text = "x";
    auto row = nbx::MakeObject<nbx::ValueRow>();
    row->Append(nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueString(true, &text, nullptr)));
    const Caught in_a_script = Catch([&] { database->SqlExecute(S("SELECT ?::INTEGER"), row); });
    EXPECT_EQ(in_a_script.facts, conversion.facts) << in_a_script.thrown;
}

TEST_F(DatabaseErrorFacts, OfADatabaseThatCannotBeOpenedAreThoseOfDuckDBsText) {
    const auto folder_of_files = host.Database(folder / ".");
    const Caught caught = Catch([&] { folder_of_files->Open(); });
    EXPECT_EQ(caught.thrown.find("xException 99000 [IO Error: "), 0u) << caught.thrown;
    EXPECT_EQ(caught.facts.kind, static_cast<uint32_t>(Kind::io));
    EXPECT_EQ("xException 99000 [IO Error: " + caught.facts.message + "]", caught.thrown);
}

TEST_F(DatabaseErrorFacts, OfAnInterruptAreItsKind) {
    const auto cursor = get_Streaming().OpenStream(S("SELECT i FROM range(1000000000000) r(i)"), nullptr);
    database->Interrupt();
    const Caught caught = Catch([&] { cursor->NextRecord(); });
    EXPECT_EQ(caught.thrown, "xInterruptError 57501");
    EXPECT_EQ(caught.facts.kind, static_cast<uint32_t>(DUCKDB_ERROR_INTERRUPT));
    EXPECT_EQ(caught.facts.kind_name, "INTERRUPT");
}

TEST_F(DatabaseErrorFacts, AreMissingInErrorsOfTheLibraryItself) {
    const Caught caught =
        Catch([&] { database->SqlSelect(S("SELECT 1; SELECT 2"), nbx::mrsql::kServerCursor, nullptr); });
    EXPECT_EQ(caught.thrown, Refusal(":memory:", "Query doesn't return a single result"));
    EXPECT_FALSE(caught.has_facts);
}

TEST_F(DatabaseErrorFacts, AreNotTakenFromAMessageOfTheUsers) {
    const std::string message = R"({"exception_type":"Parser","exception_message":"m","position":"3"})";
    const Caught caught = Run("SELECT error('" + message + "')");
    EXPECT_EQ(caught.facts.kind, static_cast<uint32_t>(Kind::invalid_input)) << caught.thrown;
    EXPECT_EQ(caught.facts.message, message);
    EXPECT_EQ(caught.facts.position, -1);
}

TEST_F(DatabaseErrorFacts, LeaveTheExceptionAsHostsKnowIt) {
    try {
        Execute(*database, "SELECT nam FROM t");
        FAIL();
    } catch (const nbx::mrsql::xDuckDBError& error) {
        // A host that was built without facts finds its own part where it is in an exception without facts.
        EXPECT_EQ(static_cast<const void*>(&error), dynamic_cast<const void*>(&error));
        const nbx::mrsql::xDuckDBError copy = error;
        EXPECT_EQ(nbx::mrsql::FindDuckDBErrorFacts(copy), nullptr);
        EXPECT_STREQ(copy.what(), error.what());
        EXPECT_EQ(U(copy.get_Message()), U(error.get_Message()));
        EXPECT_TRUE(error.get_Text(2).isEmpty());
        EXPECT_TRUE(error.get_Text(3).isEmpty());
    }
}

TEST_F(DatabaseErrorFacts, OutliveTheDatabase) {
    std::exception_ptr kept;
    try {
        Execute(*database, "SELECT nam FROM t");
    } catch (...) {
        kept = std::current_exception();
    }
    database = nullptr;
    const Caught caught = Catch([&] { std::rethrow_exception(kept); });
    EXPECT_EQ(caught.facts, oracle.Fail("SELECT nam FROM t"));
}

}  // namespace
