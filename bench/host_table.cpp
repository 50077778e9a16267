#include "host_table.h"

#include <map>
#include <string_view>

#include "measure.h"

namespace bench {
namespace {

std::map<std::string, mirona_procedure_handler>& Procedures() {
    static std::map<std::string, mirona_procedure_handler> procedures;
    return procedures;
}

/** One procedure call; the handle that the module sees. */
struct Call {
    const std::vector<std::string>* arguments = nullptr;
    mirona_cursor_def* cursor = nullptr;
};

uint32_t RegisterProcedure(mirona_host /*host*/, const mirona_procedure_def* def) {
    Procedures()[def->name] = def->handler;
    return 0;
}

uint32_t ArgCount(mirona_call call) {
    return static_cast<uint32_t>(static_cast<Call*>(call)->arguments->size());
}

void ReportError(void* /*call_or_host*/, const char* text, uint64_t length) {
    Die(std::string(text, length));
}

uint32_t CreateCursor(mirona_call call, const mirona_cursor_def* def, mirona_cursor* out) {
    *static_cast<Call*>(call)->cursor = *def;
    *out = call;
    return 0;
}

template <class T>
mirona_value Make(nbx::I_Value* (*factory)(bool, const void*, const void*), T content) {
    return factory(false, &content, nullptr);
}

mirona_value MakeBlob(mirona_call, const void* bytes, uint32_t length, uint32_t) {
    return Make(nbx::CreateValueFixedBinary, std::string_view(static_cast<const char*>(bytes), length));
}
mirona_value MakeBool(mirona_call, uint8_t content) {
    return Make(nbx::CreateValueBoolean, content != 0);
}
mirona_value MakeDate(mirona_call, uint32_t packed) {
    return Make(nbx::CreateValueDate,
                nbx::DateContent{static_cast<int32_t>(packed) >> 9, static_cast<uint8_t>(packed >> 5 & 15),
                                 static_cast<uint8_t>(packed & 31)});
}
mirona_value MakeUnsigned(mirona_call, uint64_t content) {
    return Make(nbx::CreateValueULLong, content);
}
mirona_value MakeTime(mirona_call, uint32_t packed) {
    return Make(nbx::CreateValueULong, packed);
}
mirona_value MakeDouble(mirona_call, double content) {
    return Make(nbx::CreateValueDouble, content);
}
mirona_value MakeInt(mirona_call, int64_t content) {
    return Make(nbx::CreateValueLLong, content);
}
mirona_value MakeText(mirona_call, const char* text, uint32_t length, uint32_t) {
    return Make(nbx::CreateValueString, std::string_view(text, length));
}

bool ValueIsNull(mirona_value value) {
    return value == nullptr;
}
uint32_t ValueType(mirona_value) {
    return MIRONA_TYPE_TEXT;
}
const char* ValueText(mirona_call, mirona_value value, uint64_t* length) {
    const auto* text = static_cast<const std::string*>(value);
    *length = text->size();
    return text->data();
}

mirona_extension_api MakeTable() {
    mirona_extension_api table{};
    table.register_procedure = RegisterProcedure;
    table.arg_count = ArgCount;
    table.report_error = ReportError;
    table.create_cursor = CreateCursor;
    table.make_blob_value = MakeBlob;
    table.make_bool_value = MakeBool;
    table.make_date_value = MakeDate;
    table.make_datetime_value = MakeUnsigned;
    table.make_double_value = MakeDouble;
    table.make_int_value = MakeInt;
    table.make_text_value = MakeText;
    table.make_time_value = MakeTime;
    table.make_uint_value = MakeUnsigned;
    table.value_is_null = ValueIsNull;
    table.value_type = ValueType;
    table.value_text = ValueText;
    return table;
}

}  // namespace

const mirona_extension_api& GetHostTable() {
    static const mirona_extension_api table = MakeTable();
    return table;
}

mirona_procedure_handler FindProcedure(const std::string& name) {
    const auto found = Procedures().find(name);
    return found == Procedures().end() ? nullptr : found->second;
}

void CallProcedure(mirona_procedure_handler handler, const std::vector<std::string>& arguments,
                   mirona_cursor_def& def) {
    std::vector<std::string> texts = arguments;
    std::vector<mirona_value> handles;
    handles.reserve(texts.size());
    for (std::string& text : texts) {
        handles.push_back(&text);
    }
    Call call{&texts, &def};
    if (handler(&call, handles.data()) == nullptr) {
        Die("the procedure gave no cursor");
    }
}

}  // namespace bench
