// The package builder's checks of a template, against the template language
// (engine/template_language.h) and against what the installer will do with
// it. Every problem is reported, each at the place it concerns:
//
// - every element and attribute, by the place it stands in, with its value
//   checked by its kind (a condition parses in full, a number is a number, a
//   word is one of its words, a colour is a colour);
// - every [NAME] and $NAME against the variables that DefValues, the
//   built-ins, the fields, the triggers and the buttons define;
// - every Dest is absolute, or starts with a variable that holds a folder;
// - the pages that do the work are there when the template installs files or
//   registers the product, and the uninstaller's wizard is there when the
//   product registers;
// - the uninstall data's places (the log, the backup, the template copy and
//   the uninstaller) are filled by the file sets;
// - the packed files that the wizard shows exist;
// - traps of the window: a RunningApps page and an error page that can't
//   show their list, a Back button that would run the file stage again.
#ifndef QLUX_TOOLS_PACK_TEMPLATE_CHECK_H_
#define QLUX_TOOLS_PACK_TEMPLATE_CHECK_H_

#include "tools/pack/findings.h"
#include "tools/pack/template_entries.h"
#include "tools/pack/xml_source.h"

// Checks the parsed template. `expanded` is what the builder made of it: the
// files it installs and packs (the folder entries expanded), and the
// uninstall data that Auto fills.
void checkTemplate(const XmlSource& xml, const ExpandedTemplate& expanded, Findings* findings);

#endif  // QLUX_TOOLS_PACK_TEMPLATE_CHECK_H_
