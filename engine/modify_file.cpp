// Modify-file actions: the template's ModifyFiles sections add lines to
// text files after every run of given lines, as a modification file tells;
// the uninstaller takes those lines out again with the same file.
//
// The modification file holds a count n, n lines to look for, a count m
// and m lines to add. A target is read whole and its new content is written
// beside it and then put in its place, so the old content is never lost.
// Lines compare without their line ends; each line of the target keeps its
// own line end (LF or CR LF), and added lines take that of the line they
// follow.
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "engine/action_texts.h"
#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/files.h"
#include "foundation/text.h"
#include "foundation/text_lines.h"

using actiontext::Verb;

namespace {

const int kModeAddAfter = 1;

const Verb kModifying = {"Modifying ", "FAILED : Modifying "};
const Verb kUndoing = {"Undoing modifications to ", "FAILED : Undoing modifications to "};

typedef QUtils::TextLine Line;

// The lines to look for and the lines to add after them.
struct Modification {
  std::vector<std::string> lookFor;
  std::vector<std::string> add;
};

// A count line: decimal digits after optional blanks; the rest is ignored.
bool parseCount(const std::string& text, size_t* out) {
  const char* p = text.c_str();
  while (*p == ' ' || *p == '\t') p++;
  if (!std::isdigit(static_cast<unsigned char>(*p))) return false;
  char* end = nullptr;
  long value = std::strtol(p, &end, 10);
  if (value < 0 || value > 1000000) return false;
  *out = static_cast<size_t>(value);
  return true;
}

// Reads a modification file. False, with the reason in `why`, if a count is
// missing or fewer lines follow than it announces.
bool readModification(const char* path, Modification* out, const char** why) {
  std::string data;
  if (!QUtils::readWholeFile(path, &data)) {
    *why = "can't be read";
    return false;
  }
  std::vector<Line> lines = QUtils::splitTextLines(data);
  size_t at = 0;
  size_t count = 0;
  if (at >= lines.size() || !parseCount(lines[at++].text, &count)) {
    *why = "doesn't begin with the number of lines to look for";
    return false;
  }
  if (count == 0) {
    *why = "looks for no lines";
    return false;
  }
  if (lines.size() - at < count) {
    *why = "has fewer lines to look for than it announces";
    return false;
  }
  for (size_t i = 0; i < count; i++) out->lookFor.push_back(lines[at++].text);
  if (at >= lines.size() || !parseCount(lines[at++].text, &count)) {
    *why = "has no number of lines to add";
    return false;
  }
  if (lines.size() - at < count) {
    *why = "has fewer lines to add than it announces";
    return false;
  }
  for (size_t i = 0; i < count; i++) out->add.push_back(lines[at++].text);
  return true;
}

// Whether the lines `texts` stand in `lines` from `at` on.
bool matchesAt(const std::vector<Line>& lines, size_t at, const std::vector<std::string>& texts) {
  if (lines.size() - at < texts.size()) return false;
  for (size_t i = 0; i < texts.size(); i++) {
    if (lines[at + i].text != texts[i]) return false;
  }
  return true;
}

// Writes the window of `count` lines from `at`; the last one is given a
// line end if lines are to follow it. Gives the line end that added lines
// take.
std::string writeWindow(const std::vector<Line>& lines, size_t at, size_t count, std::string* out) {
  std::string end = "\n";
  for (size_t i = 0; i < count; i++) {
    const Line& line = lines[at + i];
    end = line.end.empty() ? "\n" : line.end;
    *out += line.text + end;
  }
  return end;
}

// The target with the lines added after every run of the lines looked for
// (runs don't overlap), or, when `undo` is set, with the added lines taken
// out again wherever they directly follow such a run.
std::string rewrite(const std::vector<Line>& lines, const Modification& change, bool undo) {
  std::string out;
  size_t n = change.lookFor.size();
  size_t at = 0;
  while (at < lines.size()) {
    if (!matchesAt(lines, at, change.lookFor)) {
      out += lines[at].text + lines[at].end;
      at++;
      continue;
    }
    std::string end = writeWindow(lines, at, n, &out);
    at += n;
    if (!undo) {
      for (const std::string& text : change.add) out += text + end;
    } else if (matchesAt(lines, at, change.add)) {
      at += change.add.size();
    } else {
      // Not the added lines: they stay, and the search goes on behind them.
      size_t count = change.add.size();
      if (count > lines.size() - at) count = lines.size() - at;
      for (size_t i = 0; i < count; i++, at++) out += lines[at].text + lines[at].end;
    }
  }
  return out;
}

// Reads the modification file and the target, rewrites the target, and
// reports. Shared by the change and its reverse.
bool rewriteTarget(Installer* engine, const char* target, const char* modificationFile, bool undo) {
  Modification change;
  const char* why = nullptr;
  if (!readModification(modificationFile, &change, &why)) {
    engine->log("ERROR: The modification file \"%s\" %s", modificationFile, why);
    return false;
  }
  std::string data;
  if (!QUtils::readWholeFile(target, &data)) {
    engine->log("ERROR: \"%s\" can't be read", target);
    return false;
  }
  std::string result = rewrite(QUtils::splitTextLines(data), change, undo);
  if (result == data) return true;

  // The new content replaces the target only whole.
  if (!QUtils::replaceWholeFile(target, result)) {
    engine->log("ERROR: \"%s\" could not be replaced; it is left as it was", target);
    return false;
  }
  return true;
}

}  // namespace

