// The console user on Linux: the user of the active session on seat0 as
// logind reports it. A root process (an installer) resolves that user's
// folders by impersonating it for the length of one lookup.
#ifndef VELZIP_PLATFORM_CONSOLE_USER_H
#define VELZIP_PLATFORM_CONSOLE_USER_H

#include <sys/types.h>

#include <string>

#include "platform/folder_lookup.h"

namespace velzip {

// False when there is no active session on seat0 (or no logind at all).
bool consoleUser(uid_t& uid);

// The user-domain folder of type for the console user, created as that user;
// without a console user, for the current identity. The effective user (and
// group, since Linux gives new folders the creator's group) is switched for
// the lookup and switched back on every path. Other threads of the process
// see the switch while it lasts.
bool findConsoleUserFolder(FolderType type, std::string& out);

}  // namespace velzip

#endif  // VELZIP_PLATFORM_CONSOLE_USER_H
