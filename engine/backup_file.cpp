// BackupFile: writing records, restoring them, and the check sum.
//
// Every file is reached through PFileStream, so '\' and '/' both separate a
// path on every system. Numbers in the file are little-endian whatever the
// machine, so they are put together byte by byte.
#include "engine/backup_file.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "engine/installer_ui.h"
#include "foundation/console.h"
#include "foundation/files.h"
#include "foundation/text.h"

namespace {

// The magic is this text followed by its NUL.
const char kMagic[] = "Halvo Software installer backup file.\n";
const uint32_t kMagicTextLength = sizeof kMagic - 1;
const uint32_t kMagicSize = sizeof kMagic;

const char kAddSource[] = "BackupFile::addFile";

void putLittleEndian(unsigned char* out, uint64_t value, int bytes) {
  for (int i = 0; i < bytes; i++) out[i] = static_cast<unsigned char>(value >> (8 * i));
}

uint64_t getLittleEndian(const unsigned char* in, int bytes) {
  uint64_t value = 0;
  for (int i = bytes - 1; i >= 0; i--) value = (value << 8) | in[i];
  return value;
}

// The attributes behind a record's path: "L" for a link, "M" and octal
// permission bits for a regular file whose bits the system keeps.
const char kLinkAttribute = 'L';
const char kModeAttribute = 'M';

// What a record's name field says of its file, behind the path.
struct RecordKind {
  bool link = false;
  int mode = -1;  // the permission bits, -1 when the record has none
};

RecordKind readAttributes(const char* field, uint32_t fieldSize) {
  RecordKind kind;
  size_t pathLength = std::strlen(field);
  if (pathLength + 2 >= fieldSize) return kind;  // nothing behind the path's NUL
  const char* attributes = field + pathLength + 1;
  if (attributes[0] == kLinkAttribute) {
    kind.link = true;
  } else if (attributes[0] == kModeAttribute) {
    char* end = nullptr;
    long mode = std::strtol(attributes + 1, &end, 8);
    if (end != attributes + 1 && mode >= 0 && mode <= 0777) kind.mode = static_cast<int>(mode);
  }
  return kind;
}

// Opens an existing file for reading, as a copy source or to see whether it
// is there.
int openForReading(QUtils::PFileStream* stream, const char* path) {
  return stream->openFile(path, QUtils::kGenericRead, QUtils::kShareRead | QUtils::kShareWrite,
                          QUtils::kModeMustExist | QUtils::kModeSequential);
}

}  // namespace

void BackupCheckSum::add(const unsigned char* data, size_t size) {
  // As XOR works on each byte alone, a byte inside a complete word goes to
  // its place in the little-endian word and a byte of the last incomplete
  // word into the low byte, wherever the pieces are cut. The bytes up to
  // the first word boundary go one by one; then eight at a time, the two
  // words of each folded into one, as long as they lie in complete words.
  const int64_t wholeWords = length - (length & 3);
  size_t i = 0;
  for (; i < size && ((offset + static_cast<int64_t>(i)) & 3) != 0; i++)
    addByte(data[i], offset + static_cast<int64_t>(i), wholeWords);
  uint32_t folded = 0;
  for (; i + 8 <= size && offset + static_cast<int64_t>(i + 8) <= wholeWords; i += 8) {
    const unsigned char* p = data + i;
    folded ^= (static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
               static_cast<uint32_t>(p[3]) << 24) ^
              (static_cast<uint32_t>(p[4]) | static_cast<uint32_t>(p[5]) << 8 | static_cast<uint32_t>(p[6]) << 16 |
               static_cast<uint32_t>(p[7]) << 24);
  }
  sum ^= folded;
  for (; i < size; i++) addByte(data[i], offset + static_cast<int64_t>(i), wholeWords);
  offset += static_cast<int64_t>(size);
}

void BackupCheckSum::addByte(unsigned char byte, int64_t at, int64_t wholeWords) {
  if (at < wholeWords)
    sum ^= static_cast<uint32_t>(byte) << (8 * (at & 3));
  else
    sum ^= byte;
}

BackupFile::BackupFile() : backupMode(kClosed), hasError(0) {}

BackupFile::~BackupFile() { close(); }

