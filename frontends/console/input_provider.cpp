// The two sources of a console run's answers.
#include "frontends/console/input_provider.h"

#include <cstring>

#include "foundation/files.h"
#include "foundation/xml.h"

namespace {

// Does the typed `line` name `word`? See InputProvider::askTwoWay.
bool answers(const char* line, const char* word, int caseSensitive, int allowPrefix) {
  if (!word) return false;
  if (caseSensitive == 0) return QUtils::compareNoCase(line, word) == 0;
  if (allowPrefix == 0) return std::strcmp(line, word) == 0;
  size_t length = std::strlen(line);
  return length > 0 && length <= std::strlen(word) && std::strncmp(line, word, length) == 0;
}

// The whole number a line begins with (blanks before it allowed); false if
// it begins with something else.
bool leadingNumber(const char* line, long* value) {
  while (*line == ' ' || *line == '\t') line++;
  if (*line < '0' || *line > '9') return false;
  long number = 0;
  for (; *line >= '0' && *line <= '9'; line++) {
    if (number < 100000000) number = number * 10 + (*line - '0');
  }
  *value = number;
  return true;
}

bool isEnabled(const QUtils::PList<bool>& enabled, int index) { return index >= enabled.getCount() || enabled[index]; }

}  // namespace

// ---------------------------------------------------------------------------
// User

User::User(int isUninstall, FILE* in, FILE* out)
    : isUninstall(isUninstall), closed(false), in(in), out(out), ended(false) {}

bool User::readLine(char* line, int size) {
  if (size < 1) return false;
  line[0] = 0;
  if (!in || !std::fgets(line, size, in)) {
    line[0] = 0;
    return false;
  }
  size_t length = std::strlen(line);
  if (length > 0 && line[length - 1] == '\n') {
    line[--length] = 0;
    if (length > 0 && line[length - 1] == '\r') line[--length] = 0;
  } else {
    // A longer line: what didn't fit is no answer to the next question.
    int c;
    while ((c = std::fgetc(in)) != EOF && c != '\n') {
    }
  }
  return true;
}

void User::endOfInput() {
  ended = true;
  std::fprintf(out, "\nThe input has ended before this question was answered. The %s is cancelled.\n",
               isUninstall ? "uninstallation" : "installation");
  std::fflush(out);
}

bool User::askText(const char* prompt, char* answer, int size, const char* current, const char* fallback) {
  if (!answer || size < 1) return false;
  const char* preset = current && *current ? current : (fallback && *fallback ? fallback : nullptr);
  std::fprintf(out, "%s", prompt ? prompt : "");
  if (preset)
    std::fprintf(out, " [%s]:", preset);
  else
    std::fprintf(out, ":");
  std::fflush(out);
  readLine(answer, size);
  if (!answer[0] && preset) QUtils::copyText(answer, preset, size);
  return true;
}

int User::askTwoWay(const char* prompt, int preselected, const char* first, const char* second, int caseSensitive,
                    int allowPrefix) {
  bool hasDefault = preselected == 0 || preselected == 1;
  std::fprintf(out, "%s (", prompt ? prompt : "");
  if (preselected == 0)
    std::fprintf(out, "[%s] or %s", first, second);
  else if (preselected == 1)
    std::fprintf(out, "%s or [%s]", first, second);
  else
    std::fprintf(out, "%s or %s", first, second);
  std::fprintf(out, "): ");
  for (;;) {
    std::fflush(out);
    char line[128];
    bool read = readLine(line, sizeof line);
    if (!line[0]) {
      if (hasDefault) return preselected;
      if (!read) {
        endOfInput();
        return -1;
      }
    } else {
      bool isFirst = answers(line, first, caseSensitive, allowPrefix);
      bool isSecond = answers(line, second, caseSensitive, allowPrefix);
      if (isFirst != isSecond) return isFirst ? 0 : 1;
    }
    std::fprintf(out, "Please, answer with %s or %s: ", first, second);
  }
}

