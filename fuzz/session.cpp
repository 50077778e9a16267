#include "session.h"

#include "base/text.h"
#include "extension/extension.h"
#include "nbx/hooks.h"
#include "nbx/location.h"
#include "nbx/mrsql/duckdb_deadlines.h"

namespace fuzz {

using nbx::mrsql::I_DuckDBCursor;
using nbx::mrsql::I_DuckDBDeadlines;

Session::Session(uint64_t time_limit_ms)
    : database_(mduckdb::MakeExtension()->CreateDatabase(nbx::CreateLocation(Text(":memory:")))) {
    // A host that is called by itself; without the hook there are no interrupts.
    nbx::mrsql::gpIsLocalSqlCall_PTR = [] { return false; };
    static_cast<I_DuckDBDeadlines*>(database_->QueryInterface(nbx::mrsql::kDuckDBDeadlinesInterfaceId))
        ->put_TimeLimit(time_limit_ms);
    Open();
}

Session::~Session() {
    database_->Close();
}

Session& Session::Shared() {
    static Session session;
    return session;
}

void Session::Open() {
    nbx::mrsql::DuckDBDatabaseOptions options;
    options.threads = 1;
    options.max_memory_mb = 200;
    options.enable_external_access = false;
    database_->put_Options(options);
    database_->Open();
}

void Session::ReopenAfter(const nbx::xException& error) {
    for (std::size_t i = 0; i < nbx::xException::kTextCount; ++i) {
        const std::string text = mduckdb::ToUtf8(error.get_Text(i));
        if (text.find("INTERNAL") != std::string::npos || text.find("FATAL") != std::string::npos) {
            Open();
            return;
        }
    }
}

smart_ptr<I_DuckDBCursor> Session::Select(std::string_view sql, uint32_t location, const Value& parameter) {
    return database_->SqlSelect(Text(sql), location, MakeRow(parameter));
}

nbx::String Session::Text(std::string_view utf8) {
    return mduckdb::FromUtf8(utf8);
}

uint64_t ReadAll(I_DuckDBCursor& cursor, uint64_t most) {
    uint64_t rows = 0;
    while (rows < most && cursor.NextRecord()) {
        ++rows;
        for (uint32_t column = 0; column < cursor.get_ColumnCount(); ++column) {
            mduckdb::ToUtf8(cursor.get_Value(column)->get_Text());
        }
    }
    return rows;
}

Value Adopt(nbx::I_Value* value) {
    return Value::Adopt(value);
}

Value MakeText(std::string_view utf8) {
    return Adopt(nbx::CreateValueString(true, &utf8, nullptr));
}

Value MakeJson(std::string_view utf8) {
    return Adopt(nbx::CreateValueJSON(true, &utf8, nullptr));
}

smart_ptr<nbx::ValueRow> MakeRow(const Value& value) {
    auto row = nbx::MakeObject<nbx::ValueRow>();
    row->Append(value);
    return row;
}

}  // namespace fuzz
