#pragma once

#include "nbx/arrow_c_data.h"

namespace fuzz {

/** Reads everything that the stream's arrays say they have, then releases the stream. */
void WalkStream(ArrowArrayStream& stream);

}  // namespace fuzz
