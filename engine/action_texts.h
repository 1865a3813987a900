// Small helpers shared by the environment, INI and modify-file actions and
// by the uninstaller: reading an action's texts out of the template, the
// verb pairs of their work messages and where those messages go, and the
// reading of TAB-separated fields of a log line.
#ifndef QLUX_ENGINE_ACTION_TEXTS_H_
#define QLUX_ENGINE_ACTION_TEXTS_H_

#include "foundation/charstring.h"
#include "foundation/lists.h"

class Installer;
class InstallerUI;

namespace actiontext {

// An action's texts are expanded into this many bytes.
const int kTextSize = 512;
// The log form of one action.
const int kFormSize = 4096;

// A work message: the text for success and the text for failure.
struct Verb {
  const char* done;
  const char* failed;
};

// Expands `text` (null: the empty text) into `out`. With `collapse`, runs
// of separators become one, and where the system's separator is '/' every
// '\' becomes '/' first when `isPath` is set.
void expand(Installer* engine, const char* text, char* out, int size, bool collapse, bool isPath);

// True if the text is there and not empty.
inline bool hasText(const char* text) { return text && *text; }

// Copies the field at `field` (up to the next TAB or the end) into `out`
// and gives the field behind the run of TABs that follows it.
const char* readField(const char* field, char* out, int size);

// Builds the work message "verb + object" into `out` (cut at `size`): the
// failed verb unless `ok`, with the system's words for `error` on a failure
// when that isn't 0.
void compose(char* out, int size, const Verb& verb, bool ok, const char* object, int error = 0);

// Builds "verb + object" into `message`, then reports it: a failure goes to
// the error list and the debug log, with the system's words for `error`
// when that isn't 0; every message goes to `ui` (may be null) as a file
// line, which `flush` makes the front end show at once.
void report(Installer* engine, InstallerUI* ui, const Verb& verb, bool ok, const char* object, int error = 0,
            bool flush = false);
// The same for work done without an engine: a failure goes to `errorList`
// (may be null) only.
void report(QUtils::Table<QUtils::CharString>* errorList, InstallerUI* ui, const Verb& verb, bool ok,
            const char* object, int error = 0, bool flush = false);

}  // namespace actiontext

#endif  // QLUX_ENGINE_ACTION_TEXTS_H_
