#pragma once

#include <concepts>
#include <cstdint>
#include <string>

#include "base/holders.h"
#include "base/text.h"
#include "duckdb_internals/column_writer.h"
#include "nbx/value.h"
#include "values/host_moments.h"
#include "values/host_text.h"
#include "values/host_value_walk.h"

namespace mduckdb {

/** The interface of a value; null if it does not offer it. */
template <class Interface>
Interface* Query(nbx::I_Value& value, uint32_t interface_id) {
    return static_cast<Interface*>(value.QueryInterface(interface_id));
}

inline ValueHolder TextOf(nbx::I_Value& value, HostValueWalk* walk) {
    const std::string text = ToUtf8(value.get_Text());
    if (walk != nullptr) {
        walk->Count(text.size());
    }
    return MakeTextValue(text);
}

template <class Number>
Number ReadNumber(nbx::I_Value& value) {
    if constexpr (std::same_as<Number, bool>) {
        return value.get_Boolean();
    } else if constexpr (std::floating_point<Number>) {
        return static_cast<Number>(value.get_Double());
    } else if constexpr (std::signed_integral<Number>) {
        return static_cast<Number>(value.get_LLong());
    } else {
        return static_cast<Number>(value.get_ULLong());
    }
}

/** Kinds of values that have a form without parts: how a value is read, and from that the two forms in which
    it reaches DuckDB, a value of its own and a place in a column. `Store` returns false for what the column
    does not hold as it is; so does `StoreNumber`, for a number that is read where it is. */
template <auto kCreate, class Number>
struct NumberKind {
    static ValueHolder Make(nbx::I_Value& value, HostValueWalk* /*walk*/) {
        return ValueHolder(kCreate(ReadNumber<Number>(value)));
    }
    static bool Store(nbx::I_Value& value, ColumnWriter& column, idx_t row) {
        return column.Put(row, ReadNumber<Number>(value));
    }
    static bool StoreNumber(const void* number, ColumnWriter& column, idx_t row) {
        return column.Put(row, *static_cast<const Number*>(number));
    }
};

/** Kinds of values that are read through an interface of their own; a value that lacks it is a text. The
    conversion returns nothing for a content that DuckDB would misread. */
template <class Interface, uint32_t kInterfaceId, auto kConvert, auto kCreate>
struct MomentKind {
    static ValueHolder Make(nbx::I_Value& value, HostValueWalk* walk) {
        const auto* parts = Query<Interface>(value, kInterfaceId);
        if (parts == nullptr) {
            return TextOf(value, walk);
        }
        const auto moment = kConvert(*parts);
        return moment ? ValueHolder(kCreate(*moment)) : ValueHolder();
    }
    static bool Store(nbx::I_Value& value, ColumnWriter& column, idx_t row) {
        const auto* parts = Query<Interface>(value, kInterfaceId);
        if (parts == nullptr) {
            return false;
        }
        const auto moment = kConvert(*parts);
        return moment && column.Put(row, *moment);
    }
};

struct TextKind {
    static ValueHolder Make(nbx::I_Value& value, HostValueWalk* walk) { return TextOf(value, walk); }
    static bool Store(nbx::I_Value& value, ColumnWriter& column, idx_t row) {
        return StoreText(value.get_Text().get_View(), column, row);
    }
};

}  // namespace mduckdb