int Installer::applyModifyFileActions(QUtils::PConsole* console, InstallerUI* ui) {
  bool anyFailed = false;
  QUtils::PList<int> children(16);
  for (int section = document.findNext("ModifyFiles", -1); section >= 0;
       section = document.findNext("ModifyFiles", section)) {
    if (!evaluateCondition(document.getAttribute(section, "Condition"))) continue;
    children.clear();
    document.getChildren(section, &children);
    for (int i = 0; i < children.getCount(); i++) {
      int child = children[i];
      const char* pathText = document.getAttribute(child, "Path");
      const char* command = document.getAttribute(child, "Command");
      const char* text = document.getValue(child);
      if (QUtils::compareNoCase(document.getName(child), "File") != 0) continue;
      if (!actiontext::hasText(pathText) || !actiontext::hasText(command) || !actiontext::hasText(text)) continue;
      if (QUtils::compareNoCase(command, "AddAfter") != 0) continue;

      char target[actiontext::kTextSize];
      char modification[actiontext::kTextSize];
      actiontext::expand(this, pathText, target, sizeof target, true, true);
      actiontext::expand(this, text, modification, sizeof modification, true, true);
      char form[actiontext::kFormSize];
      if (!modifyFile(target, modification, kModeAddAfter, form, sizeof form, ui)) {
        anyFailed = true;
        break;  // the rest of this section is left alone
      }
      if (console) console->printf("%s%c%s", kLogModifyFile, kLogTab, form);
    }
    if (ui) ui->addFileLine(nullptr, true);
  }
  return anyFailed ? 1 : 0;
}

bool Installer::modifyFile(const char* target, const char* modificationFile, int mode, char* out, int outSize,
                           InstallerUI* ui) {
  if (out && outSize > 0) out[0] = 0;
  if (mode != kModeAddAfter) return true;
  if (!actiontext::hasText(target) || !actiontext::hasText(modificationFile)) return false;
  bool ok = rewriteTarget(this, target, modificationFile, false);
  if (ok) QUtils::boundedFormat(out, outSize, "%s%c%s%c%s", kLogAddAfter, kLogTab, target, kLogTab, modificationFile);
  if (ui) ui->pumpEventsQuietly();
  actiontext::report(this, ui, kModifying, ok, target);
  return ok;
}

bool Installer::undoModifyFile(const char* line, InstallerUI* ui) {
  if (!line) return false;
  char kind[32];
  char target[QUtils::kMaxPath];
  char modification[QUtils::kMaxPath];
  const char* field = actiontext::readField(line, kind, sizeof kind);
  field = actiontext::readField(field, target, sizeof target);
  actiontext::readField(field, modification, sizeof modification);
  bool ok = QUtils::compareNoCase(kind, kLogAddAfter) == 0 && target[0] && modification[0];
  if (!ok) {
    log("ERROR: Unknown modification in the log: %s", line);
  } else {
    ok = rewriteTarget(this, target, modification, true);
  }
  if (ui) ui->pumpEventsQuietly();
  actiontext::report(this, ui, kUndoing, ok, target);
  return ok;
}
