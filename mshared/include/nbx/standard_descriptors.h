#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace nbx {

/** Makes sure that the descriptors 0, 1 and 2 are in use: those that are closed become `/dev/null`, opened so
    that reading from 0 and writing to 1 and 2 still fail with `EBADF`. A file that is opened afterwards
    gets none of them; otherwise whatever the process writes to its output or error stream would go into that
    file. To be called before a database file is opened, since services often run with closed streams.

    From any thread. Does nothing if no descriptor is left or there is no `/dev/null`. */
inline void OccupyStandardDescriptors() noexcept {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) >= 0 || errno != EBADF) {
            continue;
        }
        const int opened = ::open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        if (opened > STDERR_FILENO) {
            ::close(opened);  // Another thread was here first.
        }
    }
}

}  // namespace nbx
