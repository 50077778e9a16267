#pragma once

#include <cstdlib>

/** How long or how often a test runs: the environment variable's number, or the default of every day. */
inline int NumberFromEnvironment(const char* name, int otherwise) {
    const char* const text = std::getenv(name);
    return text != nullptr ? std::atoi(text) : otherwise;
}
