// SPDX-License-Identifier: Apache-2.0
//
// Calls on paths.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sim/interpose.h"

namespace {

using sim::HostPath;
using sim::MappedPath;
using sim::on_path;
using sim::Op;

// A rename is recorded and may fail by its old path.
template <typename RealRename>
int renamed(const char* from, const char* to, RealRename real) {
  const MappedPath target(to);
  const char* host = target.kind == sim::PathKind::file ? target.host : target.passed;
  return on_path(
      Op::rename, from, 0, [&](const char* source) { return real(source, host); },
      target.foreign() ? std::string_view(target.passed == nullptr ? "" : target.passed)
                       : std::string_view(target.path));
}

}  // namespace

SIM_API int access(const char* path, int mode) noexcept {
  REAL(access);
  return on_path(Op::access, path, mode,
                 [mode](const char* real) { return real_access(real, mode); });
}

SIM_API int faccessat(int folder, const char* path, int mode, int flags) noexcept {
  REAL(faccessat);
  return on_path(Op::access, path, mode,
                 [=](const char* real) { return real_faccessat(folder, real, mode, flags); });
}

SIM_API int euidaccess(const char* path, int mode) noexcept {
  REAL(euidaccess);
  return on_path(Op::access, path, mode,
                 [mode](const char* real) { return real_euidaccess(real, mode); });
}

SIM_API int eaccess(const char* path, int mode) noexcept {
  return euidaccess(path, mode);
}

SIM_API int mkdir(const char* path, mode_t mode) noexcept {
  REAL(mkdir);
  return on_path(Op::mkdir, path, static_cast<int>(mode),
                 [mode](const char* real) { return real_mkdir(real, mode); });
}

SIM_API int mkdirat(int folder, const char* path, mode_t mode) noexcept {
  REAL(mkdirat);
  return on_path(Op::mkdir, path, static_cast<int>(mode),
                 [=](const char* real) { return real_mkdirat(folder, real, mode); });
}

SIM_API int rmdir(const char* path) noexcept {
  REAL(rmdir);
  return on_path(Op::unlink, path, 0, [](const char* real) { return real_rmdir(real); });
}

SIM_API int unlink(const char* path) noexcept {
  REAL(unlink);
  return on_path(Op::unlink, path, 0, [](const char* real) { return real_unlink(real); });
}

SIM_API int unlinkat(int folder, const char* path, int flags) noexcept {
  REAL(unlinkat);
  return on_path(Op::unlink, path, flags,
                 [=](const char* real) { return real_unlinkat(folder, real, flags); });
}

SIM_API int remove(const char* path) noexcept {
  REAL(remove);
  return on_path(Op::unlink, path, 0, [](const char* real) { return real_remove(real); });
}

SIM_API int rename(const char* from, const char* to) noexcept {
  REAL(rename);
  return renamed(from, to, [](const char* a, const char* b) { return real_rename(a, b); });
}

SIM_API int renameat(int old_folder, const char* from, int new_folder, const char* to) noexcept {
  REAL(renameat);
  return renamed(from, to, [=](const char* a, const char* b) {
    return real_renameat(old_folder, a, new_folder, b);
  });
}

SIM_API int renameat2(int old_folder, const char* from, int new_folder, const char* to,
                      unsigned flags) noexcept {
  REAL(renameat2);
  return renamed(from, to, [=](const char* a, const char* b) {
    return real_renameat2(old_folder, a, new_folder, b, flags);
  });
}

// --- Without a meaning of their own: only made where the file is. -------------------------------

SIM_API int chdir(const char* path) noexcept {
  REAL(chdir);
  return real_chdir(HostPath(path).get());
}

SIM_API int chmod(const char* path, mode_t mode) noexcept {
  REAL(chmod);
  return real_chmod(HostPath(path).get(), mode);
}

SIM_API int chown(const char* path, uid_t user, gid_t group) noexcept {
  REAL(chown);
  return real_chown(HostPath(path).get(), user, group);
}

