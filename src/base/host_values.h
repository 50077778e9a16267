#pragma once

#include <string_view>

#include "nbx/value.h"

namespace mduckdb {

using HostValue = nbx::smart_ptr<nbx::I_Value>;

/** A factory of the host's values. */
using ValueFactory = nbx::I_Value* (*)(bool nullable, const void* content, const void* extra);

/** A host value that may not be null, with the content in the width that the factory expects. */
template <ValueFactory kFactory, class Content>
HostValue MakeHostValue(const Content& content) {
    return HostValue::Adopt(kFactory(false, &content, nullptr));
}

/** The value for NULL in every column: a Boolean that is null. */
inline HostValue MakeNullValue() {
    auto value = HostValue::Adopt(nbx::CreateValueBoolean(true, nullptr, nullptr));
    value->put_IsNull(true);
    return value;
}

/** A host String value, never null, with the UTF-8 text. */
inline HostValue MakeStringValue(std::string_view text) {
    return MakeHostValue<nbx::CreateValueString>(text);
}

/** A host FixedBinary value, declared in the size of the bytes, which are copied. */
inline HostValue MakeBinaryValue(std::string_view bytes) {
    const uint64_t declared_size = bytes.size();
    const void* content = bytes.empty() ? nullptr : &bytes;
    return HostValue::Adopt(nbx::CreateValueFixedBinary(true, content, &declared_size));
}

}  // namespace mduckdb
