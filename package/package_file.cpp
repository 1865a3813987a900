// The body of the package files (package_file.h): positioned reads under a
// lock, from the installer file or the package files beside it.
#include "package/package_file.h"

namespace {

int openForReading(QUtils::PFileStream* stream, const char* fileName) {
  return stream->openFile(fileName, QUtils::kGenericRead, QUtils::kShareRead, QUtils::kModeMustExist);
}

}  // namespace

int PackageFile::open(const char* fileName) {
  close();
  Piece first;
  first.stream.reset(new QUtils::PFileStream());
  int result = openForReading(first.stream.get(), fileName);
  if (result != 0) return result;
  first.start = 0;
  first.size = first.stream->size();
  if (first.size < 0) {
    // Ignoring the result on purpose: the file was only read.
    first.stream->close();
    return -1;
  }
  length = first.size;
  pieces.push_back(std::move(first));
  return 0;
}

int PackageFile::addPart(int64_t end, const char* fileName, int64_t size) {
  if (length < 0) return -1;
  if (pieces.size() == 1) {
    if (end < 0 || end > pieces[0].size) return -1;
    pieces[0].size = end;
    length = end;
  }
  Piece part;
  part.stream.reset(new QUtils::PFileStream());
  int result = openForReading(part.stream.get(), fileName);
  if (result != 0) return result;
  if (part.stream->size() != size) {
    part.stream->close();  // ignoring the result on purpose: only read
    return -1;
  }
  part.start = length;
  part.size = size;
  length += size;
  pieces.push_back(std::move(part));
  return 0;
}

void PackageFile::close() {
  // Ignoring the results on purpose: the files were only read.
  for (Piece& piece : pieces) piece.stream->close();
  pieces.clear();
  length = -1;
}

int PackageFile::readAt(int64_t position, void* buffer, size_t size) {
  if (length < 0 || position < 0 || position > length || static_cast<int64_t>(size) > length - position) return -1;
  QUtils::ThreadLockGuard guard(lock);
  unsigned char* at = static_cast<unsigned char*>(buffer);
  // The pieces are few; the first holds nearly every read of most packages.
  size_t index = 0;
  while (size > 0) {
    while (position >= pieces[index].start + pieces[index].size) index++;
    Piece& piece = pieces[index];
    if (piece.stream->seek(position - piece.start) != 0) return -1;
    int64_t inPiece = piece.start + piece.size - position;
    while (size > 0 && inPiece > 0) {
      // The stream counts in 32 bits; a read of 1 GiB at a time keeps well
      // inside that.
      int64_t want = static_cast<int64_t>(size) < inPiece ? static_cast<int64_t>(size) : inPiece;
      uint32_t piece32 = want > 0x40000000 ? 0x40000000u : static_cast<uint32_t>(want);
      uint32_t got = 0;
      if (piece.stream->read(at, piece32, &got) != 0 || got == 0) return -1;
      at += got;
      size -= got;
      position += got;
      inPiece -= got;
    }
  }
  return 0;
}
