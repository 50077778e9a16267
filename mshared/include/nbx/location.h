#pragma once

#include "nbx/export.h"
#include "nbx/string.h"
#include "nbx/unknown.h"

namespace nbx {

/** Number of `I_Folder` for `QueryInterface` of a location. */
constexpr uint32_t kFolderInterfaceId = 402;

/** A place in the file system (a file or folder that may or may not exist), or the in-memory database
    ":memory:". A location never changes, so threads may share it. */
class NBX_API I_Location : public I_Unknown {
  public:
    /** The text that the location was created from, unchanged; for messages. */
    virtual String get_Text() const = 0;
    /** The absolute path in UTF-16, without "." in it and without a trailing slash; ":memory:" and the empty
        text as they are. It names what the given path names for the system: a ".." goes up from where a link
        leads, and stays where the system cannot follow it (after a file, a broken link or a missing name), so
        that nothing exists there.
        Two locations of one file have the same path text unless links differ. */
    virtual String get_PathText() const = 0;
    /** Whether a file or folder exists there now; false for ":memory:" and for what the system does not let
        this process see. */
    virtual bool get_Exists() const = 0;
    /** The folder that contains this location, whether it exists or not; null for the root, for ":memory:"
        and for the empty text. */
    virtual smart_ptr<I_Location> get_Parent() const = 0;
    /** A location inside this folder; creates nothing. If `name` is a path its last component is the name.
        Throws `xException` (`kLocationErrorCode`) if no name is left, and for ":memory:". */
    virtual smart_ptr<I_Location> MakeChild(const String& name) const = 0;
};

/** The folder view of a location, which every location with a path offers, even if a file is there. It is
    valid as long as the location. */
class NBX_API I_Folder {
  public:
    virtual ~I_Folder();
    /** Whether a folder exists there now; false for a file. */
    virtual bool get_Exists() const = 0;
    /** Creates the folder and its parents. Does nothing if it exists. Throws `xException`
        (`kFileErrorCode`). */
    virtual void Create() = 0;
};

/** Returns a location for the path; the caller owns the reference. A relative path is relative to the working
    folder of this moment. Throws `xException` (`kLocationErrorCode`) for a path that has no exact text or
    names nothing: with a NUL character, of which the system would use the part before it; with a lone
    surrogate; relative when the working folder is gone; or through a folder whose name is not valid UTF-8. */
NBX_API smart_ptr<I_Location> CreateLocation(const String& path);

/** Returns the location of `sub_path` below `folder` and creates it, with its parents, if it does not exist.
    `sub_path` is NUL-terminated UTF-8 and may contain and end in slashes. Throws `xException`:
    `kLocationErrorCode` if `folder` is null or has no path, `kFileErrorCode` if the system refuses. */
NBX_API smart_ptr<I_Location> PrepareFolder(const smart_ptr<I_Location>& folder, const char* sub_path);

}  // namespace nbx
