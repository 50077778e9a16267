#include "shell/editor.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "shell/child_process.h"
#include "text/messages.h"

namespace mduckdb_host {

namespace {

/** A file for the editor, readable by the user only, and removed at the end. */
class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& text)
        : path_((std::filesystem::temp_directory_path() / "mduckdb-XXXXXX.sql").string()) {
        const int descriptor = mkstemps(path_.data(), static_cast<int>(std::strlen(".sql")));
        if (descriptor < 0) {
            throw xUsageError(fmt::format("Cannot write '{}': {}.", path_, std::strerror(errno)));
        }
        ::close(descriptor);
        std::ofstream(path_, std::ios::binary) << text;
    }
    ~TemporaryFile() { ::unlink(path_.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& get_Path() const noexcept { return path_; }
    std::string Read() const {
        std::ifstream file(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    std::string path_;
};

std::string FindEditor() {
    for (const char* name : {"VISUAL", "EDITOR"}) {
        const char* const editor = std::getenv(name);
        if (editor != nullptr && *editor != '\0') {
            return editor;
        }
    }
    return "vi";
}

}  // namespace

std::string EditText(const std::string& text) {
    const TemporaryFile file(text);
    const std::string editor = FindEditor();
    // The command may have arguments of its own.
    const int status = WaitForProcess(StartScript(editor, editor + " \"$1\"", file.get_Path()));
    if (status != 0) {
        throw xUsageError(
            fmt::format("'{}' failed with status {}. Set EDITOR to the editor to use.", editor, status));
    }
    return file.Read();
}

}  // namespace mduckdb_host
