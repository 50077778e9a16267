#pragma once

/** Marks what the mshared library exports; everything else in it is hidden. */
#define NBX_API __attribute__((visibility("default")))
