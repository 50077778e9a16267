#pragma once

#include <string>

namespace nbx {

/** The program and the number of the process whose lock keeps this process from locking the whole file for
    writing, such as "/usr/bin/duckdb (process 17)"; empty when there is no such lock. Says so when the system
   does not tell which process it is. The descriptor is one on the file. Not exported: a program or library
   that wants it is linked with the code. */
std::string DescribeLockHolder(int descriptor);

}  // namespace nbx
