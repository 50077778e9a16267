#include "nbx/location.h"

#include <system_error>

#include "location_imp.h"
#include "nbx/exception.h"
#include "system_error.h"
#include "unicode.h"

namespace nbx {
namespace {

namespace fs = std::filesystem;

constexpr std::u16string_view kInMemory = u":memory:";

fs::path NormalPath(const String& text) {
    if (text.get_View().find(u'\0') != std::u16string_view::npos) {
        throw xException(kLocationErrorCode, "A path must not contain NUL characters");
    }
    if (text.isEmpty() || text.get_View() == kInMemory) {
        return {};
    }
    const fs::path path = fs::absolute(Utf16ToUtf8(text.get_View())).lexically_normal();
    // A trailing slash leaves an empty last component.
    return path.has_filename() || !path.has_relative_path() ? path : path.parent_path();
}

String PathString(const fs::path& path) {
    return String(Utf8ToUtf16(path.native()));
}

/** The last component of a path that may end in slashes. */
fs::path LastComponent(const String& name) {
    fs::path path(Utf16ToUtf8(name.get_View()));
    while (!path.has_filename() && path.has_relative_path()) {
        path = path.parent_path();
    }
    return path.filename();
}

}  // namespace

bool FolderView::get_Exists() const {
    std::error_code error;
    return fs::is_directory(path_, error);
}

void FolderView::Create() {
    std::error_code error;
    fs::create_directories(path_, error);
    if (error) {
        ThrowFileError(path_.native(), "make the folder", error.value());
    }
}

Location_imp::Location_imp(const String& text)
    : text_(text),
      path_(NormalPath(text)),
      path_text_(path_.empty() ? text : PathString(path_)),
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
    return CreateLocation(PathString(path_.parent_path()));
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

smart_ptr<I_Location> CreateLocation(const String& path) {
    return MakeObject<Location_imp>(path);
}

smart_ptr<I_Location> PrepareFolder(const smart_ptr<I_Location>& folder, const char* sub_path) {
    if (!folder || folder->QueryInterface(kFolderInterfaceId) == nullptr) {
        throw xException(kLocationErrorCode, sub_path, "No folder to make a folder in");
    }
    const fs::path path = fs::path(Utf16ToUtf8(folder->get_PathText().get_View())) / sub_path;
    smart_ptr<I_Location> location = CreateLocation(PathString(path));
    auto* const view = static_cast<I_Folder*>(location->QueryInterface(kFolderInterfaceId));
    view->Create();
    return location;
}

}  // namespace nbx
