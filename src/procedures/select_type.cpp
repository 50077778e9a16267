#include "procedures/select_type.h"

#ifndef MDUCKDB_SELECT_REPORTED_TYPE
#error "Say by MDUCKDB_SELECT_REPORTED_TYPE, 0 or 1, for which of the modules this is compiled."
#endif

namespace mduckdb {

std::int32_t GetSelectType([[maybe_unused]] std::int32_t reported_type,
                           [[maybe_unused]] std::int32_t normalised_type) noexcept {
    return MDUCKDB_SELECT_REPORTED_TYPE ? reported_type : normalised_type;
}

}  // namespace mduckdb
