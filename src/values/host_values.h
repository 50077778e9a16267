#pragma once

#include <duckdb.h>

#include <string_view>

#include "nbx/value.h"

namespace mduckdb {

/** A factory of the host's values. */
using ValueFactory = nbx::I_Value* (*)(bool nullable, const void* content, const void* extra);

/** A host value that may not be null, with the content in the width that the factory expects. */
template <ValueFactory kFactory, class Content>
nbx::smart_ptr<nbx::I_Value> MakeHostValue(const Content& content) {
    return nbx::smart_ptr<nbx::I_Value>::Adopt(kFactory(false, &content, nullptr));
}

/** What stands for NULL in every column: a Boolean that is null. */
inline nbx::smart_ptr<nbx::I_Value> MakeNullValue() {
    auto value = nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueBoolean(true, nullptr, nullptr));
    value->put_IsNull(true);
    return value;
}

/** A host FixedBinary value, declared in the size of the bytes, which are copied. */
inline nbx::smart_ptr<nbx::I_Value> MakeBinaryValue(std::string_view bytes) {
    const uint64_t declared_size = bytes.size();
    const void* content = bytes.empty() ? nullptr : &bytes;
    return nbx::smart_ptr<nbx::I_Value>::Adopt(nbx::CreateValueFixedBinary(true, content, &declared_size));
}

/** What a typed getter of DuckDB gives, in a host value. */
template <ValueFactory kFactory, auto kGetter>
nbx::smart_ptr<nbx::I_Value> ConvertByGetter(duckdb_value value) {
    return MakeHostValue<kFactory>(kGetter(value));
}

/** The bytes of a BLOB in a host value. */
nbx::smart_ptr<nbx::I_Value> ConvertBlob(duckdb_value value);

}  // namespace mduckdb