int User::askChoice(const char* prompt, int preselected, const QUtils::Table<QUtils::CharString>& options,
                    const QUtils::PList<bool>& enabled) {
  int count = options.getCount();
  if (count == 0) return -1;
  if (preselected < 0 || preselected >= count || !isEnabled(enabled, preselected)) preselected = -1;
  std::fprintf(out, "%s\n", prompt ? prompt : "");
  for (int i = 0; i < count; i++) {
    const char* text = options[i].getText();
    std::fprintf(out, "  %d) %s\n", i + 1, text ? text : "");
  }
  for (;;) {
    std::fprintf(out, "Enter your choice [1-%d", count);
    if (preselected >= 0) std::fprintf(out, ", default is %d", preselected + 1);
    std::fprintf(out, "]: ");
    std::fflush(out);
    char line[16];
    bool read = readLine(line, sizeof line);
    if (!line[0]) {
      if (preselected >= 0) return preselected;
      if (!read) {
        endOfInput();
        return -1;
      }
      continue;
    }
    long number = 0;
    if (leadingNumber(line, &number) && number >= 1 && number <= count) {
      if (isEnabled(enabled, static_cast<int>(number) - 1)) return static_cast<int>(number) - 1;
      std::fprintf(out, "Choice %ld is disabled, choose something else!\n", number);
    } else {
      std::fprintf(out, "Please, answer with a number (1 to %d)\n", count);
    }
  }
}

void User::showNotice(const char* text) {
  std::fprintf(out, "%s\nPress Enter to continue...", text ? text : "");
  std::fflush(out);
  char line[5];
  readLine(line, sizeof line);
}

bool User::pause(const char* text) {
  std::fprintf(out, "%s", text ? text : "");
  std::fflush(out);
  char line[8];
  readLine(line, sizeof line);
  QUtils::trimText(line);
  return QUtils::compareNoCase(line, "q") == 0 || QUtils::compareNoCase(line, "end") == 0;
}

void User::close(bool failed) {
  if (isUninstall || closed) return;
  std::fflush(out);
  closed = true;
}

// ---------------------------------------------------------------------------
// Automated

Automated::Automated(const char* fileName, int isUninstall, FILE* out) : isUninstall(isUninstall), out(out) {
  QUtils::copyText(this->fileName, fileName ? fileName : "", sizeof this->fileName);
}

bool Automated::open() {
  if (!fileName[0]) return true;
  if (!QUtils::fileExists(fileName)) {
    std::fprintf(out, "The file \"%s\" does not exist! Please specify existing file!\n", fileName);
    return false;
  }
  // Only a check: the engine reads the values when it reads its defaults.
  QUtils::PXML document;
  if (document.load(fileName) != 0 || document.findNext("DefValues", -1) < 0) {
    std::fprintf(out,
                 "The file \"%s\" is not a propper XML installation config file. The installation can not "
                 "continue!\n",
                 fileName);
    std::fflush(out);
    return false;
  }
  return true;
}

bool Automated::askText(const char* prompt, char* answer, int size, const char* current, const char* fallback) {
  if (!answer || size < 1) return false;
  QUtils::copyText(answer, current ? current : "", size);
  return true;
}

int Automated::askTwoWay(const char* prompt, int preselected, const char* first, const char* second, int caseSensitive,
                         int allowPrefix) {
  return preselected;
}

int Automated::askChoice(const char* prompt, int preselected, const QUtils::Table<QUtils::CharString>& options,
                         const QUtils::PList<bool>& enabled) {
  return preselected;
}

void Automated::showNotice(const char* text) {
  std::fprintf(out, "%s\n", text ? text : "");
  std::fflush(out);
}

void Automated::close(bool failed) {
  const char* prefix = isUninstall ? "un" : "";
  if (failed)
    std::fprintf(out, "The automatic %sinstaller has encountered an ERROR!\n", prefix);
  else
    std::fprintf(out, "Automatic %sinstallation was successful!\n", prefix);
  std::fflush(out);
}
