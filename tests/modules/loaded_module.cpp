#include "modules/loaded_module.h"

#include <dlfcn.h>

#include <optional>
#include <stdexcept>

#include "nbx/mrsql/registry.h"

nbx::smart_ptr<nbx::I_Location> Location(const std::string& path) {
    return nbx::CreateLocation(nbx::FromUtf8(path));
}

namespace {

using Procedures = std::map<std::string, mirona_procedure_handler>;

/** What the handles of a call refer to. Arguments are texts; a value that the module makes is its call. */
struct RunningCall {
    const std::vector<std::string>& arguments;
    std::optional<mirona_cursor_def> cursor{};
    uint64_t table_rows = 0;
    std::vector<std::string> errors{};
};

RunningCall& CallOf(void* handle) {
    return *static_cast<RunningCall*>(handle);
}

template <class... Arguments>
void FillMaker(mirona_value (*&maker)(mirona_call, Arguments...)) {
    maker = [](mirona_call call, Arguments...) -> mirona_value { return call; };
}

void FillMakers(mirona_extension_api& api) {
    FillMaker(api.make_blob_value);
    FillMaker(api.make_bool_value);
    FillMaker(api.make_date_value);
    FillMaker(api.make_datetime_value);
    FillMaker(api.make_double_value);
    FillMaker(api.make_int_value);
    FillMaker(api.make_text_value);
    FillMaker(api.make_time_value);
    FillMaker(api.make_uint_value);
}

void FillReaders(mirona_extension_api& api) {
    api.value_is_null = [](mirona_value) { return false; };
    api.value_type = [](mirona_value) { return uint32_t{MIRONA_TYPE_TEXT}; };
    api.array_length = [](mirona_value) { return uint32_t{0}; };
    api.array_element = [](mirona_value, uint64_t) -> mirona_value { return nullptr; };
    api.value_int64 = [](mirona_value) { return int64_t{0}; };
    api.value_uint64 = [](mirona_value) { return uint64_t{0}; };
    api.value_text = [](mirona_call, mirona_value value, uint64_t* length) {
        const auto& text = *static_cast<const std::string*>(value);
        *length = text.size();
        return text.c_str();
    };
}

void FillCalls(mirona_extension_api& api) {
    api.register_procedure = [](mirona_host host, const mirona_procedure_def* def) {
        (*static_cast<Procedures*>(host))[def->name] = def->handler;
        return uint32_t{0};
    };
    api.arg_count = [](mirona_call call) { return static_cast<uint32_t>(CallOf(call).arguments.size()); };
    api.report_error = [](void* call, const char* text, uint64_t length) {
        CallOf(call).errors.emplace_back(text, length);
    };
    api.create_cursor = [](mirona_call call, const mirona_cursor_def* def, mirona_cursor* out) {
        CallOf(call).cursor = *def;
        *out = call;
        return uint32_t{0};
    };
    api.create_table_cursor = [](mirona_call call, uint64_t, uint64_t rows, const char* const*,
                                 const mirona_value*, mirona_cursor* out) {
        CallOf(call).table_rows = rows;
        *out = call;
        return uint32_t{0};
    };
}

const mirona_extension_api& GetTable() {
    static const mirona_extension_api kTable = [] {
        mirona_extension_api api{};
        FillCalls(api);
        FillMakers(api);
        FillReaders(api);
        return api;
    }();
    return kTable;
}

uint64_t ReadRows(RunningCall& call, uint64_t most_rows) {
    const mirona_cursor_def& cursor = *call.cursor;
    uint64_t rows = 0;
    while (rows < most_rows && cursor.next_row(cursor.state) == MIRONA_ROW_OK) {
        ++rows;
        for (uint32_t column = 0; column < cursor.column_count; ++column) {
            cursor.get_value(&call, cursor.state, static_cast<int32_t>(column));
        }
    }
    cursor.close(cursor.state);
    return rows;
}

template <class Function>
Function Find(void* module, const char* name) {
    void* const address = dlsym(module, name);
    if (address == nullptr) {
        throw std::runtime_error(dlerror());
    }
    return reinterpret_cast<Function>(address);
}

}  // namespace

LoadedModule::LoadedModule(const std::string& file) : module_(dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (module_ == nullptr) {
        throw std::runtime_error(dlerror());
    }
    Find<decltype(&mirona_extension_bind_api)>(module_, "mirona_extension_bind_api")(&GetTable());
    Find<decltype(&mirona_extension_init)>(module_, "mirona_extension_init")(&procedures_);
    extension_ = nbx::mrsql::GetDuckDBExtension();
    nbx::mrsql::SetDuckDBExtension(nullptr);
}

void LoadedModule::Unload() {
    procedures_.clear();
    extension_ = nullptr;
    if (dlclose(module_) != 0) {
        throw std::runtime_error(dlerror());
    }
}

LoadedModule::Outcome LoadedModule::Call(const std::string& procedure,
                                         const std::vector<std::string>& arguments,
                                         uint64_t most_rows) const {
    RunningCall call{arguments};
    std::vector<mirona_value> handles;
    for (const std::string& argument : arguments) {
        handles.push_back(const_cast<std::string*>(&argument));
    }
    if (procedures_.at(procedure)(&call, handles.data()) == nullptr) {
        return {0, call.errors};
    }
    const uint64_t rows = call.cursor ? ReadRows(call, most_rows) : call.table_rows;
    return {rows, call.errors};
}