void BackupFile::openForWriting(const char* path) {
  if (backupMode != kClosed) return;
  backupMode = kWriting;
  if (!path || !path[0] ||
      openFile(path, QUtils::kGenericRead | QUtils::kGenericWrite, 0, QUtils::kModeCreateAlways | QUtils::kModePrivate) != 0 ||
      !writeAll(kMagic, kMagicSize)) {
    hasError = 1;
  }
}

int BackupFile::openForRestore(const char* path) {
  if (backupMode != kClosed) return -1;
  backupMode = kRestoring;
  if (!path || !path[0] || openFile(path, QUtils::kGenericRead, QUtils::kShareRead, QUtils::kModeMustExist) != 0) {
    backupMode = kClosed;
    return -1;
  }
  char magic[kMagicSize];
  if (!readAll(magic, kMagicSize)) return -1;
  return std::memcmp(magic, kMagic, kMagicSize) == 0 ? 0 : -1;
}

int BackupFile::close() {
  int result = 0;
  if (backupMode == kWriting && handle != -1) {
    // A failed record was cut back to its start; the end record goes there,
    // and whatever of that record was already written is dropped.
    static const unsigned char kEndRecord[3] = {1, 0, 0};
    if (!writeAll(kEndRecord, sizeof kEndRecord)) result = -1;
    setEnd();
  }
  if (handle != -1) {
    int closed = PFileStream::close();
    if (result == 0) result = closed;
  }
  backupMode = kClosed;
  hasError = 0;
  return result;
}

bool BackupFile::readAll(void* buffer, uint32_t size) {
  uint32_t count = 0;
  return read(buffer, size, &count) == 0 && count == size;
}

bool BackupFile::writeAll(const void* buffer, uint32_t size) {
  uint32_t count = 0;
  return write(buffer, size, &count) == 0 && count == size;
}

