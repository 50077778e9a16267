#include "module_probe.h"

#include <utf8.h>

#include <dlfcn.h>

#include <stdexcept>

#include "data/datum.h"
#include "nbx/exception.h"
#include "nbx/json.h"
#include "nbx/mrsql/registry.h"
#include "support/kind_names.h"

namespace mduckdb_docs {

std::string Code(const std::string& text) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string code;
    std::string bytes;
    bool is_shown = utf8::is_valid(text.begin(), text.end());
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        is_shown = is_shown && byte >= 0x20;
        code += character == '|' ? "\\|" : std::string(1, character);
        bytes += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return text.empty() ? "(empty)" : is_shown ? "`" + code + "`" : "(bytes " + bytes + ")";
}

LoadedModule::LoadedModule(const std::string& file) {
    void* const module = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) {
        throw std::runtime_error(dlerror());
    }
    const auto bind_api =
        reinterpret_cast<decltype(&mirona_extension_bind_api)>(dlsym(module, "mirona_extension_bind_api"));
    const auto init =
        reinterpret_cast<decltype(&mirona_extension_init)>(dlsym(module, "mirona_extension_init"));
    if (bind_api == nullptr || init == nullptr) {
        throw std::runtime_error(file + " lacks an export");
    }
    bind_api(&mduckdb_host::GetFunctionTable());
    init(static_cast<mduckdb_host::ErrorTarget*>(&registry_));
    if (registry_.Find("fetch_duckdb") == nullptr) {
        throw std::runtime_error(file + " registered no fetch_duckdb");
    }
}

std::string LoadedModule::FetchCell(const std::string& database_file, const std::string& table) const {
    mduckdb_host::ProcedureCall call(*registry_.Find("fetch_duckdb"),
                                     {mduckdb_host::Datum{database_file}, mduckdb_host::Datum{table}});
    mduckdb_host::HostCursor* const cursor = call.Run();
    if (cursor == nullptr) {
        return "error: " + call.get_Error();
    }
    mduckdb_host::Row row;
    if (!cursor->NextRow(row) || row.size() != 1) {
        throw std::runtime_error(table + " is not one cell");
    }
    const std::string type = mduckdb_host::get_HostTypeName(cursor->get_Columns().front().host_type);
    return Code(type) + " " + (row[0].get_IsNull() ? "null" : Code(mduckdb_host::ToText(row[0])));
}

std::string ErrorText(const std::exception& error) {
    const auto* duckdb_error = dynamic_cast<const nbx::mrsql::xDuckDBError*>(&error);
    if (duckdb_error == nullptr) {
        return error.what();
    }
    const nbx::Json json(ToUtf8(duckdb_error->get_Message()).c_str());
    return ToUtf8(json.isValid() ? json.get_JsonValue("exception_message") : duckdb_error->get_Message());
}

DatabaseProbe::DatabaseProbe(const std::string& file) {
    const auto location = nbx::CreateLocation(FromUtf8(file));
    database_ = nbx::mrsql::GetDuckDBExtension()->CreateDatabase(location);
    // Files of older formats cannot hold a VARIANT.
    database_->put_StorageVersion(FromUtf8("latest"));
    database_->Create();
}

DatabaseProbe::~DatabaseProbe() {
    database_->Close();
}

void DatabaseProbe::Run(const std::string& sql) {
    database_->SqlExecute(FromUtf8(sql), nullptr);
}

Answer DatabaseProbe::Select(const std::string& sql, smart_ptr<nbx::I_Value> parameter) {
    return Ask([&] {
        smart_ptr<nbx::ValueRow> row;
        if (parameter) {
            row = nbx::MakeObject<nbx::ValueRow>();
            row->Append(parameter);
        }
        // Both kinds of cursor must return the same.
        const auto server = database_->SqlSelect(FromUtf8(sql), nbx::mrsql::kServerCursor, row);
        server->NextRecord();
        const auto client = database_->SqlSelect(FromUtf8(sql), nbx::mrsql::kClientCursor, row);
        client->FirstRecord();
        const auto streamed = server->get_Value(0);
        const auto kept = client->get_Value(0);
        if (streamed->get_TypeCode() != kept->get_TypeCode() || streamed->get_Text() != kept->get_Text()) {
            throw std::logic_error("the cursors differ");
        }
        return client;
    });
}

Answer DatabaseProbe::ReadOnlyCell(nbx::mrsql::I_DuckDBCursor& cursor) {
    if (cursor.get_RecordCount() != 1 || cursor.get_ColumnCount() != 1) {
        throw std::runtime_error("not one cell");
    }
    cursor.FirstRecord();
    Answer answer;
    answer.value = cursor.get_Value(0);
    answer.kind = mduckdb::KindName(answer.value->get_TypeCode());
    answer.text = answer.value->get_IsNull() ? "null" : ToUtf8(answer.value->get_Text());
    return answer;
}

}  // namespace mduckdb_docs
