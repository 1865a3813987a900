// Files, directories and places of the running system.
//
// Every name is UTF-8 and is converted at the call: on Windows to wide text
// for the W functions, on POSIX by turning each '\' into '/'. So both '/'
// and '\' work as separators in every name on every system; paths that
// these operations build use kPathSeparator. Nothing here logs; results say
// what happened. Operations that give an int give 0 for success, else -1 or
// the system's error number (errno, GetLastError), unless told otherwise.
//
// On POSIX no operation here is led by a symbolic link that a user other
// than root or this process's own user made: such a link on the way to a
// name stops the operation (ELOOP), so that a link put into a folder that
// other users can write to never carries the installer's writes and
// deletions elsewhere (path_walk.h). A link as the last part of a name is
// followed by reading only; deleting removes the link itself, and making a
// file anew replaces it. Files are made with explicit permission bits
// whatever the umask: kPublicFileMode unless asked otherwise, directories
// 0755. Windows keeps its own rules: its product and system folders are
// closed to other users by their access lists.
//
// Wildcards: '*' stands for any run of characters (dots and a leading dot
// included), '?' for exactly one, and a pattern ending in ".*" also takes a
// name with no dot at all, so "*.*" takes every name. Windows matches
// without regard to case; POSIX matches case-sensitively, as its names are.
#ifndef QLUX_FOUNDATION_FILES_H_
#define QLUX_FOUNDATION_FILES_H_

#include <cstdio>

#include "foundation/charstring.h"
#include "foundation/lists.h"

namespace QUtils {

// Permission bits of a file that this layer makes (POSIX; Windows has
// none): readable by everybody, or by its owner alone.
const int kPublicFileMode = 0644;
const int kPrivateFileMode = 0600;

// A buffered stream of the C runtime. Modes: "rb", "wb", "ab", "rt", "wt",
// "at". Null on failure. "w" makes the file anew (a link at the name is
// replaced, never written through) with `newFileMode`, as does "a" when
// the file isn't there. On POSIX only a regular file opens, and the stream
// isn't inherited by started programs.
FILE* openFile(const char* name, const char* mode, int newFileMode = kPublicFileMode);

int deleteFile(const char* name);

// The files that FileDeleters took away but whose space the system hasn't
// given back yet. Freeing a file can wait for the disk (a file system that
// tells the disk of each freed block does so while the file is deleted),
// and a deletion of thousands of files then spends most of its time
// waiting, one file after the other. A deleter given a RemovedFiles takes
// each file's name away at once and keeps a reference to the file (POSIX:
// a descriptor); release() drops the references on several threads at
// once, so that the waits overlap. Until then the files take the space
// they took before; the system frees it however the process ends. At most
// half of the descriptors that the process may open are held, and never
// more space than is free beside it on the file's file system: past
// either, the files held are released first. Windows frees a file with its
// name, and holds nothing.
class RemovedFiles {
 public:
  RemovedFiles();
  ~RemovedFiles();  // releases
  RemovedFiles(const RemovedFiles&) = delete;
  RemovedFiles& operator=(const RemovedFiles&) = delete;
  // Frees the space of every file held, and returns when it is free.
  void release();
  // The number of files held.
  int count() const;

 private:
  friend class FileDeleter;
  struct Held;
  void hold(int descriptor);
  Held* held;  // null until the first file
};

// Deletes many files (and empty directories) one after the other, each as
// deleteFile (removeDirectory) does, for a caller that removes a whole
// tree in order. The directories of the last few names stay open (POSIX:
// the walk's descriptors), so that the next name in one of them costs a
// look-up of the directory's identity and the removal, instead of a walk of
// its whole path; a directory moved away or replaced in between is walked
// anew, so that each name gives what deleteFile would.
//
// With a RemovedFiles, a deleted file's space is freed when that releases
// it (see above); without one, by the deletion itself.
class FileDeleter {
 public:
  explicit FileDeleter(RemovedFiles* removed = nullptr);
  ~FileDeleter();
  FileDeleter(const FileDeleter&) = delete;
  FileDeleter& operator=(const FileDeleter&) = delete;
  int deleteFile(const char* name);
  int removeDirectory(const char* name);

