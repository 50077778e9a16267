#include "values/cell_conversion.h"

#include <array>

#include "values/host_values.h"
#include "values/value_conversion.h"
#include "values/value_text.h"

namespace mduckdb {
namespace {

using Maker = nbx::smart_ptr<nbx::I_Value> (*)(const Cell& cell);

template <ValueFactory kFactory, auto kMember>
nbx::smart_ptr<nbx::I_Value> MakeNumber(const Cell& cell) {
    return MakeHostValue<kFactory>(cell.number.*kMember);
}

constexpr std::size_t kKindCount = static_cast<std::size_t>(Cell::Kind::variant) + 1;

constexpr std::array<Maker, kKindCount> MakeMakers() {
    using Kind = Cell::Kind;
    using Number = Cell::Number;
    std::array<Maker, kKindCount> makers{};
    const auto put = [&makers](Kind kind, Maker maker) { makers[static_cast<std::size_t>(kind)] = maker; };
    put(Kind::null, [](const Cell&) { return MakeNullValue(); });
    put(Kind::boolean, MakeNumber<nbx::CreateValueBoolean, &Number::boolean>);
    put(Kind::int16, MakeNumber<nbx::CreateValueShort, &Number::int16>);
    put(Kind::int32, MakeNumber<nbx::CreateValueLong, &Number::int32>);
    put(Kind::int64, MakeNumber<nbx::CreateValueLLong, &Number::int64>);
    put(Kind::uint8, MakeNumber<nbx::CreateValueByte, &Number::uint8>);
    put(Kind::uint16, MakeNumber<nbx::CreateValueUShort, &Number::uint16>);
    put(Kind::uint32, MakeNumber<nbx::CreateValueULong, &Number::uint32>);
    put(Kind::uint64, MakeNumber<nbx::CreateValueULLong, &Number::uint64>);
    put(Kind::real32, MakeNumber<nbx::CreateValueFloat, &Number::real32>);
    put(Kind::real64, MakeNumber<nbx::CreateValueDouble, &Number::real64>);
    put(Kind::blob, [](const Cell& cell) { return MakeBinaryValue(cell.bytes); });
    put(Kind::text, [](const Cell& cell) { return MakeStringValue(cell.bytes); });
    return makers;
}

/** By kind of cell; nothing for a VARIANT. */
constexpr std::array<Maker, kKindCount> kMakers = MakeMakers();

}  // namespace

void CellConverter::Bind(duckdb_data_chunk chunk) {
    row_count_ = 0;
    reader_.Bind(chunk);
    row_count_ = chunk != nullptr ? reader_.get_RowCount() : 0;
}

nbx::smart_ptr<nbx::I_Value> CellConverter::Convert(idx_t column, idx_t row) {
    const Cell cell = reader_.Read(column, row);
    return cell.kind == Cell::Kind::variant ? ConvertVariant(column, row)
                                            : kMakers[static_cast<std::size_t>(cell.kind)](cell);
}

nbx::smart_ptr<nbx::I_Value> CellConverter::ConvertVariant(idx_t column, idx_t row) const {
    const ValueHolder value = reader_.TakeValue(column, row);
    return ConvertCellValue(value.get(), DUCKDB_TYPE_VARIANT);
}

}  // namespace mduckdb
