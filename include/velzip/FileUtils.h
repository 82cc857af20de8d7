// velzip: file utilities.
//
// Paths are byte strings holding UTF-8 with "/" as separator. Functions return
// true on success; outputs go through reference parameters. A trailing
// void* logger is the host's logger handle and may be null: lines go to that
// handle, else the utilities' sink (module "UlvoUtils", component
// "FileUtils"), else the utilities' logger object, else nowhere.
//
// Linux stand-ins:
// - Well-known folders come from a fixed table (Filesystem Hierarchy Standard
//   plus the XDG base-directory defaults), with home folders taken from the
//   password database, never from the environment: an installer running as
//   root must not pick up its caller's variables. A folder is created when
//   missing, as the lookup always asks for it. The table:
//     Applications, local          /opt
//     Application Support, local   /usr/local/share
//     Application Support, user    <home>/.local/share
//     Documents, user              <home>/Documents
//     shared user data, local      /srv
//     Preferences, local           /etc
//     Utilities, local             /opt
// - Console user: the user of the active session on seat0 as logind reports
//   it, else the current identity. User-domain folders are looked up (and
//   created) while impersonating that user; the effective group is switched
//   along with the user so new folders get the user's group, as they would
//   from a parent folder's group elsewhere.
// - Running program: /proc/self/exe; a program inside <bundle>/Contents/MacOS/
//   counts as part of <bundle>.
// - Volume name: the file system's label (/dev/disk/by-label) when it has one,
//   else the last component of the mount point ("/" for the root).
// - Network test: the mount source from /proc/self/mountinfo is the
//   mounted-from name. A server-style source (not a path, and of the form
//   host:export) is network without a type check; otherwise the file-system
//   type decides (nfs, nfs4, cifs, smb3, smbfs, afpfs, sshfs, 9p, ceph,
//   glusterfs, also as fuse.<type>). Bare-word sources of local pseudo file
//   systems (tmpfs, overlay, proc) are therefore not network.
// - Hiding: Linux has no hidden flag; hiding an existing folder does nothing
//   and succeeds.
// - Showing a folder starts xdg-open on it, without waiting, when installed.
// - Tree copy is done in-process: contents of src merged into dst (created
//   with its parents when needed), keeping modes, times, symbolic links and
//   user extended attributes, and owners when running as root.
#ifndef VELZIP_FILEUTILS_H
#define VELZIP_FILEUTILS_H

#include <string>
#include <vector>

#include "velzip/StringUtils.h"
#include "velzip/export.h"

