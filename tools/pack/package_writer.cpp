// The body of the package builder's writer (package_writer.h): the package
// laid out block by block, and the installer put together around it.
#include "tools/pack/package_writer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
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
#include "tools/pack/package_output.h"

namespace {

// The text that follows the stub's package offset field, NUL included.
const char kOffsetMarker[] = "ARYIMAGEOFFSET_";
const size_t kOffsetMarkerSize = sizeof(kOffsetMarker);
// What a stub says it can read.
const char kSolidCapability[] = "SupportsSolidZlib";
const char kSignedCapability[] = "SupportsSignedInstallers";
const char kTemplateKey[] = "install.xml";
// What a split installer keeps free below the split size: room for its
// checksum record and a signature's certificate table.
const int64_t kSplitReserve = 64 << 10;

// One record to pack.
struct PackedFile {
  std::string key;
  std::string name;
  std::string source;
  std::string where;  // names the template entry in messages
  bool inMemory;         // the data is `contents`, not the file `source`
  std::string contents;
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
  std::map<std::string, size_t> byKey;
  for (const PackEntry& entry : entries) {
    std::string place = entryPlace(options, entry);
    std::string source = entry.source;
    if (!entry.inMemory && !QUtils::fileExists(source.c_str())) {
      if (entry.okIfMissing) continue;
      *error = "missing source file " + entry.source + " (" + place + ")";
      return false;
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
    // The template's own record comes last, whoever names it.
    if (entry.key == kTemplateKey) continue;
    std::string resolved = entry.inMemory ? "" : canonical(source);
    auto known = byKey.find(entry.key);
    if (known != byKey.end()) {
      // The engine only ever finds the later of two records with one key.
      const PackedFile& earlier = (*files)[known->second];
      if (earlier.inMemory ? entry.inMemory && earlier.contents == entry.contents
                           : !entry.inMemory && canonical(earlier.source) == resolved)
        continue;
      *error = "key \"" + entry.key + "\" names both " + earlier.source + " (" + earlier.where + ") and " + source +
               " (" + place + ")";
      return false;
    }
    byKey[entry.key] = files->size();
    files->push_back(PackedFile{entry.key, entry.name, source, place, entry.inMemory, entry.contents});
  }
  files->push_back(PackedFile{kTemplateKey, kTemplateKey, options.templatePath, "the template", true,
                              options.templateText});
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

// The sizes of the files, taken before any is read: they fix the blocks and
// their stripes, and a package that the format can't hold is refused here,
// before anything is compressed, rather than by the installer. A package
// that isn't solid holds each file whole in memory, and places its records
// with 32-bit sizes.
bool measureFiles(const PackOptions& options, const std::vector<PackedFile>& files, std::vector<int64_t>* sizes,
                  std::string* error) {
  for (const PackedFile& file : files) {
    if (file.inMemory) {
      sizes->push_back(static_cast<int64_t>(file.contents.size()));
      continue;
    }
    struct stat status;
    if (stat(QUtils::systemPath(file.source.c_str()).getText(), &status) != 0 || !S_ISREG(status.st_mode)) {
      *error = "cannot read " + file.source + " (" + file.where + ")";
      return false;
    }
    int64_t size = static_cast<int64_t>(status.st_size);
    if (options.notSolid && size > kBlobLimit) {
      *error = file.source + " is larger than the 1 GiB that a package that isn't solid holds (" + file.where + ")";
      return false;
    }
    sizes->push_back(size);
  }
  return true;
}

// Files up to this size are read once, whole, for their digest and their
// data; larger ones are read twice a piece at a time, first for the digest
// that their record's header carries, then for the data.
const int64_t kWholeReadLimit = 16 << 20;
const size_t kReadPiece = 4 << 20;
// A file split across blocks leaves no piece shorter than this at the end
// of a block; the block is closed there instead.
const int64_t kSmallestPiece = 1 << 20;
// What a stub says when it reads packages of several blocks.
const char kLargeCapability[] = "SupportsLargePackages";

// One record of the plan: a file's bytes from `offset`, `size` of them;
// `continued` when the file goes on in the next record.
struct Slice {
  size_t file;
  int64_t offset;
  int64_t size;
  bool continued;
};

// One solid block: its records and the length they come to with their
// headers (and the end record, in the last block).
struct BlockPlan {
  std::vector<Slice> slices;
  int64_t blob = 0;
};

// Cuts the record stream into blocks of at most `limit` bytes: a file
// goes whole into the block being filled if it fits, else into a new one;
// a file too large for any block is split into records that fill blocks.
std::vector<BlockPlan> planBlocks(const std::vector<int64_t>& sizes, int64_t limit) {
  std::vector<BlockPlan> blocks(1);
  const int64_t header = kRecordHeaderSize;
  const int64_t smallest = std::min(kSmallestPiece, limit / 4);
  for (size_t i = 0; i < sizes.size(); i++) {
    if (blocks.back().blob + header + sizes[i] <= limit) {
      blocks.back().slices.push_back({i, 0, sizes[i], false});
      blocks.back().blob += header + sizes[i];
      continue;
    }
    if (header + sizes[i] <= limit) {
      blocks.emplace_back();
      blocks.back().slices.push_back({i, 0, sizes[i], false});
      blocks.back().blob = header + sizes[i];
      continue;
    }
    for (int64_t offset = 0; offset < sizes[i];) {
      int64_t room = limit - blocks.back().blob - header;
      if (room < smallest) {
        blocks.emplace_back();
        continue;
      }
      int64_t take = std::min(room, sizes[i] - offset);
      blocks.back().slices.push_back({i, offset, take, offset + take < sizes[i]});
      blocks.back().blob += header + take;
      offset += take;
    }
  }
  // The end record closes the last block.
  if (blocks.back().blob + header > limit) blocks.emplace_back();
  blocks.back().blob += header;
  return blocks;
}

// A source file read for its record: its digest first, then its data in
// pieces, in order.
class SourceFile {
 public:
  SourceFile() {}
  SourceFile(const SourceFile&) = delete;
  SourceFile& operator=(const SourceFile&) = delete;
  ~SourceFile() { close(); }

  // Opens the file that measured `size` bytes and takes its MD5 digest.
  // False if it can't be read or no longer has that size. A record held in
  // memory (a link's target, a placeholder, the template) is handed out
  // from there.
  bool open(const PackedFile& source, int64_t size, unsigned char digest[kMD5DigestSize]) {
    close();
    length = size;
    handedOut = 0;
    const std::string& path = source.source;
    if (source.inMemory) {
      whole.assign(source.contents.begin(), source.contents.end());
      MD5::digest(whole.data(), whole.size(), digest);
      return true;
    }
    if (size <= kWholeReadLimit) {
      if (!readSource(path, size, &whole)) return false;
      MD5::digest(whole.data(), whole.size(), digest);
      return true;
    }
    whole.clear();
    file = QUtils::openFile(path.c_str(), "rb");
    if (!file) return false;
    piece.resize(kReadPiece);
    MD5 md5;
    int64_t read = 0;
    size_t got;
    while ((got = std::fread(piece.data(), 1, piece.size(), file)) > 0) {
      md5.update(piece.data(), got);
      read += static_cast<int64_t>(got);
    }
    md5.finish(digest);
    return !std::ferror(file) && read == size && fseeko(file, 0, SEEK_SET) == 0;
  }
  // The next `size` bytes (at most kReadPiece) in `*data`. False on a short
  // read.
  bool next(size_t size, const unsigned char** data) {
    if (!file) {
      *data = whole.data() + handedOut;
    } else {
      if (std::fread(piece.data(), 1, size, file) != size) return false;
      *data = piece.data();
    }
    handedOut += static_cast<int64_t>(size);
    return true;
  }
  // After the last piece: true if the file ends there.
  bool atEnd() { return handedOut == length && (!file || (std::fgetc(file) == EOF && !std::ferror(file))); }
  void close() {
    if (file) std::fclose(file);
    file = nullptr;
  }

 private:
  FILE* file = nullptr;
  std::vector<unsigned char> whole;
  std::vector<unsigned char> piece;
  int64_t length = 0;
  int64_t handedOut = 0;
};

bool fail(const std::string& message, std::string* error) {
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

// The records of a package that isn't solid, straight behind the header,
// each file's data deflated on its own.
bool writePlainRecords(const PackOptions& options, const std::vector<PackedFile>& files,
                       const std::vector<int64_t>& sizes, PackageOutput* output, PackResult* result,
                       std::string* error) {
  const int64_t packageStart = output->size() - kPackageHeaderSize;
  std::vector<unsigned char> data, deflated;
  for (size_t i = 0; i < files.size(); i++) {
    const PackedFile& file = files[i];
    if (file.inMemory) {
      data.assign(file.contents.begin(), file.contents.end());
    } else if (!readSource(file.source, sizes[i], &data)) {
      return fail("cannot read " + file.source + ", or it changed while it was packed (" + file.where + ")", error);
    }
    unsigned char digest[kMD5DigestSize];
    MD5::digest(data.data(), data.size(), digest);
    size_t length = deflateZlibBound(data.size());
    deflated.resize(length);
    if (deflateZlibStream(deflated.data(), &length, data.data(), data.size(), options.level) != 0)
      return fail("cannot compress " + file.source, error);
    const uint32_t size = static_cast<uint32_t>(data.size());
    std::string header = recordHeader(kRecordMagicFile, size, static_cast<uint32_t>(length),
                                      isImageName(file.name) ? kRecordFlagImage : 0, digest, file.name, file.key);
    if (!output->write(header.data(), header.size()) || !output->write(deflated.data(), length))
      return fail("cannot write the output", error);
    if (output->size() - packageStart > 0x7fff0000) return fail("the package passes 2 GiB (at " + file.source + ")", error);
    result->files++;
    result->dataSize += data.size();
  }
  std::string end = recordHeader(kRecordMagicEnd, 0, 0, 0, nullptr, "", "");
  return output->write(end.data(), end.size()) || fail("cannot write the output", error);
}

// The records of a solid package, block by block as `blocks` plans them.
// One block is written in the single block's layout, with the record
// index's pointer in the gap in front of the streams and the index behind
// them; several stand behind a block table, which says where each block
// and the index lie and which package files follow the installer.
class SolidWriter {
 public:
  SolidWriter(const PackOptions& options, const std::vector<PackedFile>& files, const std::vector<int64_t>& sizes,
              PackageOutput* output)
      : options(options), files(files), sizes(sizes), output(output) {}

  bool write(const std::vector<BlockPlan>& blocks, bool withTable, PackResult* result, std::string* error) {
    codec.reset(createSolidCompressor(kSolidMethodZlib, options.level));
    if (!codec) return fail("cannot set up the compressor", error);
    packageStart = output->size() - kPackageHeaderSize;
    int64_t tableSize = 0;
    if (withTable) {
      // Room for the table; its package files' entries are known last, so
      // a split package has room for as many as the table takes.
      tableSize = blockTableSize(static_cast<int>(blocks.size()), options.splitSize > 0 ? kMaxPackageFiles : 0);
      const std::string room(static_cast<size_t>(tableSize), '\0');
      if (!output->write(room.data(), room.size())) return fail("cannot write the output", error);
    }
    for (size_t b = 0; b < blocks.size(); b++) {
      BlockPlace place;
      place.blobStart = blobOffset;
      place.blobSize = blocks[b].blob;
      place.start = output->size() - packageStart;
      if (!writeBlock(blocks[b], b + 1 == blocks.size(), withTable ? 0 : kRecordIndexPointerSize, result, error))
        return false;
      place.size = output->size() - packageStart - place.start;
      table.blocks.push_back(place);
    }
    // The record index behind the last stream.
    std::string stream, pointer;
    const int64_t indexStart = output->size() - packageStart;
    if (!index.finish(options.level, withTable ? indexStart : indexStart - kPackageHeaderSize, &stream, &pointer))
      return fail("cannot compress the record index", error);
    if (!output->write(stream.data(), stream.size())) return fail("cannot write the output", error);
    if (!withTable) {
      if (output->size() - packageStart > 0x7fff0000) return fail("the package passes 2 GiB", error);
      return output->writeAt(firstHeadAt, heads[0] + pointer) || fail("cannot write the output", error);
    }
    for (size_t b = 0; b < blocks.size(); b++) {
      if (!output->writeAt(packageStart + table.blocks[b].start, heads[b])) return fail("cannot write the output", error);
    }
    table.blobSize = blobOffset;
    table.ownBytes = output->installerBytes() - packageStart;
    table.indexStart = indexStart;
    table.indexPackedSize = static_cast<uint32_t>(stream.size());
    table.indexCount = indexCount;
    table.stem = output->stem();
    if (!output->finish(&table.files, error)) return false;
    if (options.splitSize > 0 && table.files.empty()) {
      // Everything fitted in the installer: the table says so.
      table.stem.clear();
    }
    return output->writeAt(packageStart + kPackageHeaderSize, writeBlockTable(table, tableSize)) ||
           fail("cannot write the output", error);
  }

 private:
  bool writeBlock(const BlockPlan& plan, bool last, int64_t gap, PackResult* result, std::string* error) {
    int stripes = options.stripes > 0 ? std::min<int64_t>(options.stripes, plan.blob) : chooseStripeCount(plan.blob);
    SolidBlockWriter block(codec.get(), output, plan.blob, stripes, 0, gap);
    if (block.check() != 0) {
      return fail("cannot set up the compressor for " + std::to_string(stripes) + " stripes of " +
                      std::to_string(plan.blob) + " bytes",
                  error);
    }
    const int64_t headAt = output->size();
    if (heads.empty()) firstHeadAt = headAt;
    const std::string room(static_cast<size_t>(block.headSize() + block.gapSize()), '\0');
    if (!output->write(room.data(), room.size())) return fail("cannot write the output", error);

    for (const Slice& slice : plan.slices) {
      const PackedFile& file = files[slice.file];
      if (slice.offset == 0 && !source.open(file, sizes[slice.file], digest)) {
        return fail("cannot read " + file.source + ", or it changed while it was packed (" + file.where + ")", error);
      }
      uint32_t flags = (isImageName(file.name) ? kRecordFlagImage : 0) | (slice.continued ? kRecordFlagContinued : 0);
      const uint32_t size = static_cast<uint32_t>(slice.size);
      std::string header = recordHeader(kRecordMagicFile, size, size, flags, digest, file.name, file.key);
      index.add(blobOffset, reinterpret_cast<const unsigned char*>(header.data()));
      indexCount++;
      blobOffset += kRecordHeaderSize + slice.size;
      if (!add(&block, header.data(), header.size(), error)) return false;
      for (int64_t done = 0; done < slice.size;) {
        size_t piece = static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(kReadPiece), slice.size - done));
        const unsigned char* data = nullptr;
        if (!source.next(piece, &data))
          return fail("cannot read " + file.source + ", or it changed while it was packed (" + file.where + ")", error);
        if (!add(&block, data, piece, error)) return false;
        done += static_cast<int64_t>(piece);
      }
      if (!slice.continued) {
        if (!source.atEnd())
          return fail("cannot read " + file.source + ", or it changed while it was packed (" + file.where + ")", error);
        source.close();
        result->files++;
        result->dataSize += static_cast<unsigned long long>(sizes[slice.file]);
      }
    }
    if (last) {
      std::string end = recordHeader(kRecordMagicEnd, 0, 0, 0, nullptr, "", "");
      index.add(blobOffset, reinterpret_cast<const unsigned char*>(end.data()));
      indexCount++;
      blobOffset += kRecordHeaderSize;
      if (!add(&block, end.data(), end.size(), error)) return false;
    }
    std::string head;
    int code = block.finish(&head);
    if (code != 0) return fail(blockFailure(code), error);
    heads.push_back(head);
    return true;
  }

  static bool add(SolidBlockWriter* block, const void* data, size_t size, std::string* error) {
    int code = block->addData(data, size);
    return code == 0 || fail(blockFailure(code), error);
  }

  const PackOptions& options;
  const std::vector<PackedFile>& files;
  const std::vector<int64_t>& sizes;
  PackageOutput* output;
  std::unique_ptr<SolidCompressor> codec;
  SourceFile source;
  unsigned char digest[kMD5DigestSize] = {0};
  RecordIndexWriter index;
  uint32_t indexCount = 0;
  BlockTable table;
  std::vector<std::string> heads;  // each block's, written at the end
  int64_t packageStart = 0;
  int64_t firstHeadAt = 0;
  int64_t blobOffset = 0;  // where the next record starts in the blob
};

// Writes the package header and every file's record behind the stub.
bool writePackage(const PackOptions& options, const std::vector<PackedFile>& files, bool largeCapable,
                  PackageOutput* output, PackResult* result, std::string* error) {
  std::vector<int64_t> sizes;
  if (!measureFiles(options, files, &sizes, error)) return false;
  unsigned long long dataSize = 0;
  for (int64_t size : sizes) dataSize += static_cast<unsigned long long>(size);

  std::vector<BlockPlan> blocks;
  bool withTable = false;
  if (!options.notSolid) {
    blocks = planBlocks(sizes, options.blockLimit > 0 ? options.blockLimit : kBlobLimit);
    // A package that fits one block keeps the single block's layout, which
    // every installer reads.
    withTable = blocks.size() > 1 || options.splitSize > 0;
    if (withTable && !largeCapable) {
      return fail("the stub " + options.stub + " can't read packages of several blocks or package files (" +
                      std::to_string(blocks.size()) + " blocks)",
                  error);
    }
  }

  unsigned char header[kPackageHeaderSize] = {0};
  writeU32(header + kPackageMagic1Offset, kPackageMagic1);
  writeU32(header + kPackageMagic2Offset, kPackageMagic2);
  writeU32(header + kPackageMagic3Offset, kPackageMagic3);
  // Not read by the loader; a sum past 4 GiB keeps its low 32 bits.
  writeU32(header + kPackageDataSizeOffset, static_cast<uint32_t>(dataSize));
  writeU32(header + kPackageDataSizeCopyOffset, static_cast<uint32_t>(dataSize));
  writeU32(header + kPackageFileCountOffset, static_cast<uint32_t>(files.size()));
  if (!output->write(header, sizeof(header))) return fail("cannot write the output", error);
  if (options.notSolid) return writePlainRecords(options, files, sizes, output, result, error);
  SolidWriter writer(options, files, sizes, output);
  return writer.write(blocks, withTable, result, error);
}

// Gives the installer the stub's permission bits, so that it runs as the
// stub does. False, with the reason in `error`, when they can't be read or
// set: an installer that can't be started is no success.
bool copyStubMode(const std::string& stub, const std::string& installer, std::string* error) {
  struct stat stubStatus;
  if (stat(QUtils::systemPath(stub.c_str()).getText(), &stubStatus) != 0) {
    *error = "cannot read the permissions of the stub " + stub + ": " + std::strerror(errno);
    return false;
  }
  if (chmod(QUtils::systemPath(installer.c_str()).getText(), stubStatus.st_mode & 0777) != 0) {
    *error = "cannot give " + installer + " the permissions of its stub: " + std::strerror(errno);
    return false;
  }
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
  *result = PackResult{0, 0, 0, 0, 0};
  std::vector<PackedFile> files;
  if (!collectFiles(options, installOrder(entries), &files, error)) return false;
  if (options.splitSize > 0 && options.notSolid) return fail("--split needs a solid package", error);

  std::string image;
  if (!options.bare && !prepareStub(options, &image, error)) return false;
  // A bare package is read by a program that knows how, whatever it is.
  const bool largeCapable = options.bare || image.find(kLargeCapability) != std::string::npos;
  result->packageOffset = image.size();
  if (options.splitSize > 0 && static_cast<int64_t>(image.size()) + kSplitReserve + (1 << 20) > options.splitSize) {
    return fail("--split " + std::to_string(options.splitSize) + " leaves no room behind the " +
                    std::to_string(image.size()) + "-byte stub",
                error);
  }

  PackageOutput output;
  if (!output.open(options.output, options.splitSize, kSplitReserve, error)) return false;
  const std::string temporary = output.installerTemporary();
  bool written = output.write(image.data(), image.size());
  if (!written) *error = "cannot write " + temporary;
  // The stub's copy is not needed again while the files are packed.
  std::string().swap(image);
  written = written && writePackage(options, files, largeCapable, &output, result, error);
  std::vector<PackageFilePlace> parts;
  written = written && output.finish(&parts, error);
  const int64_t outputSize = output.installerBytes();
  if (written && !options.bare && writePackageChecksum(temporary.c_str()) != 0) {
    *error = "cannot write the checksum record to " + temporary;
    written = false;
  } else if (written && !options.bare && !copyStubMode(options.stub, temporary, error)) {
    written = false;
  }
  // On failure the output removes what it wrote.
  if (!written || !output.commit(error)) return false;
  result->outputSize = static_cast<unsigned long long>(outputSize) + (options.bare ? 0 : (oldChecksumWanted() ? kChecksumRecordSizeOld : kChecksumRecordSizeCurrent));
  result->packageFiles = static_cast<int>(parts.size());
  return true;
}
