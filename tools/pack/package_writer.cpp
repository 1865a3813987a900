#include "tools/pack/package_writer.h"

#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "foundation/files.h"
#include "foundation/text.h"
#include "package/checksum.h"
#include "package/format.h"
#include "package/md5.h"
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

// The package in memory: the header, followed either by the records of a
// package that isn't solid (in `head` too) or by the compressor's block,
// which is kept as the compressor gave it rather than copied.
struct PackageBytes {
  PackageBytes() : block(nullptr), blockSize(0) {}
  PackageBytes(const PackageBytes&) = delete;
  PackageBytes& operator=(const PackageBytes&) = delete;
  ~PackageBytes() { std::free(block); }
  size_t size() const { return head.size() + blockSize; }

  std::string head;
  unsigned char* block;  // malloc'ed
  size_t blockSize;
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

// Collects the records behind the package header: for a solid package into
// the compressor's stream, which finish() turns into the block; otherwise
// straight into `head`, each file's data deflated on its own.
class RecordWriter {
 public:
  RecordWriter(const PackOptions& options, PackageBytes* package)
      : options(options), package(package), compressor(nullptr) {}
  RecordWriter(const RecordWriter&) = delete;
  RecordWriter& operator=(const RecordWriter&) = delete;
  ~RecordWriter() { delete compressor; }

  bool init(std::string* error) {
    package->head.assign(kPackageHeaderSize, '\0');
    if (options.notSolid) return true;
    compressor = createSolidCompressor(kSolidMethodZlib);
    if (compressor && compressor->init(options.stripes, options.level) == 0) return true;
    *error = "cannot set up the compressor";
    return false;
  }

  bool addFile(const PackedFile& file, const std::string& data, std::string* error) {
    unsigned char digest[kMD5DigestSize];
    MD5::digest(data.data(), data.size(), digest);
    uint32_t size = static_cast<uint32_t>(data.size());
    uint32_t flags = isImageName(file.name) ? kRecordFlagImage : 0;
    if (compressor) {
      std::string header = recordHeader(kRecordMagicFile, size, size, flags, digest, file.name, file.key);
      if (compressor->addData(header.data(), kRecordHeaderSize) != 0 ||
          compressor->addData(data.data(), static_cast<int32_t>(size)) != 0) {
        *error = "the files come to more than the 1 GiB a solid package holds (at " + file.source + ")";
        return false;
      }
      return true;
    }
    uLongf length = compressBound(static_cast<uLong>(size));
    deflated.resize(length);
    if (compress2(reinterpret_cast<Bytef*>(&deflated[0]), &length, reinterpret_cast<const Bytef*>(data.data()), size,
                  options.level) != Z_OK) {
      *error = "cannot compress " + file.source;
      return false;
    }
    package->head += recordHeader(kRecordMagicFile, size, static_cast<uint32_t>(length), flags, digest, file.name,
                                  file.key);
    package->head.append(deflated.data(), length);
    if (package->head.size() > 0x7fff0000u) {
      *error = "the package passes 2 GiB (at " + file.source + ")";
      return false;
    }
    return true;
  }

  bool finish(std::string* error) {
    std::string end = recordHeader(kRecordMagicEnd, 0, 0, 0, nullptr, "", "");
    if (!compressor) {
      package->head += end;
      return true;
    }
    if (compressor->addData(end.data(), kRecordHeaderSize) != 0) {
      *error = "the files come to more than the 1 GiB a solid package holds";
      return false;
    }
    unsigned char* block = nullptr;
    int32_t blockSize = 0, blobSize = 0;
    int code = compressor->compress(&block, &blockSize, &blobSize);
    // The collected stream is freed before the block is written out.
    delete compressor;
    compressor = nullptr;
    if (code != 0) {
      *error = "compression failed (code " + std::to_string(code) + ")";
      return false;
    }
    package->block = block;
    package->blockSize = static_cast<size_t>(blockSize);
    return true;
  }

 private:
  const PackOptions& options;
  PackageBytes* package;
  SolidCompressor* compressor;  // null for a package that isn't solid
  std::string deflated;
};

// Reads every file into its record, then fills in the package header.
bool buildPackage(const PackOptions& options, const std::vector<PackedFile>& files, PackageBytes* package,
                  PackResult* result, std::string* error) {
  RecordWriter writer(options, package);
  if (!writer.init(error)) return false;
  std::string data;
  for (const PackedFile& file : files) {
    if (!readWholeFile(file.source, &data)) {
      *error = "cannot read " + file.source + " (" + file.where + ")";
      return false;
    }
    if (data.size() > static_cast<size_t>(kBlobLimit)) {
      *error = file.source + " is larger than 1 GiB (" + file.where + ")";
      return false;
    }
    if (!writer.addFile(file, data, error)) return false;
    result->files++;
    result->dataSize += data.size();
  }
  if (!writer.finish(error)) return false;

  unsigned char* header = reinterpret_cast<unsigned char*>(&package->head[0]);
  writeU32(header, kPackageMagic1);
  writeU32(header + 4, kPackageMagic2);
  writeU32(header + 8, kPackageMagic3);
  writeU32(header + 12, static_cast<uint32_t>(result->dataSize));
  writeU32(header + 16, static_cast<uint32_t>(result->dataSize));
  writeU32(header + 20, static_cast<uint32_t>(result->files));
  return true;
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

bool writeAll(FILE* file, const void* data, size_t size) {
  return size == 0 || std::fwrite(data, 1, size, file) == size;
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
  if (!collectFiles(options, entries, &files, error)) return false;

  std::string image;
  if (!options.bare && !prepareStub(options, &image, error)) return false;
  result->packageOffset = image.size();

  PackageBytes package;
  if (!buildPackage(options, files, &package, result, error)) return false;

  const std::string temporary = options.output + ".tmp" + std::to_string(getpid());
  FILE* file = QUtils::openFile(temporary.c_str(), "wb");
  if (!file) {
    *error = "cannot create the output " + options.output + " (as " + temporary + ")";
    return false;
  }
  bool written = writeAll(file, image.data(), image.size()) && writeAll(file, package.head.data(), package.head.size()) &&
                 writeAll(file, package.block, package.blockSize);
  written = std::fclose(file) == 0 && written;
  if (!written) {
    *error = "cannot write " + temporary;
  } else if (!options.bare && writePackageChecksum(temporary.c_str()) != 0) {
    *error = "cannot write the checksum record to " + temporary;
    written = false;
  } else if (!options.bare) {
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
  result->outputSize = image.size() + package.size() + (options.bare ? 0 : (oldChecksumWanted() ? 24 : 23));
  return true;
}
