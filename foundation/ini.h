// Reading and writing single values of INI files, by line, the way the
// installer's INI actions and their undoing need it.
//
// A file is a list of lines. A line whose first non-blank character is ';'
// is a comment; `[name]` starts a section; a line with '=' is a key of the
// current section, named by the text before the '='. Names and values are
// taken without the blanks around them. Nothing else is interpreted, and
// every line that isn't changed is written back as it was, in its place,
// with its own line end (LF or CR LF) and a leading byte order mark kept.
// A new line takes the line end of the file's first line, or the system's
// own in a file that has none. Key names compare exactly on POSIX, and on
// Windows without regard to case, as the system's own INI functions compare
// them; a key keeps the spelling it has in the file. How section names
// compare is told with each operation ("exactly" is, on Windows, again
// without regard to case).
#ifndef QLUX_FOUNDATION_INI_H_
#define QLUX_FOUNDATION_INI_H_

namespace QUtils {

// Reads into `out` (always terminated) and gives the number of bytes given,
// without the last NUL.
// - `section` and `key`: the key's value, or `defaultValue` (null: the
//   empty text) if the key isn't there. Both names compare exactly.
// - `key` null: the names of the section's keys, each followed by a NUL,
//   the section compared without regard to case.
// - `section` null: the names of all sections, each followed by a NUL.
// Only the first section of a name is looked at. A file that can't be read
// counts as empty. Names that don't fit whole are left out.
int readIniValue(const char* file, const char* section, const char* key, const char* defaultValue, char* out,
                 int size);

// Changes one key of `section` (compared without regard to case) and
// gives 0, or -1 if `file` or `section` is null or the file can't be
// written. A file that can't be read counts as empty. The scan of the
// section ends at the next section line.
// - `value` given, `beforeKey` null: the first line of the key is replaced
//   in place by `key=value`.
// - `value` and `beforeKey` given (even empty): every line of the key goes,
//   and `key=value` is put before the key `beforeKey` if the section has
//   it, else behind the section's last key (or behind its section line).
//   Thus an empty `beforeKey` moves a key to the end of its section.
// - A new key in a section that isn't in the file, and isn't the file's
//   last (with that exact spelling), comes at the end under a new
//   `[section]` line; in the file's last section it comes before
//   `beforeKey`, or else at the end of the file.
// - `value` null: the first line of the key goes.
// - `key` null: the section line and all keys of the section go; its
//   comments and blank lines stay.
// The new content is written beside the file and then put in its place, so
// a failure leaves the old file whole. An unchanged file isn't written.
int writeIniValue(const char* file, const char* section, const char* key, const char* value,
                  const char* beforeKey);

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_INI_H_
