// Where a console run gets its answers. The console wizard asks every
// question through an InputProvider: User reads the answers from a person
// at the terminal, Automated gives back the value that each question
// already holds (the engine has read a configuration file, or the
// template's defaults, into the variables). So one walk through the
// dialogs serves a person and an unattended run alike.
//
// A question never fails: User asks again until it has a valid answer. The
// one exception is the end of the input: a question that has no default
// can't be answered any more, so User prints a message, answers -1 and
// reports inputEnded() from then on, and the console ends the walk as a
// cancel.
//
// Both read and write through C streams given at construction (the
// process's standard input and output by default), so tests can feed them
// from a file.
#ifndef QLUX_FRONTENDS_CONSOLE_INPUT_PROVIDER_H_
#define QLUX_FRONTENDS_CONSOLE_INPUT_PROVIDER_H_

#include <cstdio>

#include "foundation/charstring.h"
#include "foundation/lists.h"
#include "foundation/text.h"

class InputProvider {
 public:
  virtual ~InputProvider() {}
  // Makes the provider ready; false if it can't serve.
  virtual bool open() = 0;
  // A line of text into `answer` (`size` bytes). `current` is the value the
  // question holds, `fallback` the value it would have by default; either
  // may be empty or null.
  virtual bool askText(const char* prompt, char* answer, int size, const char* current, const char* fallback) = 0;
  // One of two words; the result is 0 for `first`, 1 for `second`.
  // `preselected` is 0 or 1 for a default, anything else for none. With
  // `caseSensitive` 0 the words are compared whole and without regard to
  // case; with 1 exactly, or with `allowPrefix` as a beginning of the word.
  virtual int askTwoWay(const char* prompt, int preselected, const char* first, const char* second, int caseSensitive,
                        int allowPrefix) = 0;
  // One of the options, by index. `enabled` holds one flag for each option;
  // a disabled option can't be chosen. `preselected` -1 means none.
  virtual int askChoice(const char* prompt, int preselected, const QUtils::Table<QUtils::CharString>& options,
                        const QUtils::PList<bool>& enabled) = 0;
  // A message to be acknowledged.
  virtual void showNotice(const char* text) = 0;
  // Prints the text and waits. True if the answer asks to skip to the end of
  // what is being shown ("q" or "end"); the base does nothing and gives false.
  virtual bool pause(const char* text) { return false; }
  // The end of the walk; `failed` says how the run went.
  virtual void close(bool failed) = 0;
  // True once a question went unanswered because the input had ended.
  virtual bool inputEnded() { return false; }
};

// The person at the terminal.
class User : public InputProvider {
 public:
  explicit User(int isUninstall, FILE* in = stdin, FILE* out = stdout);

  bool open() override { return true; }
  bool askText(const char* prompt, char* answer, int size, const char* current, const char* fallback) override;
  int askTwoWay(const char* prompt, int preselected, const char* first, const char* second, int caseSensitive,
                int allowPrefix) override;
  int askChoice(const char* prompt, int preselected, const QUtils::Table<QUtils::CharString>& options,
                const QUtils::PList<bool>& enabled) override;
  void showNotice(const char* text) override;
  bool pause(const char* text) override;
  void close(bool failed) override;
  bool inputEnded() override { return ended; }

  int isUninstall;
  bool closed;

 private:
  // Reads one line of at most `size` - 1 characters into `line`, without
  // its line end; the rest of a longer line is passed over. False at the
  // end of the input, with an empty line.
  bool readLine(char* line, int size);
  // Called when a question without a default meets the end of the input.
  void endOfInput();

  FILE* in;
  FILE* out;
  bool ended;
};

// Nobody there: every question keeps the value it holds.
class Automated : public InputProvider {
 public:
  // `fileName` (may be null or empty) is the configuration file that open()
  // checks; the engine reads its values.
  Automated(const char* fileName, int isUninstall, FILE* out = stdout);

  // With a file: true only if it exists and is a DefValues document.
  bool open() override;
  bool askText(const char* prompt, char* answer, int size, const char* current, const char* fallback) override;
  int askTwoWay(const char* prompt, int preselected, const char* first, const char* second, int caseSensitive,
                int allowPrefix) override;
  int askChoice(const char* prompt, int preselected, const QUtils::Table<QUtils::CharString>& options,
                const QUtils::PList<bool>& enabled) override;
  void showNotice(const char* text) override;
  void close(bool failed) override;

  char fileName[QUtils::kMaxPath];
  int isUninstall;

 private:
  FILE* out;
};

#endif  // QLUX_FRONTENDS_CONSOLE_INPUT_PROVIDER_H_