namespace UlvoUtils {
namespace FileUtils {

// Well-known folders. Callers pass the numbers: they never change. Values not
// listed here are unassigned.
enum PathType {
  kPathLocalApplications = 0,
  kPathLocalAppSupport = 2,
  kPathCommonAppSupport = 3,  // deliberately the same folder as 2
  kPathHome = 9,
  kPathUserDocuments = 10,
  kPathUserAppSupport = 12,
  kPathSharedUserData = 13,
  kPathTemp = 15,  // "/tmp"
  kPathRunningProgram = 16,
  kPathRunningProgramFolder = 17,
  kPathLocalBrenlo = 18,
  kPathUserBrenlo = 19,
  kPathSharedBrenlo = 20,
  kPathLocalUlvo = 21,
  kPathUserUlvo = 22,
  kPathSharedUlvo = 23,
  kPathWendarUtilities = 24,  // ends in "/"
  kPathLocalSorvel = 25,
  kPathUserSorvel = 26,
  kPathWendarRefs = 27,
  kPathTesselRefs = 28,
  kPathBrenloTessel = 29,
  kPathMarluneUtilities = 30,  // ends in "/"
  kPathLocalPreferences = 31,
  kPathUserLogs = 32
};

// --- Paths and well-known folders -------------------------------------------

// Unassigned values give false and leave path untouched.
VELZIP_API bool GetDirectoryPath(PathType type, std::string& path, void* logger = nullptr);
// Removes every trailing "/"; false for an empty path.
VELZIP_API bool RemoveSeparatorAtEnd(std::string& path);
// "\" becomes "/", then: leading tilde expanded, doubled separators and "."
// components dropped, ".." of absolute paths resolved against the real parent,
// trailing "/" dropped. Always true.
VELZIP_API bool ConvertPathToOSPath(std::string& path);
// realpath; on failure absolutePath becomes a copy of path and the result is false.
VELZIP_API bool getAbsoluteFilePath(const std::string& path, std::string& absolutePath);
// POSIX dirname in place; false for an empty path.
VELZIP_API bool GetParentDirectory(std::string& path);
// Joins with exactly the separator the last character of path lacks; leading
// "/" of component are skipped. False, changing nothing, if either is empty.
VELZIP_API bool AppendPath(std::string& path, const std::string& component, void* logger = nullptr);
// Follows a final symbolic link.
VELZIP_API bool PathExists(const std::string& path, void* logger = nullptr);
VELZIP_API bool PathExists(const std::string& path, bool& isDirectory, void* logger = nullptr);
// True for no entries or just ".DS_Store"; false for a missing or unreadable folder.
VELZIP_API bool isDirectoryEmpty(const std::string& path);
// Everything after the last "/"; a path without "/" leaves fileName as it was.
VELZIP_API bool GetFileNameFromPath(const std::string& path, std::string& fileName,
                                    void* logger = nullptr);
// Display name of the volume holding an absolute path; volumeName set only on success.
VELZIP_API bool GetVolumeNameOfPath(const std::string& path, std::string& volumeName,
                                    void* logger = nullptr);
VELZIP_API bool isPathANetworkDrive(const std::string& path);
// Nearest existing path at or above path ("." or "/" at worst); "" for "".
VELZIP_API std::string GetExistentParentDirectory(std::string path);

// --- File and directory operations ------------------------------------------

// The bool parameters without a name are accepted for compatibility and ignored.
VELZIP_API bool RenamePathToPath(const std::string& from, const std::string& to, bool,
                                 void* logger = nullptr);
// Merges the contents of src into dst. No logging.
VELZIP_API bool utilCopySrcFolderToDstFolder(const std::string& src, const std::string& dst, bool);
// Does nothing; always true.
VELZIP_API bool FlushFileBuffers(const std::string& path);
VELZIP_API bool CreateDirectoryAtPath(const std::string& path, bool shouldSetPermission,
                                      void* logger = nullptr);
// Creates path and its missing parents; an existing folder is success. With
// shouldSetPermission every folder made gets mode 0775 and the owner and group
// of the nearest existing ancestor (not when that ancestor is a symbolic link;
// only root can give ownership away, so a non-root caller ignores that part).
VELZIP_API bool CreateDirectoryAtPathEx(const std::string& path, void* logger,
                                        bool shouldSetPermission);
// Removes a file, link or whole tree; with recursive false a folder with
// entries is left alone (false, no line).
VELZIP_API bool DeleteDirectoryAtPath(const std::string& path, std::string&, bool recursive, bool,
                                      void* logger, bool logSuccess);
// Appends (never clears) full paths; with recursive false folders are neither
// listed nor entered. Symbolic links to folders are not entered. Always true.
VELZIP_API bool GetFilePathsAtPath(const std::string& path, std::vector<std::string>& paths,
                                   bool recursive, void* logger = nullptr);
// As above, keeping entries whose path relative to path is longer than the
// extension and ends with it (case matters); "txt" and ".txt" are alike.
VELZIP_API bool GetFilePathsWithExtensionAtPath(const std::string& path,
                                                const std::string& extension,
                                                std::vector<std::string>& paths, bool recursive,
                                                void* logger = nullptr);
// Atomic: written beside path, then renamed over it. No logging.
VELZIP_API bool CreateFileWithContentAtPath(const std::string& path, const std::string& content,
                                            void* logger = nullptr);
// UTF-8 text, else UTF-16 (byte-order mark, big-endian without one) turned
// into UTF-8. content untouched on failure.
VELZIP_API bool LoadContentOfFileAtPath(const std::string& path, std::string& content,
                                        void* logger = nullptr);
// At most maxBytes raw bytes; content emptied first.
VELZIP_API bool LoadContentOfFileAtPath(const std::string& path, unsigned long maxBytes,
                                        std::vector<char>& content, void* logger = nullptr);
// Size of the item itself (a final link is not followed); 0 and false on failure.
VELZIP_API bool GetFileSize(const std::string& path, unsigned long long& size);
// True when nothing exists at path (a dangling link counts as nothing), else
// whether remove() succeeded. No logging.
VELZIP_API bool DeleteFileAtPath(const std::string& path, bool, void* logger = nullptr);
// Copies a file, link or folder tree to a dst that must not exist; with
// overwrite a non-folder src first deletes dst.
VELZIP_API bool CopyFileFromSourceToDestination(const std::string& src, const std::string& dst,
                                                bool overwrite, bool, bool, void* logger = nullptr);
// chmod with the low 16 bits of mode. No logging.
VELZIP_API bool SetMode(const std::string& path, int mode);
VELZIP_API bool HideDirectoryAtPath(const std::string& path, void* logger = nullptr);
VELZIP_API bool UnHideDirectoryAtPath(const std::string& path, void* logger = nullptr);
// Shows an existing folder in the desktop's file browser (xdg-open, not waited for).
VELZIP_API bool OpenDirectoryAtPath(const std::string& path, void* logger = nullptr);

// --- Disk images, bundles and library versions ------------------------------
// Disk images are attached as read-only loop mounts (nosuid, nodev) at an
// existing folder; an image already attached is not attached twice: the call
// then reports where it is mounted, with didMount false. Whoever got didMount
// true unmounts. The bool without a name is accepted and ignored.
VELZIP_API bool MountDmgAtPath(const std::string& dmgPath, std::string& mountPoint,
                               std::string& mountedPath, bool, bool& didMount,
                               void* logger = nullptr);
VELZIP_API bool UnmountDmgAtPath(const std::string& mountPoint, void* logger = nullptr);
// A bundle is a folder with Contents/Info.plist naming, as CFBundleExecutable,
// an existing file in Contents/MacOS; executable becomes its full path (links
// in the bundle path resolved). Anything else gives false. No logging.
VELZIP_API bool GetBundleExecutablePath(const std::string& bundlePath, std::string& executable);
// Reads CFBundleVersion from the property list a 32-bit little-endian Mach-O
// library embeds in __TEXT,__info_plist (64-bit and universal files are not
// read).
VELZIP_API bool GetDynamicLibraryVersion(const std::string& dylibPath,
                                         StringUtils::PackageVersion& version,
                                         void* logger = nullptr);
// --- end of disk images, bundles and library versions -----------------------

}  // namespace FileUtils
}  // namespace UlvoUtils

#endif  // VELZIP_FILEUTILS_H
