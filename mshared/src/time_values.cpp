#include <optional>

#include "value_core.h"

namespace nbx {
namespace {

/** Dates. The content is not checked against the calendar: DuckDB and the host have checked theirs, and a
    value must return what it was given. A null value reads as the empty text, not as a date of zeros. */
class DateValue final : public TextLikeValue<DateValue>, public I_DateValue {
  public:
    DateValue(bool is_nullable, const DateContent& content) noexcept
        : TextLikeValue(static_cast<uint32_t>(ValueType::Date), is_nullable), content_(content) {}

    void* QueryInterface(uint32_t interface_id) override;
    String get_Text() const override { return get_IsNull() ? String() : DateText(content_); }
    void put_Text(String content) override;

    int32_t get_Year() const override { return content_.year; }
    uint8_t get_Month() const override { return content_.month; }
    uint8_t get_Day() const override { return content_.day; }
    void put_Date(int32_t year, uint8_t month, uint8_t day) override {
        content_ = {year, month, day};
        MarkNotNull();
    }

    void Clear() noexcept { content_ = {}; }

  private:
    DateContent content_;
};

/** Times of day, in milliseconds: the host's type has no finer parts. */
class TimeValue final : public TextLikeValue<TimeValue>, public I_TimeValue {
  public:
    TimeValue(bool is_nullable, const TimeContent& content) noexcept
        : TextLikeValue(static_cast<uint32_t>(ValueType::Time), is_nullable), content_(content) {}

    void* QueryInterface(uint32_t interface_id) override;
    String get_Text() const override { return get_IsNull() ? String() : TimeText(content_); }
    void put_Text(String content) override;

    uint8_t get_Hours() const override { return content_.hours; }
    uint8_t get_Minutes() const override { return content_.minutes; }
    uint8_t get_Seconds() const override { return content_.seconds; }
    uint16_t get_Milliseconds() const override { return content_.milliseconds; }
    void put_Time(uint8_t hours, uint8_t minutes, uint8_t seconds, uint16_t milliseconds) override {
        content_ = {hours, minutes, seconds, milliseconds};
        MarkNotNull();
    }

    void Clear() noexcept { content_ = {}; }

  private:
    TimeContent content_;
};

/** Dates with a time of day, without a time zone. A text may have only the date, which means midnight. */
class DateTimeValue final : public TextLikeValue<DateTimeValue>, public I_DateTimeValue {
  public:
    DateTimeValue(bool is_nullable, const DateTimeContent& content) noexcept
        : TextLikeValue(static_cast<uint32_t>(ValueType::DateTime), is_nullable), content_(content) {}

    void* QueryInterface(uint32_t interface_id) override;
    String get_Text() const override { return get_IsNull() ? String() : DateTimeText(content_); }
    void put_Text(String content) override;

    int32_t get_Year() const override { return content_.date.year; }
    uint8_t get_Month() const override { return content_.date.month; }
    uint8_t get_Day() const override { return content_.date.day; }
    uint8_t get_Hours() const override { return content_.time.hours; }
    uint8_t get_Minutes() const override { return content_.time.minutes; }
    uint8_t get_Seconds() const override { return content_.time.seconds; }
    uint16_t get_Milliseconds() const override { return content_.time.milliseconds; }
    void put_DateTime(int32_t year, uint8_t month, uint8_t day, uint8_t hours, uint8_t minutes,
                      uint8_t seconds, uint16_t milliseconds) override {
        content_ = {{year, month, day}, {hours, minutes, seconds, milliseconds}};
        MarkNotNull();
    }

    void Clear() noexcept { content_ = {}; }

  private:
    DateTimeContent content_;
};

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

}  // namespace

I_Value* CreateValueDate(bool nullable, const void* content, const void* /*extra*/) {
    return new DateValue(nullable, ContentOf<DateContent>(content));
}

I_Value* CreateValueTime(bool nullable, const void* content, const void* /*extra*/) {
    return new TimeValue(nullable, ContentOf<TimeContent>(content));
}

I_Value* CreateValueDateTime(bool nullable, const void* content, const void* /*extra*/) {
    return new DateTimeValue(nullable, ContentOf<DateTimeContent>(content));
}

}  // namespace nbx
