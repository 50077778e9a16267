#include "values/host_value_reading.h"

namespace mduckdb {

constinit thread_local const HostValueReading* HostValueReading::gInnermost = nullptr;

}  // namespace mduckdb
