// ResultLog: the log that tells an administrator how a run went, written by
// every run, unattended or not: one line per step with the time, each
// failure with the system's reason, and as its last line the result and
// the exit code ("Result: installed (exit code 0)"), without a time in
// front, so that a script can read it.
//
// Where it goes is decided by the entry. With -log=FILE the lines go to FILE
// from the start (openNamed). Without it they are kept in memory until the
// run ends and then placed: beside the action log when an installation
// stands (placeAt), else in the temporary directory under a new name that
// nothing stood at (placeExclusively), since that directory is shared.
//
// Like every console it never throws, and a failed write is dropped. One
// object per process, used by the engine's thread only.
#ifndef QLUX_ENGINE_RESULT_LOG_H_
#define QLUX_ENGINE_RESULT_LOG_H_

#include <string>

#include "foundation/console.h"
#include "foundation/file_stream.h"

class ResultLog : public QUtils::PConsole {
 public:
  ResultLog();
  ~ResultLog() override;

  // Writes the lines from now on to `path`, after the lines kept so far.
  // Whatever stood at the name goes first (a link is removed, never
  // followed), and the file is made anew where nothing stands. 0, or the
  // system's error number.
  int openNamed(const char* path);
  // Writes the kept lines to `path`, replacing a file there as openNamed
  // does, and the lines from now on too: the log of an earlier run in the
  // product's folder gives way to this run's. 0, or the system's error
  // number.
  int placeAt(const char* path);
  // Writes the kept lines to a new file "<stem>.log" in `directory`, or
  // "<stem>-2.log" and on when that name is taken, never writing over
  // anything. 0, or the system's error number of the last try.
  int placeExclusively(const char* directory, const char* stem);
  // The file the lines go to; empty while they are only kept.
  const char* getPath() const { return path.c_str(); }
  // The last line: "Result: <text> (exit code N)", without a time.
  void writeResult(const char* text, int code);

  int write(const char* text, int length) override;

 private:
  // Opens `name` with `mode` and writes the kept lines. 0 or the error.
  int start(const char* name, int mode);

  std::string kept;           // every line so far
  QUtils::PFileStream* file;  // null while the lines are only kept
  std::string path;
};

#endif  // QLUX_ENGINE_RESULT_LOG_H_
