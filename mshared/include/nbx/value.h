#pragma once

#include <cstdint>

#include "nbx/array.h"
#include "nbx/export.h"
#include "nbx/string.h"
#include "nbx/unknown.h"

namespace nbx {

/** Type codes of host values. A code without a name here belongs to a host type whose values are texts. The
    numbers are the host's and never change. */
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

/** Numbers of the interfaces that a value may offer through `QueryInterface`. Which ones it offers depends on
    its type: binary types the raw bytes, the others the interface with the name of the type. */
enum ValueInterfaceId : uint32_t {
    kRawBytesInterfaceId = 2202,
    kDateInterfaceId = 2203,
    kDateTimeInterfaceId = 2204,
    kTimeInterfaceId = 2205,
    kReferenceInterfaceId = 2211,
    kArrayInterfaceId = 2212,
    kJSONInterfaceId = 2213,
};

/** A host value: a type, a null flag and a content. A new value is not null, except a reference without an
    inner value.

    Reading converts: a text is read as the number that it starts with, or 0; a number is read as the text of
    its decimal digits; a fraction that is read as an integer is cut off. A null value reads as false, zero or
    the empty text. Storing converts too: a number that the value cannot hold becomes the nearest one that it
    can, NaN becomes 0 in an integer. A date, time or binary value rejects a text that is not of its form with
    `xException` (`kValueContentCode`) and keeps its content; an array rejects every text. A reference stores
    into its inner value.

    Several threads may read a value at once; a thread that changes it must be the only one that uses it.
    References may be added and released on any thread. Reading and storing may throw `std::bad_alloc`. */
class NBX_API I_Value : public I_Unknown {
  public:
    /** A `ValueType`, or another code of the host's. Never changes. */
    virtual uint32_t get_TypeCode() const = 0;
    /** Whether the value may be set to null. Never changes. */
    virtual bool get_IsNullable() const = 0;
    /** A reference is also null if its inner value is. */
    virtual bool get_IsNull() const = 0;
    /** Setting to null also erases the content. Throws `xException` (`kValueNotNullableCode`) if `is_null` is
        true and the value is not nullable. Storing a content clears the flag. */
    virtual void put_IsNull(bool is_null) = 0;

    /** True for a number other than 0, for the text `true` in any case, and for a text that starts with a
        number other than 0. */
    virtual bool get_Boolean() const = 0;
    /** Numbers out of range become the nearest in range. */
    virtual int64_t get_LLong() const = 0;
    virtual uint64_t get_ULLong() const = 0;
    virtual double get_Double() const = 0;
    /** Numbers in decimal, floats with the fewest digits that restore them, `true` and `false`, dates as
        2024-01-31, times as 12:34:56.789, both with a blank between them, bytes in lower-case hexadecimal,
        arrays as JSON. The string is the caller's. */
    virtual String get_Text() const = 0;

