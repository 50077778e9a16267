#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <string_view>

#include "nbx/location.h"
#include "nbx/string.h"
#include "nbx/value.h"

namespace nbx {

inline std::string Narrow(const String& text) {
    return ToUtf8(text);
}

inline String Wide(std::string_view text) {
    return FromUtf8(text);
}

/** For GoogleTest's messages. */
inline void PrintTo(const String& text, std::ostream* out) {
    *out << '"' << Narrow(text) << '"';
}

using ValuePtr = smart_ptr<I_Value>;

inline ValuePtr TakeValue(I_Value* value) {
    return ValuePtr::Adopt(value);
}

/** The view of a value that offers it; the test ends when it does not. */
template <class View>
View& ViewOf(const ValuePtr& value, uint32_t interface_id) {
    auto* const view = static_cast<View*>(value->QueryInterface(interface_id));
    if (view == nullptr) {
        throw std::logic_error("The value does not offer the interface");
    }
    return *view;
}

/** A new empty folder, deleted with its content at the end of the test. */
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "mshared_test_XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("No temporary folder");
        }
        path_ = name;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code error;
        std::filesystem::remove_all(path_, error);
    }

    const std::filesystem::path& get_Path() const noexcept { return path_; }
    smart_ptr<I_Location> LocationOf(const std::string& name) const {
        return CreateLocation(Wide((path_ / name).string()));
    }

  private:
    std::filesystem::path path_;
};

}  // namespace nbx
