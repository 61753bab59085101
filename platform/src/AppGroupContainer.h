// The application-group container on Linux: a private directory tree shared by the host and its
// extension (the user-defaults databases and the vendor identifier live there). Internal.
#pragma once

#include <string>

namespace platform::detail {

// Creates `path` and every missing parent with mode 0700 (whatever the umask); parents that
// already exist are left as they are, and `path` itself is made private
// (makeOwnDirectoryPrivate). True when `path` is a private directory afterwards.
bool createPrivateDirectories(const std::string& path);
// Makes the existing directory `path` 0700. False when it is missing, a symbolic link, not a
// directory or not owned by this process's user (nothing is changed then).
bool makeOwnDirectoryPrivate(const std::string& path);

}  // namespace platform::detail
