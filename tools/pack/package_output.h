// Where the builder writes a package: the installer file, and with a split
// size the package files beside it (block_table.h), all under temporary
// names until commit() renames them into place.
//
// Bytes go out in order through write() (the stub first, then the package
// stream); writeAt() fills in, at the end, heads that were left as room.
// A position counts in the stream of all files one behind the other, the
// installer's stub included, as the installer reads them. With a split
// size, a file is closed once it holds that many bytes and the next package
// file is opened; the installer's own share stops `reserve` bytes short of
// it, which leaves room for the checksum record and a signature.
//
// The package files' digests are taken in finish(), by reading them back
// once: a block's head, written last, may lie in a file already closed.
#ifndef QLUX_TOOLS_PACK_PACKAGE_OUTPUT_H_
#define QLUX_TOOLS_PACK_PACKAGE_OUTPUT_H_

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "package/block_table.h"
#include "package/solid_compressor.h"

class PackageOutput : public SolidBlockSink {
 public:
  PackageOutput() {}
  PackageOutput(const PackageOutput&) = delete;
  PackageOutput& operator=(const PackageOutput&) = delete;
  ~PackageOutput() override;

  // Creates the installer `path` under a temporary name. With `splitSize`
  // above 0, package files stem-1.qpk, stem-2.qpk, ... follow in its
  // directory, `stem` being the installer's name without its extension.
  bool open(const std::string& path, int64_t splitSize, int64_t reserve, std::string* error);
  bool write(const void* data, size_t size) override;
  // Writes `data` at stream position `position`, which was written before.
  bool writeAt(int64_t position, const std::string& data);
  // Bytes written so far, in all files.
  int64_t size() const { return count; }
  // Where the installer file ends in the stream (its whole length while no
  // package file was started).
  int64_t installerBytes() const { return files.size() > 1 ? files[1].start : count; }
  // The stem that names the package files.
  const std::string& stem() const { return stemName; }
  // Closes every file, and gives each package file's length and SHA-256;
  // a second call gives the same again.
  bool finish(std::vector<PackageFilePlace>* places, std::string* error);
  // The temporary name of the installer, for the checksum record.
  const std::string& installerTemporary() const { return files[0].temporary; }
  // Renames every file into place. False (and nothing renamed stays) if a
  // rename fails.
  bool commit(std::string* error);
  // Removes every file written; also what the destructor does unless
  // commit() succeeded.
  void discard();

 private:
  struct File {
    std::string path;       // the final name
    std::string temporary;  // written under this name
    int64_t start;          // its first byte's stream position
    int64_t length;
  };
  bool startNextFile();
  bool closeCurrent();

  std::vector<File> files;
  FILE* current = nullptr;  // the last file, while open
  std::string directory;
  std::string stemName;
  int64_t split = 0;
  int64_t firstLimit = 0;
  int64_t count = 0;
  bool committed = false;
  bool finished = false;
  std::vector<PackageFilePlace> digests;
};

// A size such as "2G", "700M", "64K" or a plain number of bytes; -1 for
// text that isn't one.
int64_t parseSize(const char* text);

#endif  // QLUX_TOOLS_PACK_PACKAGE_OUTPUT_H_
