#pragma once

#include <functional>
#include <string>
#include <vector>

#include "support/test_host.h"

/** Something that works on files, and what must be true afterwards whatever failed meanwhile. The folder has
   a database `a.db` of 3000 rows, its snapshot `saved.db`, its export in `exports`, and `old.db`, which a
   restore replaces. */
struct FileOperation {
    std::string name;
    /** Throws when it fails. Says by `done` how many rows are committed. */
    std::function<void(TestHost& host, const std::string& folder, int64_t& committed)> act;
    /** Empty when everything is as it must be. `failed`: nothing was thrown if false. */
    std::function<std::string(const std::string& folder, bool has_failed, int64_t committed)> judge;
    /** Nothing may be left of a failed one, if the files that it made can be removed. */
    std::function<std::string(const std::string& folder)> leftovers = nullptr;
};

/** Makes what the folder has at the beginning. */
void MakeFolder(const std::string& folder);
const std::vector<FileOperation>& FileOperations();
