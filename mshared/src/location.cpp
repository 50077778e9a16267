#include "nbx/location.h"

#include <filesystem>
#include <system_error>

#include "errors.h"
#include "native_path.h"
#include "nbx/exception.h"
#include "unicode.h"

namespace nbx {
namespace {

namespace fs = std::filesystem;

constexpr std::u16string_view kInMemory = u":memory:";

/** Rejects a path with the whole path as the first text, so that users recognise it. */
[[noreturn]] void Refuse(const String& path, const char* reason) {
    throw xException(kLocationErrorCode, Utf16ToUtf8(path.get_View()).c_str(), reason);
}

/** Applies a ".." to an absolute path as the system does: from the folder that a link leads to, not from the
    folder that contains the link. If the system cannot resolve it (after a file, a broken link
    or a missing name) the ".." stays in the path, so that the path never names a file that the system would
    not find by the given one. */
void GoUp(fs::path& path) {
    std::error_code error;
    const fs::file_type type =
        path.filename() == ".." ? fs::file_type::unknown : fs::symlink_status(path, error).type();
    if (type == fs::file_type::symlink) {
        const fs::path target = fs::canonical(path, error);
        const bool is_folder = !error && fs::is_directory(target, error);
        path = is_folder ? target.parent_path() : path / "..";
    } else if (type == fs::file_type::directory) {
        path = path.parent_path();
    } else {
        path /= "..";
    }
}

/** The absolute path, or an empty one for a text that is not a path. Resolves only the links that a ".."
    follows, so that users recognise their path in messages. */
fs::path NormalPath(const String& text) {
    const std::string bytes = NativePath(text);
    if (text.isEmpty() || text.get_View() == kInMemory) {
        return {};
    }
    std::error_code error;
    const fs::path absolute = fs::absolute(bytes, error);
    if (error) {
        Refuse(text, "The path is relative, and the working folder cannot be found");
    }
    fs::path path = absolute.root_path();
    for (const fs::path& part : absolute.relative_path()) {
        if (part == "..") {
            GoUp(path);
        } else if (!part.empty() && part != ".") {
            path /= part;
        }
    }
    return path;
}

String PathString(const fs::path& path) {
    return String(Utf8ToUtf16(path.native()));
}

/** The text of a path, which must say all of it: a replaced character would name another file. */
String ExactPathText(const fs::path& path, const String& text) {
    String path_text = PathString(path);
    if (Utf16ToUtf8(path_text.get_View()) != path.native()) {
        Refuse(text, "The path leads through a folder whose name is not valid UTF-8");
    }
    return path_text;
}

/** The last component of a path that may end in slashes. */
fs::path LastComponent(const String& name) {
    fs::path path(NativePath(name));
    while (!path.has_filename() && path.has_relative_path()) {
        path = path.parent_path();
    }
    return path.filename();
}

/** The folder view that a location's `QueryInterface` returns; a part of the location, whose path it uses. */
class FolderView final : public I_Folder, noncopyable {
  public:
    explicit FolderView(const fs::path& path) noexcept : path_(path) {}
    bool get_Exists() const override;
    void Create() override;

  private:
    const fs::path& path_;
};

/** A location that never changes, so that threads may share it. */
class Location_imp final : public Counted<I_Location> {
  public:
    explicit Location_imp(const String& text);

    void* QueryInterface(uint32_t interface_id) override;

    String get_Text() const override { return text_; }
    String get_PathText() const override { return path_text_; }
    bool get_Exists() const override;
    smart_ptr<I_Location> get_Parent() const override;
    smart_ptr<I_Location> MakeChild(const String& name) const override;

  private:
    String text_;
    /** Absolute and normal; empty for the in-memory database and for the empty text. */
    fs::path path_;
    String path_text_;
    FolderView folder_;
};

bool FolderView::get_Exists() const {
    std::error_code error;
    return fs::is_directory(path_, error);
}

void FolderView::Create() {
    std::error_code error;
    fs::create_directories(path_, error);
    if (error) {
        ThrowFileError(path_.native(), "create the folder", error.value());
    }
}

Location_imp::Location_imp(const String& text)
    : text_(text),
      path_(NormalPath(text)),
      path_text_(path_.empty() ? text : ExactPathText(path_, text)),
      folder_(path_) {}

void* Location_imp::QueryInterface(uint32_t interface_id) {
    if (interface_id != kFolderInterfaceId || path_.empty()) {
        return nullptr;
    }
    return static_cast<I_Folder*>(&folder_);
}

bool Location_imp::get_Exists() const {
    std::error_code error;
    return !path_.empty() && fs::exists(path_, error);
}

smart_ptr<I_Location> Location_imp::get_Parent() const {
    if (!path_.has_relative_path()) {
        return nullptr;
    }
    // Removing a last ".." would go down again, not up.
    const bool goes_up = path_.filename() == "..";
    return CreateLocation(PathString(goes_up ? path_ / ".." : path_.parent_path()));
}

smart_ptr<I_Location> Location_imp::MakeChild(const String& name) const {
    const fs::path component = LastComponent(name);
    if (path_.empty() || component.empty() || component == "." || component == "..") {
        const std::string text = Utf16ToUtf8(name.get_View());
        throw xException(kLocationErrorCode, Utf16ToUtf8(text_.get_View()).c_str(), text.c_str(),
                         "Not a name for a file in a folder");
    }
    return CreateLocation(PathString(path_ / component));
}

}  // namespace

std::string NativePath(const String& path) {
    if (path.get_View().find(u'\0') != std::u16string_view::npos) {
        throw xException(kLocationErrorCode, "A path must not contain NUL characters");
    }
    std::string bytes = Utf16ToUtf8(path.get_View());
    if (Utf8ToUtf16(bytes) != path.get_View()) {
        Refuse(path, "The path is not valid UTF-16");
    }
    return bytes;
}

smart_ptr<I_Location> CreateLocation(const String& path) {
    return MakeObject<Location_imp>(path);
}

smart_ptr<I_Location> PrepareFolder(const smart_ptr<I_Location>& folder, const char* sub_path) {
    if (!folder || folder->QueryInterface(kFolderInterfaceId) == nullptr) {
        throw xException(kLocationErrorCode, sub_path, "There is no parent folder");
    }
    const fs::path path = fs::path(NativePath(folder->get_PathText())) / sub_path;
    smart_ptr<I_Location> location = CreateLocation(PathString(path));
    auto* const view = static_cast<I_Folder*>(location->QueryInterface(kFolderInterfaceId));
    view->Create();
    return location;
}

}  // namespace nbx
