#include "time_values.h"

namespace nbx {

void* DateValue::QueryInterface(uint32_t interface_id) {
    return interface_id == kDateInterfaceId ? static_cast<I_DateValue*>(this) : nullptr;
}

void DateValue::put_Text(String content) {
    const std::optional<DateContent> date = ParseDate(content);
    if (!date) {
        ThrowBadContent(get_TypeCode(), content);
    }
    content_ = *date;
    MarkNotNull();
}

void* TimeValue::QueryInterface(uint32_t interface_id) {
    return interface_id == kTimeInterfaceId ? static_cast<I_TimeValue*>(this) : nullptr;
}

void TimeValue::put_Text(String content) {
    const std::optional<TimeContent> time = ParseTime(content);
    if (!time) {
        ThrowBadContent(get_TypeCode(), content);
    }
    content_ = *time;
    MarkNotNull();
}

void* DateTimeValue::QueryInterface(uint32_t interface_id) {
    return interface_id == kDateTimeInterfaceId ? static_cast<I_DateTimeValue*>(this) : nullptr;
}

void DateTimeValue::put_Text(String content) {
    const std::optional<DateTimeContent> date_time = ParseDateTime(content);
    if (!date_time) {
        ThrowBadContent(get_TypeCode(), content);
    }
    content_ = *date_time;
    MarkNotNull();
}

}  // namespace nbx
