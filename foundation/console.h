// Consoles: sinks for lines of text. PConsole formats a line (an optional
// number and time stamp in front, CR LF behind, at most 1,023 characters of
// text) and hands the pieces to write(). A console never throws, and a
// failed write is dropped: logging must not stop the work.
//
// PFileConsole writes to a file and drops everything while no file is open;
// PStdOutConsole and PStdErrConsole print; PMultiConsole passes on to the
// consoles it lists; PBufConsole keeps the last lines in a ring that a
// PReadableConsole walks. Only PBufConsole takes a lock; every other console
// belongs to one thread at a time.
//
// qutils_cprint prints to the process's console with ANSI colour sequences.
#ifndef QLUX_FOUNDATION_CONSOLE_H_
#define QLUX_FOUNDATION_CONSOLE_H_

#include <cstdint>
#include <mutex>

#include "foundation/file_stream.h"
#include "foundation/lists.h"

namespace QUtils {

// Bits of PConsole::flags.
const int32_t kConsoleLineNumbers = 1;
const int32_t kConsoleTimeStamps = 2;

// Room for one formatted line, terminator included.
const int kConsoleLineSize = 1024;

class PReadableConsole;

class PConsole {
 public:
  PConsole() : lineNumber(0), enabled(1), flags(kConsoleLineNumbers | kConsoleTimeStamps) {}
  PConsole(const PConsole&) = delete;
  PConsole& operator=(const PConsole&) = delete;
  virtual ~PConsole() {}

  virtual int open(const char* name, int mode) { return -1; }
  virtual int close() { return -1; }
  virtual void clear() {}
  // Takes `length` bytes of text; gives 0 or the sink's failure.
  virtual int write(const char* text, int length) = 0;
  virtual PReadableConsole* getReadable() { return nullptr; }

  // All of these do nothing while `enabled` is 0.
  // The line prefix, then the text, without a line end.
  void print(const char* text);
  // print, then CR LF.
  void printLine(const char* text);
  // Formats into 1,024 bytes (the rest is cut) and prints it as a line.
  void printf(const char* format, ...) __attribute__((format(printf, 2, 3)));
  // printf with "*** ALERT! " in front of the text.
  void alert(const char* format, ...) __attribute__((format(printf, 2, 3)));

  int32_t lineNumber;  // the next line's number
  uint8_t enabled;     // 0 silences the console, numbering included
  int32_t flags;       // kConsoleLineNumbers | kConsoleTimeStamps
};

// A console on a file, which it opens itself. The stream has no buffer, so
// every line reaches the file when it is written.
class PFileConsole : public PConsole {
 public:
  PFileConsole() : stream(nullptr) {}
  ~PFileConsole() override;

  // Closes what is open, then opens `name`: mode 1 appends to the file (or
  // makes it), any other mode makes it anew. Gives the stream's result; on
  // success numbering starts again at 0.
  int open(const char* name, int mode) override;
  int close() override;
  int write(const char* text, int length) override;
  int flush();
  bool isOpen();

 private:
  PFileStream* stream;  // owned; null while closed
};

class PStdOutConsole : public PConsole {
 public:
  int open(const char*, int) override { return 0; }
  int close() override { return 0; }
  // Prints the text up to its first NUL.
  int write(const char* text, int length) override;
};

class PStdErrConsole : public PConsole {
 public:
  int open(const char*, int) override { return 0; }
  int close() override { return 0; }
  int write(const char* text, int length) override;
};

// Passes open, close, clear and write on to its members in the order they
// were added. It doesn't own them. With no members open and close give -1.
class PMultiConsole : public PConsole {
 public:
  PMultiConsole() : consoles(5) {}
  int addConsole(PConsole* console);
  // Null when `index` is out of range.
  PConsole* getConsole(int index);
  int getCount() const { return consoles.getCount(); }

  int open(const char* name, int mode) override;
  int close() override;
  void clear() override;
  int write(const char* text, int length) override;

 private:
  PList<PConsole*> consoles;
};

// A walk over stored lines, oldest first. begin() and end() take the
// console's lock and release() gives it back, so the texts handed out stay
// valid until then; don't write to the console from the walking thread
// before releasing.
class PReadableConsole {
 public:
  struct Iterator {
    int position;  // where the line behind the iterator starts in the ring
    int index;     // how many lines lie before the iterator
    PReadableConsole* console;
  };

