// Test doubles for the engine's unit tests: an Installer with the platform
// operations stubbed, which takes a template as text, and a front end that
// records what it was asked to do.
#ifndef QLUX_ENGINE_TEST_SUPPORT_H_
#define QLUX_ENGINE_TEST_SUPPORT_H_

#include <string>
#include <vector>

#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "engine/memory_registry.h"
#include "foundation/text.h"

// A console that keeps what it is given, without prefix: the whole text in
// `all`, and each finished line in `lines`.
class LinesConsole : public QUtils::PConsole {
 public:
  LinesConsole() { flags = 0; }
  int write(const char* text, int length) override {
    all.append(text, static_cast<size_t>(length));
    pending.append(text, static_cast<size_t>(length));
    size_t end;
    while ((end = pending.find("\r\n")) != std::string::npos) {
      lines.push_back(pending.substr(0, end));
      pending.erase(0, end + 2);
    }
    return 0;
  }
  bool has(const std::string& line) const {
    for (const std::string& l : lines)
      if (l == line) return true;
    return false;
  }
  std::vector<std::string> lines;
  std::string all;
  std::string pending;
};

class TestInstaller : public Installer {
 public:
  TestInstaller() { configFile[0] = 0; }
  // Parses `xml` into the document, as runInstallation would.
  void loadTemplate(const char* xml) { document.parse(xml); }
  bool getConfigFile(char* buffer, int size) override {
    QUtils::copyText(buffer, configFile, size);
    return true;
  }
  const char* getToolkitPort() override { return "test"; }
  RegistryAccess* getRegistry() override { return &registry; }
  // The value of a variable, or "<unset>".
  std::string value(const char* name) {
    char buffer[1560];
    if (getVariable(name, buffer, sizeof buffer) == -1) return "<unset>";
    return buffer;
  }
  char configFile[1560];
  MemoryRegistry registry;
};

// A front end that answers like the console does (no confirmation, not
// graphical) and records the lines and messages it was given.
class RecordingUI : public InstallerUI {
 public:
  int run() override { return runResult; }
  void finish() override { finished = true; }
  void showDialog(int dialog) override {
    shown.push_back(dialog);
    note("showDialog " + std::to_string(dialog));
  }
  void showSubDialog(int dialog, int subDialog) override { note("showSubDialog " + pair(dialog, subDialog)); }
  void updateButtons(int dialog, int subDialog) override { note("updateButtons " + pair(dialog, subDialog)); }
  void refreshDialog(int, int, int, bool) override {}
  void loadFields(int, int) override {}
  void updateControlConditions() override {}
  void showControls(int dialog, int subDialog, bool) override { note("showControls " + pair(dialog, subDialog)); }
  int leaveDialog(int) override { return 0; }
  void leaveSubDialog(int, int) override {}
  int storeFields(int) override { return 0; }
  void storeSubDialogFields(int, int) override {}
  void clearTasks() override {}
  void destroySubDialog() override {}
  void retainControl(const char* name) override { note(std::string("retainControl ") + name); }
  bool confirmCancel() override { return confirm; }
  void enableButtons(bool) override {}
  void pumpEvents() override {}
  void setOverallProgress(int percent) override { progress = percent; }
  void setCurrentProgress(int) override {}
  void setDestinationText(const char*) override {}
  int pumpEventsQuietly() override { return 0; }
  void addFileLine(const char* text, bool flush) override {
    if (text) lines.push_back(text);
    note(std::string("addFileLine ") + (text ? text : "<null>") + (flush ? " flush" : ""));
  }
  void clearFileLines() override { note("clearFileLines"); }
  bool showMessage(const char* text, int) override {
    messages.push_back(text);
    return false;
  }
  int beginProgress() override { return 0; }
  int endProgress() override { return 0; }
  bool isGraphical() override { return graphical; }
  int getIgnoreErrors() override { return 0; }
  void setTaskState(const char* name, const char* text, int state) override {
    note(std::string("setTaskState ") + name + " " + std::to_string(state) + " " + text);
  }
  void showHelp() override {}

  int runResult = 0;
  bool graphical = false;
  bool confirm = false;
  bool finished = false;
  int progress = -1;
  std::vector<int> shown;
  std::vector<std::string> lines;
  std::vector<std::string> messages;
  // The calls that shape a page, in order, as "name arguments".
  std::vector<std::string> calls;
  void note(const std::string& call) { calls.push_back(call); }
  static std::string pair(int a, int b) { return std::to_string(a) + " " + std::to_string(b); }
};

#endif  // QLUX_ENGINE_TEST_SUPPORT_H_
