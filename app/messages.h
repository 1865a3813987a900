// The texts the entry shows the user before a front end exists.
#ifndef QLUX_APP_MESSAGES_H_
#define QLUX_APP_MESSAGES_H_

#define QLUX_MESSAGE_TITLE "Halvo Software installer"
#define QLUX_ADMIN_GRAPHICAL                                              \
  "This program requires Administrative privileges.\nPlease right-click " \
  "the installer and select \"Run as Administrator...\""
#define QLUX_ADMIN_CONSOLE "This program requires administrative privileges.\n"
// The second line of the rights message: the folder the write probe used,
// and why it failed.
#define QLUX_ADMIN_NOT_WRITABLE "It can't write into the program folder %s."
#define QLUX_ADMIN_MISSING "The program folder %s does not exist."
#define QLUX_ADMIN_UNKNOWN "The system doesn't name a program folder."
#define QLUX_BAD_BIN "The installer failed to initialize with the supplied binary file!"
#define QLUX_BAD_CHECKSUM                                                      \
  "The checksum of the installer doesn't match. This could indicate a broken " \
  "download.\nPlease, try downloading again!"
// A package file that travels beside the installer is missing or damaged;
// %s is its path.
#define QLUX_PART_MISSING                                                  \
  "The installer can't find its package file %s. Keep all files of the " \
  "download together in one folder."
#define QLUX_PART_DAMAGED                                                 \
  "The package file %s is damaged. This could indicate a broken download." \
  "\nPlease, try downloading it again!"
// An uninstaller whose action log or template can't be read: it has not
// changed anything.
#define QLUX_UNINSTALL_UNREADABLE                                           \
  "The uninstallation can't start: its action log or the installation file " \
  "it names is damaged or missing. Nothing was removed."

#endif  // QLUX_APP_MESSAGES_H_
