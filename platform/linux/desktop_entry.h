// Freedesktop desktop entries: the Linux form of a shortcut. A shell link
// becomes a launcher (Type=Application) and an Internet shortcut a link
// (Type=Link). Values are escaped as the format asks: '\', line ends and
// TABs in every value, and in Exec each argument quoted, with '%' doubled.
#ifndef QLUX_PLATFORM_LINUX_DESKTOP_ENTRY_H_
#define QLUX_PLATFORM_LINUX_DESKTOP_ENTRY_H_

#include <string>

namespace DesktopEntry {

// A launcher that runs `exec` (an Exec value, see execLine), in `path` if
// that isn't null or empty.
std::string application(const char* name, const char* comment, const char* exec, const char* path);

// A link to `url`.
std::string link(const char* name, const char* comment, const char* url);

// The Exec value that runs `program` with the arguments of `commandLine`,
// a command line as a template writes it: words are split at blanks
// outside double quotes, and the quotes themselves are dropped, so that
// -name="a b" is the one argument -name=a b. Null arguments give none.
std::string execLine(const char* program, const char* commandLine);

// The entry's Name: the last part of the link's path without its
// extension ("Tool.lnk" gives "Tool").
std::string nameOf(const char* linkPath);

}  // namespace DesktopEntry

#endif  // QLUX_PLATFORM_LINUX_DESKTOP_ENTRY_H_
