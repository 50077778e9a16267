#include "support/test_host.h"

#include <cstdio>

#include "base/text.h"
#include "extension/extension.h"
#include "nbx/hooks.h"
#include "nbx/mrsql/registry.h"

using nbx::mrsql::I_DuckDBDatabase;

TestHost::TestHost()
    : extension_(mduckdb::MakeExtension()),
      is_local_call_(nbx::mrsql::gpIsLocalSqlCall_PTR),
      create_backup_(nbx::mrsql::gCreateBackupLocation),
      server_backup_(nbx::mrsql::gServerBackupLocation) {
    nbx::mrsql::SetDuckDBExtension(extension_);
}

TestHost::~TestHost() {
    nbx::mrsql::gpIsLocalSqlCall_PTR = is_local_call_;
    nbx::mrsql::gCreateBackupLocation = create_backup_;
    nbx::mrsql::gServerBackupLocation = server_backup_;
    nbx::mrsql::SetLocalSqlCancellationAllowed(true);
    nbx::mrsql::SetDuckDBExtension(nullptr);
}

nbx::smart_ptr<I_DuckDBDatabase> TestHost::Database(const std::string& path) const {
    return extension_->CreateDatabase(Location(path));
}

nbx::smart_ptr<I_DuckDBDatabase> TestHost::Created(const std::string& path) const {
    auto database = Database(path);
    database->Create();
    return database;
}

nbx::smart_ptr<I_DuckDBDatabase> TestHost::Opened(const std::string& path) const {
    auto database = Database(path);
    database->Open();
    return database;
}

nbx::String S(const std::string& utf8) {
    return mduckdb::FromUtf8(utf8);
}

std::string U(const nbx::String& text) {
    return mduckdb::ToUtf8(text);
}

nbx::smart_ptr<nbx::I_Location> Location(const std::string& path) {
    return nbx::CreateLocation(S(path));
}

int64_t Execute(I_DuckDBDatabase& database, const std::string& sql) {
    return database.SqlExecute(S(sql), nullptr);
}

std::string QueryText(I_DuckDBDatabase& database, const std::string& sql) {
    const auto cursor = database.SqlSelect(S(sql), nbx::mrsql::kClientCursor, nullptr);
    if (!cursor->FirstRecord()) {
        return "no row";
    }
    const auto value = cursor->get_Value(0);
    return value->get_IsNull() ? "null" : U(value->get_Text());
}

namespace {

std::string Describe(const char* name, const nbx::xException& exception) {
    char code[16];
    std::snprintf(code, sizeof code, "%X", exception.get_Code());
    std::string text = std::string(name) + " " + code;
    std::size_t count = nbx::xException::kTextCount;
    while (count > 0 && exception.get_Text(count - 1).isEmpty()) {
        --count;
    }
    for (std::size_t i = 0; i < count; ++i) {
        text += " [" + U(exception.get_Text(i)) + "]";
    }
    return text;
}

}  // namespace

std::string DescribeCurrentException() {
    try {
        throw;
    } catch (const nbx::mrsql::xDuckDBError& e) {
        return Describe("xDuckDBError", e);
    } catch (const nbx::xInterruptError& e) {
        return Describe("xInterruptError", e);
    } catch (const nbx::xDBError& e) {
        return Describe("xDBError", e);
    } catch (const nbx::xFeatureError& e) {
        return Describe("xFeatureError", e);
    } catch (const nbx::xException& e) {
        return Describe("xException", e);
    } catch (const std::exception& e) {
        return std::string("std: ") + e.what();
    } catch (...) {
        return "unknown";
    }
}
