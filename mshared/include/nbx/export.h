#pragma once

/** Marks what the mshared library exports; everything else in it is hidden. On a class, it also exports the
    type information, which exceptions and casts across modules need. */
#define NBX_API __attribute__((visibility("default")))