 private:
  struct Place;
  int removeEntry(const char* name, int flags);
  int removeAt(int directory, const char* leaf, int flags);
  Place* place;  // POSIX: the kept directories; null until the first name
  RemovedFiles* removed;
};
int renameFile(const char* oldName, const char* newName);
// Moves `source` over `target`, replacing it in one step, after flushing
// `source` to the disk: for writing a file beside its old version and then
// putting it in place. On POSIX the new file takes the old one's owner and
// permission bits (never its set-id bits), so that it is open to exactly
// whom the old one was; a `target` that is a trusted symbolic link stays
// one, and the file it leads to is replaced.
int replaceFile(const char* source, const char* target);
// Copies the file `from` whole to a new file at `to`, replacing whatever
// stands there (never writing through a link); the copy gets the
// permission bits of `from`.
int copyFile(const char* from, const char* to);
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
// Makes a directory that only this process's user may enter (POSIX mode
// 0700; Windows: as makeDirectory), with the directories above it. An
// existing one must be a directory of this user, and is closed to others.
bool makePrivateDirectory(const char* name);
// Sets a regular file's permission bits (POSIX; Windows has none and does
// nothing). A link at the name is not followed. 0, or the error number.
int setFileMode(const char* path, int mode);
// The permission bits of a regular file (POSIX; a link is not followed).
// -1 if there is none, and always on Windows.
int getFileMode(const char* path);
// Makes a file runnable: setFileMode 0755.
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
// directories that are empty.
bool isPlainDirectory(const char* name);

// Whether `path` is a root or one of the system's own directories, which no
// installation may remove (or empty with a wildcard) whatever its log or
// template says: POSIX "/", "/usr", "/etc", "/opt", "/home", "/tmp" and their
// like; Windows a drive's root, the Windows and system folders, the program
// and program data folders, and the users' folders.
bool isSystemDirectory(const char* path);
// The system's own directories for isSystemDirectory (roots apart), in the
// system's separators and without one at the end.
void listSystemDirectories(Table<CharString>* out);

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
// Removes the directory `path` if it is empty, and each parent that this
// leaves empty, level by level with the system's call for an empty
// directory, so that nothing which holds an entry ever goes, whatever was
// judged before. Gives the number of levels removed, 0 if none. The walk
// never looks at a root ("C:", "/") and stops at a system directory
// (isSystemDirectory), at a level that isn't a plain directory (a link is
// never followed upwards), and below `keep` (may be null), a directory that
// must stay even when it is empty, so that nothing above it is reached
// either. On POSIX a mount point's top never goes (the system refuses).
// `deleter` (may be null) removes the levels, keeping its walks.
int removeEmptyParents(const char* path, const char* keep = nullptr, FileDeleter* deleter = nullptr);

// Symbolic links (POSIX; Windows has none that this layer makes, and gives
// -1 and false). makeSymbolicLink makes `path` a link to `target`, where
// nothing stands; readSymbolicLink gives the text of the link at `path`.
int makeSymbolicLink(const char* target, const char* path);
bool readSymbolicLink(const char* path, char* out, int size);

// How far a file that the installer reads its orders from (a journal, an
// action log, a backup, a template copy) can be trusted: it must be a
// regular file of this process's user that nobody else may write to, or a
// user could make the installer act for her.
enum FileTrust : int {
  kTrustedFile = 0,
  kFileMissing,        // nothing is there
  kNotAFile,           // a directory, a FIFO, a device, or a link not followed
  kFileOfAnotherUser,  // its owner isn't this process's user
  kFileWritableByOthers,
};
// The same test tells whether a name in a shared directory may be written:
// only where nothing stands or this user's own file does. Windows leaves
// ownership to the access lists of the folders these files lie in, and
// gives kTrustedFile for any file.
FileTrust checkFileTrust(const char* path);
// The same for a file that is open already: no race with a name that
// changes between the test and the open.
FileTrust checkFileTrust(FILE* file);
// A text for a result of checkFileTrust, such as "belongs to another user".
const char* describeFileTrust(FileTrust trust);

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

// This run's own directory for temporary files: made on the first call, in
// the temporary directory, with a name of kRunDirectoryPrefix and six
// random characters that no other directory had (POSIX mkdtemp, mode
// 0700), so that no other user can have made, or can enter, any file in
// it. False if it can't be made. Every temporary file of a run lies in it.
const char kRunDirectoryPrefix[] = "qlux-";
bool getRunDirectory(char* out, int size);
// Takes `path`, the run directory that another process of this user made
// (an uninstaller's first stage hands its own over), as this run's, if it
// is one (isRunDirectory). False otherwise, and nothing changes.
bool adoptRunDirectory(const char* path);
// Whether `path` is a run directory: directly in the temporary directory,
// named by the prefix, a directory (not a link) of this user that no
// other user may enter.
bool isRunDirectory(const char* path);
// Removes this run's directory with everything in it, as far as it can
// (Windows can't delete a program that runs). Nothing if none was made.
void removeRunDirectory();

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