  virtual ~PReadableConsole() {}
  // Before the oldest line.
  virtual void begin(Iterator* iterator) = 0;
  // Behind the newest line.
  virtual void end(Iterator* iterator) = 0;
  virtual void release(Iterator* iterator) = 0;
  // The text of the line behind the iterator, moving past it; null at the end.
  virtual const char* next(Iterator* iterator) = 0;
  // Moves back one line and gives its text; null at the beginning.
  virtual const char* previous(Iterator* iterator) = 0;
  virtual bool isBegin(const Iterator* iterator) = 0;
  virtual bool isEnd(const Iterator* iterator) = 0;

  // The tag stored with a text handed out by next() or previous().
  static int32_t tagOf(const char* text);
};

// Keeps the last lines in a ring of `size` bytes. Each line takes a
// three-byte tag, its text (at most 511 characters, control characters and
// bytes of 0x80 and above stored as spaces) and a NUL. The oldest lines give
// way to new ones; a line that can't fit even in the empty ring is dropped.
// Lines come together from the pieces given to write() and are stored when
// their line end arrives, with the tag -1.
class PBufConsole : public PConsole, public PReadableConsole {
 public:
  explicit PBufConsole(int size);
  ~PBufConsole() override;

  int write(const char* text, int length) override;
  void clear() override;
  PReadableConsole* getReadable() override { return this; }

  // Stores one line with a tag of 21 bits (-1048576 to 1048575).
  void addLine(const char* text, int length, int32_t tag);
  int getLineCount();
  // The length of the longest stored line.
  int getLongestLength();

  void begin(Iterator* iterator) override;
  void end(Iterator* iterator) override;
  void release(Iterator* iterator) override;
  const char* next(Iterator* iterator) override;
  const char* previous(Iterator* iterator) override;
  bool isBegin(const Iterator* iterator) override { return iterator->index <= 0; }
  bool isEnd(const Iterator* iterator) override { return iterator->index >= count; }

 private:
  void store(const char* text, int length, int32_t tag);
  void dropOldest();
  void findLongest();
  int lineLength(int position) const;

  std::mutex lock;
  char* ring;
  int ringSize;
  int first;       // start of the oldest line
  int writeAt;     // where the next line goes
  int wrapEnd;     // end of the lines that lie before a wrap to 0
  int count;       // lines stored
  int longestAt;   // start of the longest line, -1 with none
  int longestLength;
  char pending[512];  // the line being put together by write()
  int pendingLength;
};

// Prints a formatted text to the console of the process. ANSI colour
// sequences (ESC "[0;31m" red, "[0;32m" green, "[0;33m" yellow, "[0;34m"
// cyan, "[1;34m" bright cyan, "[0;35m" magenta, "[0m" back to normal) become
// the console's text colours on Windows, and stay in the text on a POSIX
// terminal. With `colour` 0, or when the output isn't a terminal on POSIX,
// they are dropped.
void qutils_cprint(int colour, const char* format, ...) __attribute__((format(printf, 2, 3)));

// ---------------------------------------------------------------------------
// What each system supplies for consoles (console_posix.cpp,
// console_windows.cpp).

struct ConsoleTime {
  int year;
  int month;  // 0 to 11
  int day;
  int hour;
  int minute;
  int second;
};

void getConsoleTime(ConsoleTime* out);

// The output side of qutils_cprint. `attribute` is one of the colour codes
// above (0x4 red, 0x2 green, 0x6 yellow, 0x3 cyan, 0xB bright cyan, 0x5
// magenta), -1 for the attribute the console had at the start, or -2 for a
// sequence with no colour of its own.
class ColourOutput {
 public:
  // Without `colour` every sequence is dropped and no handle is needed.
  explicit ColourOutput(bool colour);
  ColourOutput(const ColourOutput&) = delete;
  ColourOutput& operator=(const ColourOutput&) = delete;
  ~ColourOutput();
  // False when the standard output has no valid handle.
  bool isValid() const { return valid; }
  void text(const char* text, int length);
  void sequence(const char* text, int length, int attribute);

 private:
  bool valid;
  bool keepSequences;   // POSIX: the output is a terminal
  bool changed;         // a colour was set, so the end must restore
  intptr_t console;     // Windows: the console's handle, -1 without one
  int original;         // Windows: the attribute at the start
};

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_CONSOLE_H_
