#pragma once

#include "nbx/export.h"
#include "nbx/string.h"
#include "nbx/unknown.h"

namespace nbx {

/** Number of `I_Folder` for `QueryInterface` of a location. */
constexpr uint32_t kFolderInterfaceId = 402;

/** A place in the file system (file or folder, there or not), or the in-memory database ":memory:".
    Never changes; may be used from any thread. */
class NBX_API I_Location : public I_Unknown {
  public:
    /** The text as it was given; for messages. */
    virtual String get_Text() const = 0;
    /** The absolute path in UTF-16, without "." in it and without a trailing slash; ":memory:" and the empty
        text as they are. It names what the given path names for the system: a ".." goes up from where a link
        leads, and stays where the system cannot follow it (after a file or a broken link). After a name that
        does not exist, ".." removes that name.
        Two locations of one file have the same path text unless links differ. */
    virtual String get_PathText() const = 0;
    /** Whether a file or folder is there now. */
    virtual bool get_Exists() const = 0;
    /** The folder that holds this location; null for the root and for ":memory:". */
    virtual smart_ptr<I_Location> get_Parent() const = 0;
    /** A location in this folder. `name` may be a path: then its last component is the name. Throws
        `xException` when that leaves no name, and for ":memory:". */
    virtual smart_ptr<I_Location> MakeChild(const String& name) const = 0;
};

/** The folder view of a location; every location but ":memory:" offers it. */
class NBX_API I_Folder {
  public:
    virtual ~I_Folder();
    /** Whether a folder is there now. */
    virtual bool get_Exists() const = 0;
    /** Makes the folder, and those above it; no error when it is there. Throws `xException`. */
    virtual void Create() = 0;
};

/** A location of the given path, with one reference for the caller. A relative path is relative to the
   working folder of this moment. Throws `xException` (`kLocationErrorCode`) for a path that has no exact text
   or names nothing: with a NUL character, of which the system would use the part before it; with a lone
   surrogate; relative when the working folder is gone; or through a folder whose name is not valid UTF-8. */
NBX_API smart_ptr<I_Location> CreateLocation(const String& path);

/** The location of `sub_path` (UTF-8, separated and ended by slashes as wished) below a folder, made
    when it is not there. Throws `xException`. */
NBX_API smart_ptr<I_Location> PrepareFolder(const smart_ptr<I_Location>& folder, const char* sub_path);

}  // namespace nbx