    /** Each clears the null flag. */
    virtual void put_Boolean(bool content) = 0;
    virtual void put_LLong(int64_t content) = 0;
    virtual void put_ULLong(uint64_t content) = 0;
    virtual void put_Double(double content) = 0;
    virtual void put_Text(String content) = 0;
};

/** The raw bytes of a binary value. Like the interfaces below, it is a part of the value: it is valid as long
    as a reference to the value is held, and the value's rules for threads apply. */
class NBX_API I_RawBytes {
  public:
    virtual ~I_RawBytes();
    /** The size in bytes that the column declares; 0 if none was given. Not a limit. */
    virtual uint64_t get_DeclaredSize() const = 0;
    /** Number of bytes; 0 for a null value. */
    virtual uint64_t get_Length() const = 0;
    /** Copies the first `count` bytes, at most `get_Length`, to `buffer`. Leaves the rest of the buffer
        unchanged. */
    virtual void CopyTo(void* buffer, uint64_t count) const = 0;
    /** The bytes in place; valid until the value is changed or destroyed. */
    virtual const void* get_Data() const = 0;
    /** Copies the bytes into the value and clears the null flag. `data` may be null if `length` is 0. */
    virtual void put_Bytes(const void* data, uint64_t length) = 0;
};

/** The parts of a date; all 0 for a null value. Years count astronomically and may be negative; months and
    days count from 1. Storing does not check the calendar and clears the null flag. */
class NBX_API I_DateValue {
  public:
    virtual ~I_DateValue();
    virtual int32_t get_Year() const = 0;
    virtual uint8_t get_Month() const = 0;
    virtual uint8_t get_Day() const = 0;
    virtual void put_Date(int32_t year, uint8_t month, uint8_t day) = 0;
};

/** The parts of a time of day; all 0 for a null value. Storing does not check the ranges and clears the null
    flag. */
class NBX_API I_TimeValue {
  public:
    virtual ~I_TimeValue();
    virtual uint8_t get_Hours() const = 0;
    virtual uint8_t get_Minutes() const = 0;
    virtual uint8_t get_Seconds() const = 0;
    virtual uint16_t get_Milliseconds() const = 0;
    virtual void put_Time(uint8_t hours, uint8_t minutes, uint8_t seconds, uint16_t milliseconds) = 0;
};

/** The parts of a date and a time of day, as in the two interfaces above, without a time zone. */
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

/** A value that refers to another one. */
class NBX_API I_ReferenceValue {
  public:
    virtual ~I_ReferenceValue();
    /** The inner value, or a null pointer if there is none. */
    virtual smart_ptr<I_Value> get_Inner() const = 0;
    /** Replaces the inner value, whose reference the value takes over; null removes it. */
    virtual void put_Inner(smart_ptr<I_Value> inner) = 0;
};

/** A value that holds an array of values. An element may be a null pointer. */
class NBX_API I_ArrayValue {
  public:
    virtual ~I_ArrayValue();
    /** The declared type code of the elements; not checked. */
    virtual uint32_t get_ElementTypeCode() const = 0;
    /** 0 for a null value. */
    virtual uint64_t get_Count() const = 0;
    /** `index` counts from 0 and must be below the count. */
    virtual smart_ptr<I_Value> get_Element(uint64_t index) const = 0;
    /** Adds the element at the end, takes over its reference and clears the null flag. */
    virtual void Append(smart_ptr<I_Value> element) = 0;
};

/** A value whose content is JSON text. The text is not checked when it is stored; malformed text has no
    members. Keys are NUL-terminated UTF-8. */
class NBX_API I_JSONValue {
  public:
    virtual ~I_JSONValue();
    /** Whether the text is one JSON object. Parses the text at the first call of one of these functions. */
    virtual bool get_IsObject() const = 0;
    /** Whether the outermost object has the member; false if the text is not an object. */
    virtual bool HasMember(const char* key) const = 0;
    /** A member of the outermost object: a text as a String value, true and false as a Boolean, null as
        a null Boolean, a number as a String value with the digits of the text, an object or array as a JSON
        value. A null pointer if the member is missing. If a key occurs twice the last one counts. The value
        is a new one: changing it does not change this value. */
    virtual smart_ptr<I_Value> get_Member(const char* key) const = 0;
};

/** A row of values, one for each column, and a row set. */
using ValueRow = ArrayOfSmartPtrs<smart_ptr<I_Value>>;
using ValueRows = ArrayOfSmartPtrs<smart_ptr<ValueRow>>;

/** Contents of dates and times, as the factories below receive them. */
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

/** Factories. Each creates a value and returns it with one reference, which the caller owns; never null.

    `nullable` states whether the value may be set to null. `content` may be null, which means zero or empty.
    Otherwise it points to the initial content, which is copied: a `bool`, a number in the value's own width
    (`uint8_t` for Byte, `int16_t` and `uint16_t` for Short and UShort, `int32_t` and `uint32_t` for Long and
    ULong, `int64_t` and `uint64_t` for LLong and ULLong, `float`, `double`), a `DateContent`, a
    `DateTimeContent`, a `std::string_view` of UTF-8 text (String, JSON) or of bytes (FixedBinary). `extra`
    may point to a `uint64_t`, the declared size, for FixedBinary, and is unused otherwise.

    They may be called on any thread. They throw `std::bad_alloc`; malformed UTF-8 becomes U+FFFD. */
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

/** Kinds that only a host creates; the module receives them as parameters. `content` of a Time is a
    `TimeContent`. References and arrays are nullable. `inner` may be null. */
NBX_API I_Value* CreateValueTime(bool nullable, const void* content, const void* extra);
NBX_API I_Value* CreateValueReference(smart_ptr<I_Value> inner);
NBX_API I_Value* CreateValueArray(uint32_t element_type_code);
/** A value of any type code, zero or empty: of the kind that belongs to the code, or a text value that
    reports the code if there is none. References and arrays are nullable in any case. */
NBX_API I_Value* CreateValueOfType(uint32_t type_code, bool nullable);

}  // namespace nbx
