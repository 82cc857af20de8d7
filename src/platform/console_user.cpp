#include "platform/console_user.h"

#include <systemd/sd-login.h>
#include <unistd.h>

#include <cstdlib>

namespace velzip {

bool consoleUser(uid_t& uid) {
  char* session = nullptr;
  uid_t found = 0;
  int rc = sd_seat_get_active("seat0", &session, &found);
  free(session);
  if (rc < 0) return false;
  uid = found;
  return true;
}

namespace {

// Switches the effective identity to a user and back when it goes out of scope.
class Impersonation {
 public:
  explicit Impersonation(uid_t uid) : savedUid_(geteuid()), savedGid_(getegid()) {
    if (uid == savedUid_) return;
    gid_t gid;
    // The group first: once the user is switched, root's right to change it is gone.
    if (primaryGroupOf(uid, gid) && gid != savedGid_ && setegid(gid) == 0) gidSwitched_ = true;
    if (seteuid(uid) == 0) uidSwitched_ = true;
  }
  ~Impersonation() {
    // A failed switch back leaves nothing sane to do; the results are not used.
    if (uidSwitched_) (void)!seteuid(savedUid_);
    if (gidSwitched_) (void)!setegid(savedGid_);
  }
  Impersonation(const Impersonation&) = delete;
  Impersonation& operator=(const Impersonation&) = delete;

 private:
  uid_t savedUid_;
  gid_t savedGid_;
  bool uidSwitched_ = false;
  bool gidSwitched_ = false;
};

}  // namespace

bool findConsoleUserFolder(FolderType type, std::string& out) {
  uid_t uid;
  if (!consoleUser(uid)) return findSystemFolder(FolderDomain::kUser, type, out);
  Impersonation as(uid);
  return findSystemFolder(FolderDomain::kUser, type, out);
}

}  // namespace velzip
