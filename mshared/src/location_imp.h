#pragma once

#include <filesystem>

#include "nbx/location.h"

namespace nbx {

/** What a location's `QueryInterface` gives as its folder view; part of the location. */
class FolderView final : public I_Folder, noncopyable {
  public:
    explicit FolderView(const std::filesystem::path& path) noexcept : path_(path) {}
    bool get_Exists() const override;
    void Create() override;

  private:
    const std::filesystem::path& path_;
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
    std::filesystem::path path_;
    String path_text_;
    FolderView folder_;
};

}  // namespace nbx
