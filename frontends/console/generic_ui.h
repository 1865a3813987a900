// GenericUI: what the window and the console front ends share. It holds the
// source of a console run's answers, whether the run uninstalls, whether it
// carries on past errors, and the engine it talks back to. The entry makes
// the front end, sets `exchange`, calls initInput (console only), and
// deletes the front end after the run; the front end owns `input`.
#ifndef QLUX_FRONTENDS_CONSOLE_GENERIC_UI_H_
#define QLUX_FRONTENDS_CONSOLE_GENERIC_UI_H_

#include <cstdio>
#include <string>

#include "engine/exchange.h"
#include "engine/installer_ui.h"
#include "foundation/charstring.h"
#include "frontends/console/input_provider.h"

class GenericUI : public InstallerUI {
 public:
  GenericUI(int isUninstall, int ignoreErrors);
  GenericUI(const GenericUI&) = delete;
  GenericUI& operator=(const GenericUI&) = delete;
  ~GenericUI() override;

  // Chooses and opens the source of answers by `inputName`:
  //   "uninstall"      the person at the terminal, for an uninstallation;
  //   "autoUninstall"  nobody, without a file, for an uninstallation;
  //   "autoInstall"    nobody, without a file;
  //   ""               the person at the terminal;
  //   anything else    nobody, with that configuration file; when the file
  //                    won't serve, the person at the terminal instead.
  // `automatic` becomes true for an unattended source that opened. Gives 1
  // if the chosen source failed to open, else 0.
  virtual int initInput(const char* inputName, bool* automatic);
  // Keeps the first message, for a front end that can show it before its
  // wizard exists.
  virtual void setStartupError(const char* message, const char* title);
  virtual void showStartupError() {}
  // The text of a page's Text element as the user sees it: its [NAME]
  // references replaced by the variables' present values, so that a page
  // can name the folder or the version it is about. A text without "[" is
  // given back as it is.
  std::string labelText(const char* text);
  // Where the front end and the sources that initInput makes read and
  // print: the process's standard input and output unless set otherwise.
  void setStreams(FILE* in, FILE* out) {
    inputStream = in;
    outputStream = out;
  }

  InputProvider* input;  // owned; null until initInput
  int isUninstall;
  int ignoreErrors;
  InstallExchangeInfo* exchange;  // not owned

 protected:
  FILE* inputStream;
  FILE* outputStream;
  QUtils::CharString startupMessage;
  QUtils::CharString startupTitle;
};

#endif  // QLUX_FRONTENDS_CONSOLE_GENERIC_UI_H_
