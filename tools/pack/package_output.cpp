// The body of PackageOutput (package_output.h): the installer and its
// package files written under temporary names and renamed into place.
#include "tools/pack/package_output.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "foundation/files.h"
#include "package/sha256.h"

namespace {

const size_t kBufferSize = 1 << 20;

std::string temporaryName(const std::string& path) { return path + ".tmp" + std::to_string(getpid()); }

}  // namespace

PackageOutput::~PackageOutput() {
  if (!committed) discard();
}

bool PackageOutput::open(const std::string& path, int64_t splitSize, int64_t reserve, std::string* error) {
  size_t slash = path.find_last_of("/\\");
  directory = slash == std::string::npos ? "" : path.substr(0, slash + 1);
  std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
  size_t dot = base.rfind('.');
  stemName = dot == std::string::npos || dot == 0 ? base : base.substr(0, dot);
  split = splitSize;
  firstLimit = splitSize > 0 ? splitSize - reserve : 0;
  File installer = {path, temporaryName(path), 0, 0};
  current = QUtils::openFile(installer.temporary.c_str(), "wb");
  if (!current) {
    *error = "cannot create the output " + path + " (as " + installer.temporary + ")";
    return false;
  }
  std::setvbuf(current, nullptr, _IOFBF, kBufferSize);
  files.push_back(installer);
  return true;
}

bool PackageOutput::closeCurrent() {
  if (!current) return true;
  bool ok = std::fclose(current) == 0;
  current = nullptr;
  return ok;
}

bool PackageOutput::startNextFile() {
  if (!closeCurrent()) return false;
  if (static_cast<int>(files.size()) > kMaxPackageFiles) return false;
  std::string path = directory + packageFileName(stemName, static_cast<int>(files.size()));
  File next = {path, temporaryName(path), count, 0};
  current = QUtils::openFile(next.temporary.c_str(), "wb");
  if (!current) return false;
  std::setvbuf(current, nullptr, _IOFBF, kBufferSize);
  files.push_back(next);
  return true;
}

bool PackageOutput::write(const void* data, size_t size) {
  const char* from = static_cast<const char*>(data);
  while (size > 0) {
    if (!current) return false;
    File& file = files.back();
    size_t piece = size;
    if (split > 0) {
      const int64_t limit = files.size() == 1 ? firstLimit : split;
      if (file.length >= limit) {
        if (!startNextFile()) return false;
        continue;
      }
      piece = static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(size), limit - file.length));
    }
    if (std::fwrite(from, 1, piece, current) != piece) return false;
    file.length += static_cast<int64_t>(piece);
    count += static_cast<int64_t>(piece);
    from += piece;
    size -= piece;
  }
  return true;
}

bool PackageOutput::writeAt(int64_t position, const std::string& data) {
  size_t done = 0;
  while (done < data.size()) {
    const int64_t at = position + static_cast<int64_t>(done);
    size_t index = 0;
    while (index + 1 < files.size() && at >= files[index + 1].start) index++;
    File& file = files[index];
    if (at < file.start || at >= file.start + file.length) return false;
    size_t piece = static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(data.size() - done),
                                                         file.start + file.length - at));
    const bool open = index + 1 == files.size() && current;
    FILE* stream = open ? current : QUtils::openFile(file.temporary.c_str(), "r+b");
    if (!stream) return false;
    bool ok = fseeko(stream, static_cast<off_t>(at - file.start), SEEK_SET) == 0 &&
              std::fwrite(data.data() + done, 1, piece, stream) == piece;
    if (open)
      ok = fseeko(stream, 0, SEEK_END) == 0 && ok;
    else
      ok = std::fclose(stream) == 0 && ok;
    if (!ok) return false;
    done += piece;
  }
  return true;
}

bool PackageOutput::finish(std::vector<PackageFilePlace>* places, std::string* error) {
  if (finished) {
    *places = digests;
    return true;
  }
  places->clear();
  if (!closeCurrent()) {
    *error = "cannot write " + files.back().temporary;
    return false;
  }
  std::vector<unsigned char> buffer(kBufferSize);
  for (size_t i = 1; i < files.size(); i++) {
    FILE* file = QUtils::openFile(files[i].temporary.c_str(), "rb");
    if (!file) {
      *error = "cannot read back " + files[i].temporary;
      return false;
    }
    SHA256 sha;
    int64_t length = 0;
    size_t got;
    while ((got = std::fread(buffer.data(), 1, buffer.size(), file)) > 0) {
      sha.update(buffer.data(), got);
      length += static_cast<int64_t>(got);
    }
    bool ok = !std::ferror(file) && length == files[i].length;
    std::fclose(file);
    if (!ok) {
      *error = "cannot read back " + files[i].temporary;
      return false;
    }
    PackageFilePlace place;
    place.size = length;
    sha.finish(place.digest);
    places->push_back(place);
  }
  finished = true;
  digests = *places;
  return true;
}

bool PackageOutput::commit(std::string* error) {
  closeCurrent();
  // The package files first: an installer in place without them would be
  // one that can't run.
  for (size_t i = files.size(); i-- > 0;) {
    if (QUtils::renameFile(files[i].temporary.c_str(), files[i].path.c_str()) != 0) {
      *error = "cannot move " + files[i].temporary + " to " + files[i].path;
      for (size_t j = i + 1; j < files.size(); j++) QUtils::deleteFile(files[j].path.c_str());
      return false;
    }
  }
  committed = true;
  return true;
}

void PackageOutput::discard() {
  closeCurrent();
  for (const File& file : files) QUtils::deleteFile(file.temporary.c_str());
  files.clear();
}

int64_t parseSize(const char* text) {
  char* end = nullptr;
  if (!text || !std::isdigit(static_cast<unsigned char>(*text))) return -1;
  unsigned long long value = std::strtoull(text, &end, 10);
  int shift = 0;
  switch (std::toupper(static_cast<unsigned char>(*end))) {
    case 0:
      break;
    case 'K':
      shift = 10;
      break;
    case 'M':
      shift = 20;
      break;
    case 'G':
      shift = 30;
      break;
    default:
      return -1;
  }
  if (*end && end[1] && !(std::toupper(static_cast<unsigned char>(end[1])) == 'B' && !end[2])) return -1;
  if (value > (1ull << 50) >> shift) return -1;
  return static_cast<int64_t>(value << shift);
}
