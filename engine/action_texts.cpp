// Helpers shared by the environment, INI and modify-file actions.
#include "engine/action_texts.h"

#include <cstring>

#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/system_error.h"
#include "foundation/text.h"

namespace actiontext {

void expand(Installer* engine, const char* text, char* out, int size, bool collapse, bool isPath) {
  engine->expandVariables(text ? text : "", out, size);
  if (!collapse) return;
  if (isPath && QUtils::kPathSeparator == '/') {
    for (char* p = out; *p; p++) {
      if (*p == '\\') *p = '/';
    }
  }
  QUtils::collapseSeparators(out);
}

const char* readField(const char* field, char* out, int size) {
  const char* end = field;
  while (*end && *end != '\t') end++;
  int length = static_cast<int>(end - field);
  if (size > 0) {
    if (length > size - 1) length = size - 1;
    std::memcpy(out, field, static_cast<size_t>(length));
    out[length] = 0;
  }
  while (*end == '\t') end++;
  return end;
}

void compose(char* out, int size, const Verb& verb, bool ok, const char* object, int error) {
  QUtils::boundedFormat(out, size, "%s%s", ok ? verb.done : verb.failed, object ? object : "");
  if (!ok && error > 0) QUtils::appendSystemError(out, size, error);
}

namespace {

// A work message, as compose() builds it.
struct Message {
  Message(const Verb& verb, bool ok, const char* object, int error) {
    compose(text, sizeof text, verb, ok, object, error);
  }
  char text[QUtils::kMaxPath + kTextSize * 3];
};

}  // namespace

void report(Installer* engine, InstallerUI* ui, const Verb& verb, bool ok, const char* object, int error,
            bool flush) {
  Message message(verb, ok, object, error);
  if (!ok) {
    engine->addError(message.text);
    engine->log("ERROR: %s", message.text);
  }
  if (ui) ui->addFileLine(message.text, flush);
}

void report(QUtils::Table<QUtils::CharString>* errorList, InstallerUI* ui, const Verb& verb, bool ok,
            const char* object, int error, bool flush) {
  Message message(verb, ok, object, error);
  if (!ok && errorList) errorList->add(QUtils::CharString(message.text));
  if (ui) ui->addFileLine(message.text, flush);
}

}  // namespace actiontext
