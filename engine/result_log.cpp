// The body of ResultLog (result_log.h): lines kept in memory until the log's
// place is known, then written through, and the result line last.
#include "engine/result_log.h"

#include <cstdio>

#include "foundation/files.h"
#include "foundation/text.h"

namespace {

// Where the system's lines end in a line feed alone, the console's CR goes.
const bool kDropCarriageReturns = QUtils::kPathSeparator == '/';
// How many names placeExclusively tries before it gives up.
const int kMaxNameTries = 100;

}  // namespace

ResultLog::ResultLog() : file(nullptr) { flags = QUtils::kConsoleTimeStamps; }

ResultLog::~ResultLog() {
  if (file) file->close();
  delete file;
}

int ResultLog::write(const char* text, int length) {
  if (!text || length <= 0) return 0;
  std::string piece(text, static_cast<size_t>(length));
  if (kDropCarriageReturns) {
    std::string::size_type at;
    while ((at = piece.find('\r')) != std::string::npos) piece.erase(at, 1);
  }
  kept += piece;
  if (!file || piece.empty()) return 0;
  uint32_t written = 0;
  // Ignoring the result on purpose: a log that can't be written must not
  // stop the work it describes.
  file->write(piece.data(), static_cast<uint32_t>(piece.size()), &written);
  return 0;
}

int ResultLog::start(const char* name, int mode) {
  QUtils::PFileStream* stream = new QUtils::PFileStream();
  int error = stream->openFile(name, QUtils::kGenericWrite, QUtils::kShareRead, mode);
  if (error != 0) {
    delete stream;
    return error;
  }
  uint32_t written = 0;
  if (!kept.empty()) error = stream->write(kept.data(), static_cast<uint32_t>(kept.size()), &written);
  if (file) {
    file->close();
    delete file;
  }
  file = stream;
  path = name;
  return error;
}

int ResultLog::openNamed(const char* name) {
  if (!name || !*name) return -1;
  // A name that stands already is removed rather than written through: in a
  // shared folder it may be another user's link. Ignoring the result on
  // purpose: what stays makes the exclusive creation below fail.
  if ((QUtils::fileExists(name) || QUtils::isLink(name)) && !QUtils::isDirectory(name)) QUtils::deleteFile(name);
  return start(name, QUtils::kModeCreateNew);
}

int ResultLog::placeAt(const char* name) {
  // The log of an earlier run in the product's folder gives way to this
  // one's, the same way: never written through.
  return openNamed(name);
}

int ResultLog::placeExclusively(const char* directory, const char* stem) {
  if (!directory || !stem) return -1;
  int error = -1;
  for (int i = 1; i <= kMaxNameTries; i++) {
    char name[QUtils::kMaxPath];
    int length = i == 1 ? QUtils::boundedFormat(name, sizeof name, "%s%c%s.log", directory, QUtils::kPathSeparator, stem)
                        : QUtils::boundedFormat(name, sizeof name, "%s%c%s-%d.log", directory,
                                                QUtils::kPathSeparator, stem, i);
    if (length < 0) return -1;
    error = start(name, QUtils::kModeCreateNew);
    if (error == 0) return 0;
    // Only a taken name is worth another try.
    if (!QUtils::fileExists(name)) return error;
  }
  return error;
}

void ResultLog::writeResult(const char* text, int code) {
  int32_t saved = flags;
  flags = 0;
  printf("Result: %s (exit code %d)", text ? text : "", code);
  flags = saved;
}
