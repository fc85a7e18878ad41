#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/file/FileDescriptor.h"
#include "host/text/LumApi.h"
#include "host/text/LumString.h"

/// Files and directories. Every routine may be called from any thread, and none throws: a failure is a false,
/// a null or an empty text, with errno as the system left it.

/// Makes the directory `path` and its missing parents, each with mode 0700 and its own entry synced. True
/// also where it is there already.
LUM_API bool PathCreate(const LumString& path);

/// True where `path` is a directory, or a symbolic link to one.
[[nodiscard]] LUM_API bool DirExists(const LumString& path);

/// Deletes the directory `path`: an empty one, or with `recursive` one with everything in it. Symbolic links
/// in it are deleted, never followed, and a link in place of the directory itself is refused. With `force` a
/// directory that does not exist counts as deleted. An empty path, "/", and a path with a ".." component are
/// refused. Throws nothing: without memory it fails with ENOMEM.
LUM_API bool DirDelete(const LumString& path, bool recursive, bool force);

/// Deletes the files that FileCopy and FileReplace left unfinished in the directory `path` when their process
/// was killed. For whoever owns the directory, at its start: nobody may be writing there.
LUM_API void DirRemoveLeftovers(const LumString& path);

/// Writes all of `content` to an open file; false with errno.
[[nodiscard]] LUM_API bool FileWriteAll(int fd, std::string_view content);

/// Renames within a file system unless `to` exists; false with errno.
[[nodiscard]] LUM_API bool FileRenameNew(const char* from, const char* to);

/// Copies the regular file `from`. The target appears whole or not at all, with mode 0600, synced; an
/// existing one is replaced, or with `failIfExists` kept and the call fails.
[[nodiscard]] LUM_API bool FileCopy(const LumString& from, const LumString& to, bool failIfExists);

/// Gives the regular file `from` the path `to` in the same file system, its content synced first. An existing
/// `to` is kept and the call fails.
[[nodiscard]] LUM_API bool FileMove(const LumString& from, const LumString& to);

/// Deletes the file `path`, a symbolic link itself rather than its target. A directory is a failure. With
/// `missingIsDeleted` a path that does not exist counts as deleted.
LUM_API bool FileDelete(const LumString& path, bool missingIsDeleted);

/// The same for a file that is there and must not come back after a loss of power: its directory is synced.
/// False also where that fails.
[[nodiscard]] LUM_API bool FileDeleteForGood(const LumString& path);

/// One directory's listing. Owned by whoever opened it, until CloseDirectory.
struct LumDirectory;

/// Opens a directory for reading; null where that fails.
[[nodiscard]] LUM_API LumDirectory* OpenDirectory(const LumString& path);
/// Puts the name of the next entry, "." and ".." among them, into `name`; false after the last. The order is
/// the directory's own.
[[nodiscard]] LUM_API bool ReadDirectory(LumDirectory* directory, LumString& name);
LUM_API void CloseDirectory(LumDirectory* directory);

/// True where `path` is a regular file, not a link to one. Nothing is opened.
[[nodiscard]] LUM_API bool IsRegularFile(const LumString& path);

/// Reads the regular file `path`, or one that a link there leads to, whole. False, with the reason in `error`
/// and `content` untouched, where it cannot be read, is of another kind (a pipe is not waited for), or is
/// larger than `maxBytes`.
[[nodiscard]] LUM_API bool FileRead(const LumString& path, std::size_t maxBytes, std::string& content,
                                    LumString& error);

/// Replaces the file `path` by `content`: a new file beside it, synced, with mode 0600 or the mode of the
/// file that it replaces, renamed over it, the directory synced. Readers see the old content or the new.
/// False, with the reason in `error` and the old file in place, where any of that fails.
[[nodiscard]] LUM_API bool FileReplace(const LumString& path, std::string_view content, LumString& error);

/// Where SaveToTempFile puts its files: a directory, without trailing separator, which is made again when it
/// is missing. At first it is the system's temporary directory; the agent sets its own at start, before any
/// module is loaded.
LUM_API void SetTempDirectory(const LumString& path);
[[nodiscard]] LUM_API LumString GetTempDirectory();

/// Creates a new empty file of mode 0600 in the temporary directory and returns it open with the path in
/// `path`; a closed descriptor, with errno, where that fails.
[[nodiscard]] LUM_API FileDescriptor OpenTempFile(LumString& path);

/// What the names of those files begin with.
inline constexpr std::string_view kTempFilePrefix = "lum-";
/// How many of them lie in the temporary directory now.
[[nodiscard]] LUM_API uint32_t CountTempFiles();
