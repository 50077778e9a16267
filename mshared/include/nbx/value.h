#pragma once

#include <cstdint>

#include "nbx/array.h"
#include "nbx/export.h"
#include "nbx/string.h"
#include "nbx/unknown.h"

namespace nbx {

/** Type codes of host values. Codes without a name here belong to host types that travel as text. */
enum class ValueType : uint32_t {
    Boolean = 2,
    Byte = 3,
    Short = 4,
    UShort = 5,
    Medium = 6,
    UMedium = 7,
    Long = 8,
    ULong = 9,
    LLong = 10,
    ULLong = 11,
    Float = 12,
    Double = 13,
    LDouble = 14,
    Currency = 15,
    Date = 16,
    Time = 17,
    DateTime = 18,
    String = 20,
    FixedBinary = 21,
    VarBinary = 22,
    Blob = 23,
    Picture = 25,
    Enum8 = 33,
    Enum16 = 34,
    JSON = 36,
    Reference = 38,
    Array = 39,
};

/** Numbers of the interfaces that a value may offer through `QueryInterface`. */
enum ValueInterfaceId : uint32_t {
    kRawBytesInterfaceId = 2202,
    kDateInterfaceId = 2203,
    kDateTimeInterfaceId = 2204,
    kTimeInterfaceId = 2205,
    kReferenceInterfaceId = 2211,
    kArrayInterfaceId = 2212,
    kJSONInterfaceId = 2213,
};

/** A host value: a type, a null flag and a content. A new value is not null. Reading converts: a
    number from text is the number the text starts with, a text from a number its decimal digits;
    reading a null value gives zero or the empty text. So does storing: a number that the value cannot
    hold becomes the nearest one that it can; text that is no date, no time or no hexadecimal bytes is
    refused by a value of that type with `xException`. A reference stores into its inner value. Not for
    use by two threads at once when one of them changes it; references may be taken and given back from
    any thread. */
class NBX_API I_Value : public I_Unknown {
  public:
    virtual uint32_t get_TypeCode() const = 0;
    virtual bool get_IsNullable() const = 0;
    virtual bool get_IsNull() const = 0;
    /** Setting a value that may not be null to null throws `xException`. Storing a content clears the
        flag. */
    virtual void put_IsNull(bool is_null) = 0;

    virtual bool get_Boolean() const = 0;
    virtual int64_t get_LLong() const = 0;
    virtual uint64_t get_ULLong() const = 0;
    virtual double get_Double() const = 0;
    /** Numbers in decimal, `true` and `false`, dates as 2024-01-31, times as 12:34:56.789, bytes in
        hexadecimal, arrays as JSON. */
    virtual String get_Text() const = 0;

