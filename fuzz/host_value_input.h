#pragma once

#include "input.h"
#include "session.h"

namespace fuzz {

/** A host value of any kind, with what it contains; a null pointer is possible. */
Value TakeHostValue(Input& input);

}  // namespace fuzz