void BackupFile::failAdd(QUtils::ErrorChain& error, int64_t recordStart, int32_t code, const char* format, ...) {
  char message[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(message, sizeof message, format, args);
  va_end(args);
  error.setError(kAddSource, code, "%s", message);
  hasError = 1;
  if (recordStart >= 0) seek(recordStart);
}

void BackupFile::addFile(QUtils::ErrorChain& error, const char* path, int maxLength, uint32_t checkSum,
                         bool checkSumGiven, bool* outPassedOver, bool* outUnreadable, int* outMode) {
  error.clear();
  if (outPassedOver) *outPassedOver = false;
  if (outUnreadable) *outUnreadable = false;
  if (outMode) *outMode = -1;
  if (backupMode != kWriting) {
    error.setError(kAddSource, -1, "Not in write mode");
    return;
  }
  if (hasError) {
    error.setError(kAddSource, -1, "There is a previous error");
    return;
  }
  if (!path) {
    failAdd(error, -1, -1, "Error opening file");
    return;
  }
  // A backup is never stored inside a backup. A link is saved as the text
  // it holds: what it leads to is not the installation's. A file is opened
  // once, and that open serves every look at it: what it begins with, its
  // size, its check sum and its content.
  bool link = QUtils::isLink(path);
  QUtils::PFileStream source;
  bool opened = !link && openForReading(&source, path) == 0;
  if (!link && !opened && outUnreadable) {
    *outUnreadable = true;
    error.setError(kAddSource, -1, "File does not exist");
    return;
  }
  int mode = opened ? source.permissionBits() : -1;
  if (outMode) *outMode = mode;
  if (opened && beginsAsBackup(&source)) {
    if (outPassedOver) *outPassedOver = true;
    return;
  }
  char linkText[QUtils::kMaxPath];
  if (link && !QUtils::readSymbolicLink(path, linkText, sizeof linkText)) {
    failAdd(error, -1, -1, "Error opening file");
    return;
  }
  int64_t recordStart = position();
  unsigned char field[2 + kMaxNameSize];
  if (!writeNameField(error, path, maxLength, link, mode, recordStart, field)) return;
  const char* name = reinterpret_cast<const char*>(field + 2);
  // A path cut at `maxLength` names another file: the record holds that one.
  if (!link && std::strcmp(name, path) != 0) {
    source.close();
    opened = openForReading(&source, name) == 0;
  }
  int64_t size = link ? static_cast<int64_t>(std::strlen(linkText)) : opened ? source.size() : -1;
  if (size < 0) {
    failAdd(error, recordStart, -1, "Error opening file");
    return;
  }
  if (!checkSumGiven) {
    checkSum = link ? checkSumOf(reinterpret_cast<const unsigned char*>(linkText), static_cast<uint32_t>(size))
                    : checkSumOfStream(&source, size);
  }
  if (!writeSizeAndSum(error, size, checkSum, recordStart)) return;
  if (size > 0) writeContent(error, link ? nullptr : &source, link ? linkText : nullptr, size, recordStart);
}

bool BackupFile::writeNameField(QUtils::ErrorChain& error, const char* path, int maxLength, bool link, int mode,
                                int64_t recordStart, unsigned char* field) {
  char attributes[8] = {0};
  if (link)
    attributes[0] = kLinkAttribute;
  else if (mode >= 0)
    std::snprintf(attributes, sizeof attributes, "%c%03o", kModeAttribute, static_cast<unsigned>(mode) & 0777u);
  size_t length = std::strlen(path);
  if (maxLength > 0 && length > static_cast<size_t>(maxLength - 1)) length = static_cast<size_t>(maxLength - 1);
  size_t attributesLength = attributes[0] ? std::strlen(attributes) + 1 : 0;
  size_t fieldSize = length + 1 + attributesLength;
  // A name that a reader would refuse is never written.
  if (recordStart < 0 || fieldSize > static_cast<size_t>(kMaxNameSize)) {
    failAdd(error, recordStart, -1, "Error writing file name");
    return false;
  }
  putLittleEndian(field, fieldSize, 2);
  std::memcpy(field + 2, path, length);
  field[2 + length] = 0;
  if (attributesLength) std::memcpy(field + 3 + length, attributes, attributesLength);
  if (!writeAll(field, static_cast<uint32_t>(fieldSize + 2))) {
    failAdd(error, recordStart, -1, "Error writing file name");
    return false;
  }
  return true;
}

bool BackupFile::writeSizeAndSum(QUtils::ErrorChain& error, int64_t size, uint32_t checkSum, int64_t recordStart) {
  unsigned char field[8];
  putLittleEndian(field, static_cast<uint64_t>(size), 8);
  if (!writeAll(field, 8)) {
    failAdd(error, recordStart, -1, "Error writing file size");
    return false;
  }
  putLittleEndian(field, checkSum, 4);
  if (!writeAll(field, 4)) {
    failAdd(error, recordStart, -1, "Error writing check sum");
    return false;
  }
  return true;
}

void BackupFile::writeContent(QUtils::ErrorChain& error, QUtils::PFileStream* source, const char* linkText,
                              int64_t size, int64_t recordStart) {
  if (linkText) {
    if (!writeAll(linkText, static_cast<uint32_t>(size))) failAdd(error, recordStart, -1, "Error copying stream (-1)");
    return;
  }
  if (source->seek(0) != 0) {
    failAdd(error, recordStart, -1, "Error opening file");
    return;
  }
  int64_t got = 0, written = 0;
  int result = QUtils::copyStream(this, source, size, &got, &written, kBlockSize);
  if (result != 0) {
    failAdd(error, recordStart, result, "Error copying stream (%i)", result);
  } else if (got != size || written != size) {
    failAdd(error, recordStart, -1, "Copy stream mismatch: wanted %lld bytes, read %lld, written %lld",
            static_cast<long long>(size), static_cast<long long>(got), static_cast<long long>(written));
  }
}

int BackupFile::copyRecords(const char* fromPath, const QUtils::Table<QUtils::CharString>& names) {
  if (backupMode != kWriting || hasError) return -1;
  BackupFile source;
  if (source.openForRestore(fromPath) != 0) return -1;
  int64_t total = source.size();
  int copied = 0;
  for (;;) {
    unsigned char field[2 + 12];  // the name's size, then the content's size and the check sum
    if (!source.readAll(field, 2)) return -1;
    uint32_t nameSize = static_cast<uint32_t>(getLittleEndian(field, 2));
    if (nameSize < 1 || nameSize > static_cast<uint32_t>(kMaxNameSize)) return -1;
    char name[kMaxNameSize + 1];
    if (!source.readAll(name, nameSize)) return -1;
    name[nameSize - 1] = 0;
    if (nameSize == 1) return copied;  // the end record
    if (!source.readAll(field + 2, 12)) return -1;
    int64_t size = static_cast<int64_t>(getLittleEndian(field + 2, 8));
    int64_t contentStart = source.position();
    if (size < 0 || contentStart < 0 || size > total - contentStart) return -1;

    bool wanted = false;
    for (int i = 0; i < names.getCount() && !wanted; i++) wanted = std::strcmp(names[i].getText(), name) == 0;
    if (!wanted) {
      if (source.seek(contentStart + size) != 0) return -1;
      continue;
    }
    int64_t recordStart = position();
    unsigned char head[2 + kMaxNameSize + 12];
    putLittleEndian(head, nameSize, 2);
    std::memcpy(head + 2, name, nameSize);
    std::memcpy(head + 2 + nameSize, field + 2, 12);  // the size and the check sum, as they were
    int64_t got = 0, written = 0;
    if (!writeAll(head, 2 + nameSize + 12) ||
        (size > 0 && (QUtils::copyStream(this, &source, size, &got, &written, kBlockSize) != 0 || got != size ||
                      written != size))) {
      QUtils::ErrorChain error;
      failAdd(error, recordStart, -1, "Error copying the record of %s", name);
      return -1;
    }
    copied++;
  }
}

namespace {

bool isListed(const QUtils::Table<QUtils::CharString>& names, const char* path) {
  for (int i = 0; i < names.getCount(); i++) {
    if (QUtils::isSamePath(names[i].getText(), path)) return true;
  }
  return false;
}

}  // namespace

bool BackupFile::restoreContent(const char* name, int64_t size, int mode, bool link) {
  if (link) {
    // The text of a link is short: a path.
    char text[QUtils::kMaxPath];
    if (size <= 0 || size >= static_cast<int64_t>(sizeof text) || !readAll(text, static_cast<uint32_t>(size)))
      return false;
    text[size] = 0;
    if (QUtils::fileExists(name) && (QUtils::isDirectory(name) && !QUtils::isLink(name))) return false;
    if (QUtils::fileExists(name) && QUtils::deleteFile(name) != 0) return false;
    return QUtils::makeSymbolicLink(text, name) == 0;
  }
  QUtils::PFileStream target;
  int64_t got = 0, written = 0;
  bool done = target.create(name, 0) == 0 &&
              (size == 0 || (QUtils::copyStream(&target, this, size, &got, &written, kBlockSize) == 0 &&
                             got == size && written == size));
  if (target.close() != 0) done = false;
  // Ignoring the result on purpose: the content is back, and a file that
  // keeps the bits it was made with is still the saved file.
  if (done && mode >= 0) (void)QUtils::setFileMode(name, mode);
  return done;
}

int BackupFile::restore(QUtils::PConsole* console, InstallerUI* ui, QUtils::Table<QUtils::CharString>* whole,
                        const QUtils::Table<QUtils::CharString>* allowed) {
  if (backupMode != kRestoring) return -1;
  if (ui) ui->setOverallProgress(0);
  if (seek(kMagicSize) != 0) return -1;
  int64_t total = size();
  if (total <= 0) return -1;

  char message[QUtils::kMaxPath + 64];
  for (int record = 0;; record++) {
    unsigned char field[8];
    if (!readAll(field, 2)) return -1;
    uint32_t nameSize = static_cast<uint32_t>(getLittleEndian(field, 2));
    if (nameSize < 1 || nameSize > static_cast<uint32_t>(kMaxNameSize)) return -1;
    char name[kMaxNameSize + 1];
    if (!readAll(name, nameSize)) return -1;
    name[nameSize - 1] = 0;
    if (nameSize == 1) {
      if (ui) ui->addFileLine(nullptr, true);
      return 0;
    }
    RecordKind kind = readAttributes(name, nameSize);

    // A record whose content doesn't all stand in the file isn't whole:
    // nothing of it is written, and its file is named as not restored.
    int64_t size = -1;
    uint32_t checkSum = 0;
    if (readAll(field, 8)) {
      size = static_cast<int64_t>(getLittleEndian(field, 8));
      if (readAll(field, 4))
        checkSum = static_cast<uint32_t>(getLittleEndian(field, 4));
      else
        size = -1;
    }
    int64_t contentStart = position();
    if (size < 0 || contentStart < 0 || size > total - contentStart) {
      if (console) console->printf("Backup cut short in the record of %s", name);
      if (ui) {
        QUtils::boundedFormat(message, sizeof message, "FAILED to restore %s", name);
        ui->addFileLine(message, true);
      }
      return -1;
    }
    if (whole) whole->add(QUtils::CharString(name));

    uint32_t onDisk = computeCheckSum(name);
    // A directory at the name counts as absent: writing the file there
    // fails, and says so.
    bool present = QUtils::fileExists(name) && (QUtils::isLink(name) || !QUtils::isDirectory(name));
    if (ui) ui->pumpEventsQuietly();

    bool reported = true;
    if ((allowed && !isListed(*allowed, name)) || !QUtils::isAbsolutePath(name)) {
      // A backup that names a file its installation never wrote, or a path
      // that depends on the working directory, is not trusted with it.
      if (console) console->printf("The backup names %s, which its action log doesn't; skipping", name);
      QUtils::boundedFormat(message, sizeof message, "FAILED to restore %s: not a file of the installation", name);
    } else if (size != 0 || kind.link) {
      if (!present || onDisk == checkSum) {
        bool done = restoreContent(name, size, kind.mode, kind.link);
        if (console) console->printf(done ? "Restored %s" : "FAILED to restore %s", name);
        QUtils::boundedFormat(message, sizeof message, done ? "Restore %s" : "FAILED to restore %s", name);
      } else {
        if (console) console->printf("Saved check sum different than existing one for %s; skipping", name);
        QUtils::boundedFormat(message, sizeof message, "Left %s", name);
      }
    } else if (!present) {
      bool done = restoreContent(name, 0, kind.mode, false);
      if (console) console->printf("Zero saved size for %s; creating blank file", name);
      QUtils::boundedFormat(message, sizeof message, done ? "Restore %s" : "FAILED to restore %s", name);
    } else {
      reported = false;  // an empty record leaves a present file as it is
    }
    // Whatever the copy did, the next record begins behind the content.
    if (seek(contentStart + size) != 0) return -1;

    if (reported && ui) {
      ui->addFileLine(message, record % 32 == 0);
      double share = static_cast<double>(position()) / static_cast<double>(total) * 100.0;
      ui->setOverallProgress(static_cast<int>(std::ceil(share)));
    }
  }
}

bool BackupFile::isBackupFile(const char* path) {
  if (!path || !path[0]) return false;
  QUtils::PFileStream file;
  return openForReading(&file, path) == 0 && beginsAsBackup(&file);
}

bool BackupFile::beginsAsBackup(QUtils::PFileStream* file) {
  char start[kMagicTextLength];
  uint32_t count = 0;
  bool backup = file->read(start, kMagicTextLength, &count) == 0 && count == kMagicTextLength &&
                std::memcmp(start, kMagic, kMagicTextLength) == 0;
  // Ignoring the result on purpose: a stream that can't go back to its
  // start fails the reads that follow, which say so.
  (void)file->seek(0);
  return backup;
}

uint32_t BackupFile::checkSumOf(const unsigned char* data, uint32_t size) {
  BackupCheckSum sum(size);
  sum.add(data, size);
  return sum.value();
}

uint32_t BackupFile::computeCheckSum(const char* path) {
  if (!path || !path[0]) return 0;
  if (QUtils::isLink(path)) {
    char text[QUtils::kMaxPath];
    if (!QUtils::readSymbolicLink(path, text, sizeof text)) return 0;
    return checkSumOf(reinterpret_cast<const unsigned char*>(text), static_cast<uint32_t>(std::strlen(text)));
  }
  QUtils::PFileStream file;
  if (openForReading(&file, path) != 0) return 0;
  return checkSumOfStream(&file, file.size());
}

uint32_t BackupFile::checkSumOfStream(QUtils::PFileStream* file, int64_t length) {
  if (length <= 0) return 0;
  unsigned char* block = new unsigned char[kBlockSize];
  BackupCheckSum sum(length);
  int64_t offset = 0;
  while (offset < length) {
    uint32_t want = length - offset < kBlockSize ? static_cast<uint32_t>(length - offset) : kBlockSize;
    uint32_t got = 0;
    if (file->read(block, want, &got) != 0 || got == 0) break;
    sum.add(block, got);
    offset += got;
  }
  delete[] block;
  return sum.value();
}