    virtual void put_Boolean(bool content) = 0;
    virtual void put_LLong(int64_t content) = 0;
    virtual void put_ULLong(uint64_t content) = 0;
    virtual void put_Double(double content) = 0;
    virtual void put_Text(String content) = 0;
};

/** The raw bytes of a binary value. */
class NBX_API I_RawBytes {
  public:
    virtual ~I_RawBytes();
    virtual uint64_t get_DeclaredSize() const = 0;
    virtual uint64_t get_Length() const = 0;
    /** Copies the first `count` bytes, at most `get_Length`, to `buffer`. */
    virtual void CopyTo(void* buffer, uint64_t count) const = 0;
    /** The bytes in place, good until the value is changed or destroyed. */
    virtual const void* get_Data() const = 0;
    virtual void put_Bytes(const void* data, uint64_t length) = 0;
};

class NBX_API I_DateValue {
  public:
    virtual ~I_DateValue();
    virtual int32_t get_Year() const = 0;
    virtual uint8_t get_Month() const = 0;
    virtual uint8_t get_Day() const = 0;
    virtual void put_Date(int32_t year, uint8_t month, uint8_t day) = 0;
};

class NBX_API I_TimeValue {
  public:
    virtual ~I_TimeValue();
    virtual uint8_t get_Hours() const = 0;
    virtual uint8_t get_Minutes() const = 0;
    virtual uint8_t get_Seconds() const = 0;
    virtual uint16_t get_Milliseconds() const = 0;
    virtual void put_Time(uint8_t hours, uint8_t minutes, uint8_t seconds, uint16_t milliseconds) = 0;
};

class NBX_API I_DateTimeValue {
  public:
    virtual ~I_DateTimeValue();
    virtual int32_t get_Year() const = 0;
    virtual uint8_t get_Month() const = 0;
    virtual uint8_t get_Day() const = 0;
    virtual uint8_t get_Hours() const = 0;
    virtual uint8_t get_Minutes() const = 0;
    virtual uint8_t get_Seconds() const = 0;
    virtual uint16_t get_Milliseconds() const = 0;
    virtual void put_DateTime(int32_t year, uint8_t month, uint8_t day, uint8_t hours, uint8_t minutes,
                              uint8_t seconds, uint16_t milliseconds) = 0;
};

/** A value that stands for another one. */
class NBX_API I_ReferenceValue {
  public:
    virtual ~I_ReferenceValue();
    /** The inner value, or null. */
    virtual smart_ptr<I_Value> get_Inner() const = 0;
    virtual void put_Inner(smart_ptr<I_Value> inner) = 0;
};

/** A value that holds an array of values, each possibly a null pointer. */
class NBX_API I_ArrayValue {
  public:
    virtual ~I_ArrayValue();
    /** The declared type code of the elements. */
    virtual uint32_t get_ElementTypeCode() const = 0;
    virtual uint64_t get_Count() const = 0;
    /** `index` must be below the count. */
    virtual smart_ptr<I_Value> get_Element(uint64_t index) const = 0;
    virtual void Append(smart_ptr<I_Value> element) = 0;
};

/** A value whose content is JSON text. */
class NBX_API I_JSONValue {
  public:
    virtual ~I_JSONValue();
    /** Whether the text is one JSON object. */
    virtual bool get_IsObject() const = 0;
    /** Whether the outermost object has the member; false when the text is no object. */
    virtual bool HasMember(const char* key) const = 0;
    /** A member of the outermost object: a text as a String value, true and false as a Boolean, null as
        a null Boolean, a number as a String value with the digits that stand in the text, nested
        content as a JSON value; a null pointer when it is missing. Of members that occur twice the
        last one counts. */
    virtual smart_ptr<I_Value> get_Member(const char* key) const = 0;
};

/** Row of values, and row set. */
using ValueRow = ArrayOfSmartPtrs<smart_ptr<I_Value>>;
using ValueRows = ArrayOfSmartPtrs<smart_ptr<ValueRow>>;

/** Factories. Each makes a value with one reference for the caller, which may be set to null when
    `nullable` is true. `content`, when it is not null, points to the initial content: a `bool`, the
    number in the value's own width (`uint8_t`, `int16_t`, `uint16_t`, `int32_t`, `uint32_t`, `int64_t`,
    `uint64_t`, `float`, `double`), a `DateContent`, `DateTimeContent`, a `std::string_view` of UTF-8
    text (String, JSON) or a `std::string_view` of bytes (FixedBinary); without it the content is zero
    or empty. `extra` points to a `uint64_t`, the declared size, for FixedBinary, and is unused
    otherwise. Throw `std::bad_alloc`. */
struct DateContent {
    int32_t year;
    uint8_t month;
    uint8_t day;
};
struct TimeContent {
    uint8_t hours;
    uint8_t minutes;
    uint8_t seconds;
    uint16_t milliseconds;
};
struct DateTimeContent {
    DateContent date;
    TimeContent time;
};

NBX_API I_Value* CreateValueBoolean(bool nullable, const void* content, const void* extra);
NBX_API I_Value* CreateValueByte(bool nullable, const void* content, const void* extra);
NBX_API I_Value* CreateValueShort(bool nullable, const void* content, const void* extra);
NBX_API I_Value* CreateValueUShort(bool nullable, const void* content, const void* extra);
NBX_API I_Value* CreateValueLong(bool nullable, const void* content, const void* extra);
NBX_API I_Value* CreateValueULong(bool nullable, const void* content, const void* extra);
NBX_API I_Value* CreateValueLLong(bool nullable, const void* content, const void* extra);
NBX_API I_Value* CreateValueULLong(bool nullable, const void* content, const void* extra);
NBX_API I_Value* CreateValueFloat(bool nullable, const void* content, const void* extra);
NBX_API I_Value* CreateValueDouble(bool nullable, const void* content, const void* extra);
NBX_API I_Value* CreateValueDate(bool nullable, const void* content, const void* extra);
NBX_API I_Value* CreateValueDateTime(bool nullable, const void* content, const void* extra);
NBX_API I_Value* CreateValueString(bool nullable, const void* content, const void* extra);
NBX_API I_Value* CreateValueFixedBinary(bool nullable, const void* content, const void* extra);
NBX_API I_Value* CreateValueJSON(bool nullable, const void* content, const void* extra);

/** The kinds that only a host makes. `content` of a Time is a `TimeContent`. */
NBX_API I_Value* CreateValueTime(bool nullable, const void* content, const void* extra);
NBX_API I_Value* CreateValueReference(smart_ptr<I_Value> inner);
NBX_API I_Value* CreateValueArray(uint32_t element_type_code);
/** A value of any type code: the kind that belongs to the code, a text value that reports the code
    where there is none. */
NBX_API I_Value* CreateValueOfType(uint32_t type_code, bool nullable);

}  // namespace nbx
