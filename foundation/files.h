// Files, directories and places of the running system.
//
// Every name is UTF-8 and is converted at the call: on Windows to wide text
// for the W functions, on POSIX by turning each '\' into '/'. So both '/'
// and '\' work as separators in every name on every system; paths that
// these operations build use kPathSeparator. Nothing here logs; results say
// what happened. Operations that give an int give 0 for success, else -1 or
// the system's error number (errno, GetLastError), unless told otherwise.
//
// Wildcards: '*' stands for any run of characters (dots and a leading dot
// included), '?' for exactly one, and a pattern ending in ".*" also takes a
// name with no dot at all, so "*.*" takes every name. Windows matches
// without regard to case; POSIX matches case-sensitively, as its names are.
#ifndef QLUX_FOUNDATION_FILES_H_
#define QLUX_FOUNDATION_FILES_H_

#include <cstdio>

#include "foundation/charstring.h"

namespace QUtils {

// A buffered stream of the C runtime. Modes: "rb", "wb", "ab", "rt", "wt".
// Null on failure. On POSIX the stream isn't inherited by started programs.
FILE* openFile(const char* name, const char* mode);

int deleteFile(const char* name);
// The system's rename: POSIX replaces an existing `newName`, Windows fails.
int renameFile(const char* oldName, const char* newName);
// Moves `source` over `target`, replacing it in one step, after flushing
// `source` to the disk: for writing a file beside its old version and then
// putting it in place. On POSIX the new file takes the old one's
// permissions, and a `target` that is a symbolic link stays one: the file
// it leads to is replaced.
int replaceFile(const char* source, const char* target);
int removeDirectory(const char* name);

// True if something of that name is there (a directory, a file, a link,
// even a dangling one).
bool fileExists(const char* name);
// True if the name is a directory or leads to one through links.
bool isDirectory(const char* name);
// True if the name itself is a symbolic link (Windows: a reparse point).
bool isLink(const char* name);
// True if made, or if the directory was there already.
bool makeDirectory(const char* name);
// Makes a file runnable: POSIX gives it mode 0755; Windows has no such bit
// and does nothing. 0, or the system's error number.
int setExecutable(const char* path);
// Whether a file has the owner's execute bit (POSIX); always false on
// Windows, which has no such bit.
bool isExecutable(const char* path);

// A directory that the tree operations may walk and remove.
// Windows: the directory bit is set, and none of read-only, hidden, system
// or device. POSIX has no such bits; its plain directory is a real one (not
// a symbolic link) that the process may change, the counterpart of not
// read-only. A leading dot doesn't count as hidden: products are often
// installed under such names, and removeEmptyParents only ever removes
// directories that hold nothing but the chain it came up.
bool isPlainDirectory(const char* name);
// True if the directory's only entries are ".", ".." and, if `child` isn't
// null, the entry named `child`, and each of them is a plain directory.
// On POSIX the directory mustn't be the top of a mounted file system
// either (which also keeps "/" out). What removeEmptyParents asks of every
// level.
bool isBareDirectory(const char* path, const char* child);

// Makes every directory of `path` that is followed by a separator, so a
// path to a file makes the file's directory and "a/b/" makes "a" and "a/b".
// The root isn't made: on Windows the first three characters (a drive and
// its root, "C:\") or the "\\server\share\" of a network path; on POSIX the
// leading '/'. Gives 0, or -1 as soon as one can't be made. `outCreated`
// (may be null) counts the directories made, also after a failure.
int createPath(const char* path, int* outCreated);
// Removes a file or a directory with everything under it, asking nothing.
// POSIX never follows a symbolic link: a link is removed, never what it
// leads to. False for a null path or if anything stayed behind.
bool deleteTree(const char* path);
// Deletes the entries matching the wildcard `pattern` in `directory` and in
// all its subdirectories (not through links). With `removeIfEmpty`, each
// directory left empty goes too. Gives the number of entries it tried to
// delete, or -1 for a null argument or a directory that isn't there.
int deleteMatching(const char* directory, const char* pattern, bool removeIfEmpty);
// Removes the directory `path` if it is bare, and each parent that it leaves
// bare, all as one tree at the end. Gives the number of levels removed, or
// 0 if nothing was removed. The walk never looks at a root ("C:", "/"), and
// stops below `keep` (may be null), a directory that must stay even when
// it is bare, so that nothing above it is reached either.
// A level counts only if isBareDirectory and a wildcard search of it agree
// that it holds nothing else: this walk goes upwards out of any directory
// it was given, so a fault in one of them must not be enough to remove a
// tree that is in use.
int removeEmptyParents(const char* path, const char* keep = nullptr);

// True if `name` matches the wildcard `pattern` (case-sensitively). The
// matching rule of the POSIX wildcard search.
bool matchWildcard(const char* pattern, const char* name);

// The result of a wildcard search, with a cursor. Each name is the
// pattern's directory part, as the pattern spells it, up to and including
// its last separator, then the entry's name. "." and ".." are left out;
// files and directories come in the order the system gives them.
class FileList {
 public:
  FileList();
  FileList(const FileList&) = delete;
  FileList& operator=(const FileList&) = delete;
  ~FileList();

