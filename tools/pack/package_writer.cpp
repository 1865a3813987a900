#include "tools/pack/package_writer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

#include "foundation/files.h"
#include "foundation/text.h"
#include "package/checksum.h"
#include "package/deflate_codec.h"
#include "package/format.h"
#include "package/md5.h"
#include "package/record_index.h"
#include "package/solid_compressor.h"

namespace {

// The text that follows the stub's package offset field, NUL included.
const char kOffsetMarker[] = "ARYIMAGEOFFSET_";
const size_t kOffsetMarkerSize = sizeof(kOffsetMarker);
// What a stub says it can read.
const char kSolidCapability[] = "SupportsSolidZlib";
const char kSignedCapability[] = "SupportsSignedInstallers";
const char kTemplateKey[] = "install.xml";

// One record to pack.
struct PackedFile {
  std::string key;
  std::string name;
  std::string source;
  std::string where;  // names the template entry in messages
};

bool readWholeFile(const std::string& path, std::string* out) {
  out->clear();
  FILE* file = QUtils::openFile(path.c_str(), "rb");
  if (!file) return false;
  char block[1 << 16];
  size_t got;
  while ((got = std::fread(block, 1, sizeof(block), file)) > 0) out->append(block, got);
  bool ok = !std::ferror(file);
  std::fclose(file);
  return ok;
}

// The same file, by its resolved path where it exists.
std::string canonical(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(QUtils::systemPath(path.c_str()).getText(), resolved) ? std::string(resolved) : path;
}

std::string baseName(const std::string& path) {
  size_t slash = path.find_last_of("/\\");
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool isImageName(const std::string& name) {
  size_t dot = name.rfind('.');
  if (dot == std::string::npos) return false;
  const char* extension = name.c_str() + dot;
  return QUtils::compareNoCase(extension, ".png") == 0 || QUtils::compareNoCase(extension, ".jpg") == 0 ||
         QUtils::compareNoCase(extension, ".hdr") == 0;
}

std::string entryPlace(const PackOptions& options, const PackEntry& entry) {
  std::string place = "template " + options.templatePath;
  if (entry.line > 0) place += ", line " + std::to_string(entry.line);
  return place + ": <FN>" + entry.text + "</FN>";
}

// The entries in the order that the installer writes them: file set by
// file set as the document has them, and within a set from its last entry
// to its first. Packed in that order, the records are read front to back,
// and the installer's read-ahead always inflates the stripes it needs next.
std::vector<PackEntry> installOrder(const std::vector<PackEntry>& entries) {
  std::vector<PackEntry> ordered;
  std::vector<bool> taken(entries.size(), false);
  for (size_t first = 0; first < entries.size(); first++) {
    if (taken[first]) continue;
    size_t start = ordered.size();
    for (size_t i = first; i < entries.size(); i++) {
      if (entries[i].fileSet != entries[first].fileSet) continue;
      taken[i] = true;
      ordered.push_back(entries[i]);
    }
    std::reverse(ordered.begin() + static_cast<long>(start), ordered.end());
  }
  return ordered;
}

// Turns the template's entries into the records to pack: sources resolved,
// missing optional files dropped, one record per key. The template itself
// comes last under "install.xml", so that it is what the engine finds.
bool collectFiles(const PackOptions& options, const std::vector<PackEntry>& entries, std::vector<PackedFile>* files,
                  std::string* error) {
  const std::string templateFile = canonical(options.templatePath);
  std::map<std::string, size_t> byKey;
  for (const PackEntry& entry : entries) {
    std::string place = entryPlace(options, entry);
    std::string source = entry.source;
    if (!QUtils::fileExists(source.c_str())) {
      // A template that lists itself may stand outside the source tree.
      if (baseName(entry.text) == baseName(options.templatePath)) {
        source = options.templatePath;
      } else if (entry.okIfMissing) {
        continue;
      } else {
        *error = "missing source file " + entry.source + " (" + place + ")";
        return false;
      }
    }
    if (entry.key.empty() || entry.key.size() >= static_cast<size_t>(kRecordKeySize)) {
      *error = "key \"" + entry.key + "\" must have 1 to " + std::to_string(kRecordKeySize - 1) + " bytes (" +
               place + ")";
      return false;
    }
    if (entry.name.size() >= static_cast<size_t>(kRecordNameSize)) {
      *error = "file name longer than " + std::to_string(kRecordNameSize - 1) + " bytes (" + place + ")";
      return false;
    }
    std::string resolved = canonical(source);
    if (entry.key == kTemplateKey) {
      if (resolved == templateFile) continue;
      *error = "key \"install.xml\" is the template's, but names " + source + " (" + place + ")";
      return false;
    }
    auto known = byKey.find(entry.key);
    if (known != byKey.end()) {
      // The engine only ever finds the later of two records with one key.
      const PackedFile& earlier = (*files)[known->second];
      if (canonical(earlier.source) == resolved) continue;
      *error = "key \"" + entry.key + "\" names both " + earlier.source + " (" + earlier.where + ") and " + source +
               " (" + place + ")";
      return false;
    }
    byKey[entry.key] = files->size();
    files->push_back(PackedFile{entry.key, entry.name, source, place});
  }
  files->push_back(PackedFile{kTemplateKey, kTemplateKey, options.templatePath, "the template"});
  return true;
}

std::string recordHeader(uint32_t magic, uint32_t fileSize, uint32_t storedSize, uint32_t flags,
                         const unsigned char* digest, const std::string& name, const std::string& key) {
  std::string header(kRecordHeaderSize, '\0');
  unsigned char* p = reinterpret_cast<unsigned char*>(&header[0]);
  writeU32(p + kRecordMagicOffset, magic);
  writeU32(p + kRecordFileSizeOffset, fileSize);
  writeU32(p + kRecordStoredSizeOffset, storedSize);
  writeU32(p + kRecordFlagsOffset, flags);
  if (digest) std::memcpy(p + kRecordDigestOffset, digest, kMD5DigestSize);
  std::memcpy(p + kRecordNameOffset, name.data(), name.size());
  std::memcpy(p + kRecordKeyOffset, key.data(), key.size());
  return header;
}

// The installer being written: a counted sink for the compressed streams,
// and positioned writes for the head that is filled in last.
class OutputFile : public SolidBlockSink {
 public:
  OutputFile() : file(nullptr), count(0) {}
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile() { close(); }

  bool open(const std::string& path) {
    file = QUtils::openFile(path.c_str(), "wb");
    if (file) std::setvbuf(file, nullptr, _IOFBF, 1 << 20);
    return file != nullptr;
  }
  bool write(const void* data, size_t size) override {
    if (size == 0) return true;
    if (std::fwrite(data, 1, size, file) != size) return false;
    count += static_cast<int64_t>(size);
    return true;
  }
  // Writes `data` at `position`, then goes back to the end.
  bool writeAt(int64_t position, const std::string& data) {
    return fseeko(file, static_cast<off_t>(position), SEEK_SET) == 0 &&
           std::fwrite(data.data(), 1, data.size(), file) == data.size() && fseeko(file, 0, SEEK_END) == 0;
  }
  bool close() {
    if (!file) return true;
    bool ok = std::fclose(file) == 0;
    file = nullptr;
    return ok;
  }
  int64_t size() const { return count; }

 private:
  FILE* file;
  int64_t count;
};

// Reads a file that measured `size` bytes into `buffer`, whole. False if it
// can't be read or no longer has that size.
bool readSource(const std::string& path, int64_t size, std::vector<unsigned char>* buffer) {
  FILE* file = QUtils::openFile(path.c_str(), "rb");
  if (!file) return false;
  buffer->resize(static_cast<size_t>(size));
  bool ok = size == 0 || std::fread(buffer->data(), 1, buffer->size(), file) == buffer->size();
  // One more byte would mean that the file grew since it was measured.
  ok = ok && std::fgetc(file) == EOF && !std::ferror(file);
  std::fclose(file);
  return ok;
}

// The sizes of the files, taken before any is read: the record stream's
// length fixes the stripes, and a package that the format can't hold is
// refused here, before anything is compressed, rather than by the
// installer.
bool measureFiles(const PackOptions& options, const std::vector<PackedFile>& files, std::vector<int64_t>* sizes,
                  int64_t* blobSize, std::string* error) {
  int64_t blob = kRecordHeaderSize;  // the end record
  for (const PackedFile& file : files) {
    struct stat status;
    if (stat(QUtils::systemPath(file.source.c_str()).getText(), &status) != 0 || !S_ISREG(status.st_mode)) {
      *error = "cannot read " + file.source + " (" + file.where + ")";
      return false;
    }
    int64_t size = static_cast<int64_t>(status.st_size);
    if (size > kBlobLimit) {
      *error = file.source + " is larger than 1 GiB (" + file.where + ")";
      return false;
    }
    sizes->push_back(size);
    blob += kRecordHeaderSize + size;
  }
  if (!options.notSolid && blob > kBlobLimit) {
    *error = "the files come to " + std::to_string(blob) + " bytes with their records, more than the " +
             std::to_string(kBlobLimit) + " (1 GiB) that a solid package holds";
    return false;
  }
  *blobSize = blob;
  return true;
}

// Writes the records behind the package header: for a solid package into
// a SolidBlockWriter, which deflates them stripe by stripe on its workers
// and hands the streams to the output in order; otherwise straight to the
// output, each file's data deflated on its own.
class RecordWriter {
 public:
  RecordWriter(const PackOptions& options, OutputFile* output) : options(options), output(output) {}
  RecordWriter(const RecordWriter&) = delete;
  RecordWriter& operator=(const RecordWriter&) = delete;

  bool begin(int64_t blobSize, std::string* error) {
    packageStart = output->size() - kPackageHeaderSize;
    if (options.notSolid) return true;
    codec.reset(createSolidCompressor(kSolidMethodZlib, options.level));
    int stripes = options.stripes > 0 ? options.stripes : chooseStripeCount(blobSize);
    // The record index's pointer goes in the gap in front of the streams.
    if (codec) block.reset(new SolidBlockWriter(codec.get(), output, blobSize, stripes, 0, kRecordIndexPointerSize));
    if (!block || block->check() != 0) {
      *error = "cannot set up the compressor for " + std::to_string(stripes) + " stripes of " +
               std::to_string(blobSize) + " bytes";
      return false;
    }
    headAt = output->size();
    // Room for the head and the pointer, which are filled in at the end.
    const std::string room(static_cast<size_t>(block->headSize() + block->gapSize()), '\0');
    return output->write(room.data(), room.size()) || fail("cannot write the output", error);
  }

  bool addFile(const PackedFile& file, const std::vector<unsigned char>& data, std::string* error) {
    unsigned char digest[kMD5DigestSize];
    MD5::digest(data.data(), data.size(), digest);
    uint32_t size = static_cast<uint32_t>(data.size());
    uint32_t flags = isImageName(file.name) ? kRecordFlagImage : 0;
    if (block) {
      std::string header = recordHeader(kRecordMagicFile, size, size, flags, digest, file.name, file.key);
      index.add(blobOffset, reinterpret_cast<const unsigned char*>(header.data()));
      blobOffset += kRecordHeaderSize + static_cast<int64_t>(size);
      return add(header.data(), header.size(), error) && add(data.data(), data.size(), error);
    }
    size_t length = deflateZlibBound(data.size());
    deflated.resize(length);
    if (deflateZlibStream(deflated.data(), &length, data.data(), data.size(), options.level) != 0) {
      return fail("cannot compress " + file.source, error);
    }
    std::string header =
        recordHeader(kRecordMagicFile, size, static_cast<uint32_t>(length), flags, digest, file.name, file.key);
    if (!output->write(header.data(), header.size()) || !output->write(deflated.data(), length)) {
      return fail("cannot write the output", error);
    }
    if (output->size() - packageStart > 0x7fff0000) return fail("the package passes 2 GiB (at " + file.source + ")", error);
    return true;
  }

  bool finish(std::string* error) {
    std::string end = recordHeader(kRecordMagicEnd, 0, 0, 0, nullptr, "", "");
    if (!block) return output->write(end.data(), end.size()) || fail("cannot write the output", error);
    std::string head;
    if (!add(end.data(), end.size(), error)) return false;
    index.add(blobOffset, reinterpret_cast<const unsigned char*>(end.data()));
    int code = block->finish(&head);
    if (code != 0) return fail(blockFailure(code), error);
    // The record index behind the last stream; its pointer behind the head.
    std::string stream, pointer;
    const int64_t streamOffset = output->size() - headAt;
    if (!index.finish(options.level, streamOffset, &stream, &pointer)) return fail("cannot compress the record index", error);
    if (!output->write(stream.data(), stream.size())) return fail("cannot write the output", error);
    if (output->size() - packageStart > 0x7fff0000) return fail("the package passes 2 GiB", error);
    return output->writeAt(headAt, head + pointer) || fail("cannot write the output", error);
  }

 private:
  static bool fail(const std::string& message, std::string* error) {
    *error = message;
    return false;
  }
  std::string blockFailure(int code) {
    switch (code) {
      case kWriterTooLarge:
        return "the compressed files pass the 2 GiB that a solid block can place";
      case kWriterSinkFailed:
        return "cannot write the output";
      case kWriterLengthWrong:
        return "a file changed its size while it was packed";
      default:
        return "compression failed (code " + std::to_string(code) + ")";
    }
  }
  bool add(const void* data, size_t size, std::string* error) {
    int code = block->addData(data, size);
    return code == 0 || fail(blockFailure(code), error);
  }

  const PackOptions& options;
  OutputFile* output;
  std::unique_ptr<SolidCompressor> codec;
  std::unique_ptr<SolidBlockWriter> block;  // null for a package that isn't solid
  int64_t packageStart = 0;
  int64_t headAt = 0;
  int64_t blobOffset = 0;  // where the next record starts in the blob
  RecordIndexWriter index;
  std::vector<unsigned char> deflated;
};

// Writes the package header and every file's record behind the stub.
bool writePackage(const PackOptions& options, const std::vector<PackedFile>& files, OutputFile* output,
                  PackResult* result, std::string* error) {
  std::vector<int64_t> sizes;
  int64_t blobSize = 0;
  if (!measureFiles(options, files, &sizes, &blobSize, error)) return false;
  unsigned long long dataSize = 0;
  for (int64_t size : sizes) dataSize += static_cast<unsigned long long>(size);

  unsigned char header[kPackageHeaderSize] = {0};
  writeU32(header, kPackageMagic1);
  writeU32(header + 4, kPackageMagic2);
  writeU32(header + 8, kPackageMagic3);
  writeU32(header + 12, static_cast<uint32_t>(dataSize));
  writeU32(header + 16, static_cast<uint32_t>(dataSize));
  writeU32(header + 20, static_cast<uint32_t>(files.size()));
  if (!output->write(header, sizeof(header))) {
    *error = "cannot write the output";
    return false;
  }

  RecordWriter writer(options, output);
  if (!writer.begin(blobSize, error)) return false;
  // One buffer, as large as the largest file, serves every file.
  std::vector<unsigned char> data;
  for (size_t i = 0; i < files.size(); i++) {
    if (!readSource(files[i].source, sizes[i], &data)) {
      *error = "cannot read " + files[i].source + ", or it changed while it was packed (" + files[i].where + ")";
      return false;
    }
    if (!writer.addFile(files[i], data, error)) return false;
    result->files++;
    result->dataSize += data.size();
  }
  return writer.finish(error);
}

bool oldChecksumWanted() {
  const char* setting = std::getenv("OLD_CHECKSUMMING");
  return setting && setting[0] == '1';
}

// Reads the stub and sets its offset field to where the package will start.
bool prepareStub(const PackOptions& options, std::string* image, std::string* error) {
  if (!readWholeFile(options.stub, image)) {
    *error = "cannot read the stub " + options.stub;
    return false;
  }
  std::string fieldError;
  long long field = findOffsetField(*image, &fieldError);
  if (field < 0) {
    *error = "the stub " + options.stub + " " + fieldError;
    return false;
  }
  if (!options.notSolid && image->find(kSolidCapability) == std::string::npos) {
    *error = "the stub " + options.stub + " can't read solid packages; pack with --not-solid";
    return false;
  }
  if (!oldChecksumWanted() && image->find(kSignedCapability) == std::string::npos) {
    *error = "the stub " + options.stub + " can't check the current checksum record; set OLD_CHECKSUMMING=1";
    return false;
  }
  if (image->size() > 0xffffffffu) {
    *error = "the stub " + options.stub + " is larger than 4 GiB";
    return false;
  }
  writeU32(reinterpret_cast<unsigned char*>(&(*image)[static_cast<size_t>(field)]),
           static_cast<uint32_t>(image->size()));
  return true;
}

}  // namespace

long long findOffsetField(const std::string& image, std::string* error) {
  const std::string marker(kOffsetMarker, kOffsetMarkerSize);
  size_t first = image.find(marker, 4);
  if (first == std::string::npos) {
    *error = "has no package offset field (the text \"ARYIMAGEOFFSET_\" is missing)";
    return -1;
  }
  if (image.find(marker, first + 1) != std::string::npos) {
    *error = "holds the package offset field's text more than once";
    return -1;
  }
  return static_cast<long long>(first) - 4;
}

bool writeInstaller(const PackOptions& options, const std::vector<PackEntry>& entries, PackResult* result,
                    std::string* error) {
  *result = PackResult{0, 0, 0, 0};
  std::vector<PackedFile> files;
  if (!collectFiles(options, installOrder(entries), &files, error)) return false;

  std::string image;
  if (!options.bare && !prepareStub(options, &image, error)) return false;
  result->packageOffset = image.size();

  const std::string temporary = options.output + ".tmp" + std::to_string(getpid());
  OutputFile output;
  if (!output.open(temporary)) {
    *error = "cannot create the output " + options.output + " (as " + temporary + ")";
    return false;
  }
  bool written = output.write(image.data(), image.size());
  if (!written) *error = "cannot write " + temporary;
  // The stub's copy is not needed again while the files are packed.
  std::string().swap(image);
  written = written && writePackage(options, files, &output, result, error);
  int64_t outputSize = output.size();
  if (!output.close() && written) {
    *error = "cannot write " + temporary;
    written = false;
  }
  if (written && !options.bare && writePackageChecksum(temporary.c_str()) != 0) {
    *error = "cannot write the checksum record to " + temporary;
    written = false;
  } else if (written && !options.bare) {
    // The installer runs like the stub it came from.
    struct stat stubStatus;
    if (stat(QUtils::systemPath(options.stub.c_str()).getText(), &stubStatus) == 0) {
      chmod(QUtils::systemPath(temporary.c_str()).getText(), stubStatus.st_mode & 0777);
    }
  }
  if (written && QUtils::renameFile(temporary.c_str(), options.output.c_str()) != 0) {
    *error = "cannot move " + temporary + " to " + options.output;
    written = false;
  }
  if (!written) {
    QUtils::deleteFile(temporary.c_str());
    return false;
  }
  result->outputSize = static_cast<unsigned long long>(outputSize) + (options.bare ? 0 : (oldChecksumWanted() ? 24 : 23));
  return true;
}
