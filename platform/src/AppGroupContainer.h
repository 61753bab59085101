// The application-group container on Linux: a private directory tree shared by the host and its
// extension (the user-defaults databases and the vendor identifier live there). Internal.
#pragma once

#include <string>

namespace platform::detail {

// Creates `path` and every missing parent with mode 0700 (whatever the umask); directories that
// already exist are left as they are. True when `path` is a directory afterwards.
bool createPrivateDirectories(const std::string& path);

}  // namespace platform::detail