  // Searches `pattern`, whose wildcards may stand in its last part only.
  // Replaces the list and gives true if anything at all matched, even if
  // that was only "." and ".."; otherwise gives false and keeps the list.
  bool search(const char* pattern);

  int getCount() const { return count; }
  bool isEmpty() const { return count == 0; }
  // Null out of range.
  const char* getName(int index) const;
  void rewind() { position = 0; }
  // The name at the cursor, moving it on; null at the end.
  const char* next();
  void clear();

 private:
  // The length of the pattern's directory part, its last separator included.
  static int directoryPartLength(const char* pattern);
  // Appends that part of `pattern` followed by `name`.
  void add(const char* pattern, int directoryLength, const char* name);
  void swap(FileList& other);

  char** names;
  int count;
  int capacity;
  int position;
};

// The executable's full path; its directory with the last separator.
bool getModulePath(char* out, int size);
bool getModuleDirectory(char* out, int size);
// The folder the user started the program from, with its last separator.
// Windows: the module's folder, which is where the started path leads.
// POSIX: the folder of the name that setProgramPath was given (argv[0]),
// made absolute against the working directory, or found on $PATH when the
// name has no '/'; so a symbolic link to the program gives the link's
// folder, not the program file's. getModuleDirectory when the name can't
// be placed.
bool getLaunchDirectory(char* out, int size);
#ifndef _WIN32
// The full path of an executable file named `name` in a folder of $PATH,
// the first in the list's order. An empty entry of the list (the working
// directory) is never searched. False if there is none, or it doesn't fit.
bool findOnPath(const char* name, char* out, int size);
#endif
// The system's directory for temporary files without separators at its
// end: POSIX $TMPDIR, else "/tmp"; Windows GetTempPathW, else "C:".
bool getTempDirectory(char* out, int size);

// The process's own environment variable `name` as UTF-8 text. Windows
// reads it through the wide API, so a value with letters outside the ANSI
// code page comes out whole; POSIX takes the bytes as they are. False, with
// `out` emptied to a null handle, when the variable isn't set; a variable
// set to the empty text gives true and an empty text.
bool getProcessEnvironment(const char* name, CharString* out);

// A process-wide text of kMaxPath bytes: the program's name as the command
// line gave it, stored by the entry before anything else.
void setProgramPath(const char* path);
const char* getProgramPath();

// The visible size of the console on standard output; false if there is
// no console (or terminal) there.
bool getConsoleSize(int* outColumns, int* outRows);

// Formats into 512 bytes and writes to the debugger's output (Windows), or
// to standard error when QLUX_DEBUG_PRINT is set (POSIX); else nothing.
void debugPrint(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_FILES_H_