SIM_API int truncate(const char* path, off_t length) noexcept {
  REAL(truncate);
  return real_truncate(HostPath(path).get(), length);
}

SIM_API int truncate64(const char* path, off64_t length) noexcept {
  REAL(truncate64);
  return real_truncate64(HostPath(path).get(), length);
}

SIM_API int utimensat(int folder, const char* path, const timespec times[2], int flags) noexcept {
  REAL(utimensat);
  return real_utimensat(folder, HostPath(path).get(), times, flags);
}

SIM_API int link(const char* from, const char* to) noexcept {
  REAL(link);
  return real_link(HostPath(from).get(), HostPath(to).get());
}

SIM_API int symlink(const char* target, const char* path) noexcept {
  REAL(symlink);
  return real_symlink(target, HostPath(path).get());
}

SIM_API ssize_t readlink(const char* path, char* buffer, std::size_t size) noexcept {
  REAL(readlink);
  return real_readlink(HostPath(path).get(), buffer, size);
}

SIM_API DIR* opendir(const char* path) {
  REAL(opendir);
  DIR* folder = real_opendir(HostPath(path).get());
  if (folder != nullptr) {
    sim::forget(dirfd(folder));
  }
  return folder;
}

SIM_API int statfs(const char* path, struct statfs* info) noexcept {
  REAL(statfs);
  return real_statfs(HostPath(path).get(), info);
}

SIM_API int statfs64(const char* path, struct statfs64* info) noexcept {
  REAL(statfs64);
  return real_statfs64(HostPath(path).get(), info);
}

SIM_API int statvfs(const char* path, struct statvfs* info) noexcept {
  REAL(statvfs);
  return real_statvfs(HostPath(path).get(), info);
}

SIM_API int statvfs64(const char* path, struct statvfs64* info) noexcept {
  REAL(statvfs64);
  return real_statvfs64(HostPath(path).get(), info);
}

SIM_API ssize_t getxattr(const char* path, const char* name, void* value,
                         std::size_t size) noexcept {
  REAL(getxattr);
  return real_getxattr(HostPath(path).get(), name, value, size);
}

SIM_API ssize_t lgetxattr(const char* path, const char* name, void* value,
                          std::size_t size) noexcept {
  REAL(lgetxattr);
  return real_lgetxattr(HostPath(path).get(), name, value, size);
}

SIM_API ssize_t listxattr(const char* path, char* list, std::size_t size) noexcept {
  REAL(listxattr);
  return real_listxattr(HostPath(path).get(), list, size);
}

SIM_API ssize_t llistxattr(const char* path, char* list, std::size_t size) noexcept {
  REAL(llistxattr);
  return real_llistxattr(HostPath(path).get(), list, size);
}

// --- Paths that are results. --------------------------------------------------------------------

SIM_API char* realpath(const char* path, char* resolved) noexcept {
  REAL(realpath);
  const MappedPath mapped(path);
  if (mapped.foreign()) {
    return real_realpath(mapped.passed, resolved);
  }
  if (mapped.kind == sim::PathKind::nothing) {
    errno = ENOENT;
    return nullptr;
  }
  char host[PATH_MAX];
  std::string_view result = mapped.path;
  if (mapped.kind == sim::PathKind::file) {
    if (real_realpath(mapped.host, host) == nullptr) {
      return nullptr;
    }
    result = sim::unmapped(host);
  }
  char* out = resolved != nullptr ? resolved : static_cast<char*>(std::malloc(PATH_MAX));
  if (out != nullptr) {
    out[result.copy(out, PATH_MAX - 1)] = '\0';
  }
  return out;
}

SIM_API char* __realpath_chk(const char* path, char* resolved, std::size_t room) noexcept {
  static_cast<void>(room);
  return realpath(path, resolved);
}

SIM_API char* canonicalize_file_name(const char* path) noexcept {
  return realpath(path, nullptr);
}
