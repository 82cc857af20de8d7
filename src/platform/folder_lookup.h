// Well-known folders on Linux. There is no folder-lookup service, so each
// domain and folder type maps to a fixed folder (Filesystem Hierarchy
// Standard, XDG base-directory defaults). Home folders come from the password
// database of the effective user, never from the environment.
#ifndef VELZIP_PLATFORM_FOLDER_LOOKUP_H
#define VELZIP_PLATFORM_FOLDER_LOOKUP_H

#include <sys/types.h>

#include <string>

namespace velzip {

enum class FolderDomain { kLocal, kUser };

enum class FolderType {
  kApplications,        // local: /opt
  kApplicationSupport,  // local: /usr/local/share; user: <home>/.local/share
  kDocuments,           // user: <home>/Documents
  kSharedUserData,      // local: /srv
  kPreferences,         // local: /etc
  kUtilities            // local: /opt
};

// Home folder and primary group of uid from the password database.
bool homeFolderOf(uid_t uid, std::string& home);
bool primaryGroupOf(uid_t uid, gid_t& gid);

// Resolves the folder for the effective user and creates it when missing.
// On failure (no such pairing, no home, creation failed) out is untouched.
bool findSystemFolder(FolderDomain domain, FolderType type, std::string& out);

}  // namespace velzip

#endif  // VELZIP_PLATFORM_FOLDER_LOOKUP_H
