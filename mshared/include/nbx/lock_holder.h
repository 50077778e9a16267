#pragma once

#include <string>

namespace nbx {

/** The program and the number of the process whose lock keeps this process from locking the whole file for
    writing, such as "/usr/bin/duckdb (process 17)"; empty when there is no such lock. The text says so when
    the system does not reveal the process. The descriptor is open on the file. Not exported: a program or
    library that needs it is linked with the code. */
std::string DescribeLockHolder(int descriptor);

}  // namespace nbx
