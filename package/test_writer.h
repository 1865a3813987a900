// Test support: package bytes written straight from the documented layout,
// with zlib called directly and no code of the package unit involved, so the
// reader's tests don't lean on the writer under test.
#ifndef QLUX_PACKAGE_TEST_WRITER_H_
#define QLUX_PACKAGE_TEST_WRITER_H_

#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace testwriter {

inline void put32(std::string& out, uint32_t value) {
  for (int i = 0; i < 4; i++) out += static_cast<char>((value >> (8 * i)) & 0xff);
}

inline void set32(std::string& out, size_t at, uint32_t value) {
  for (int i = 0; i < 4; i++) out[at + i] = static_cast<char>((value >> (8 * i)) & 0xff);
}

inline std::string deflate(const std::string& data) {
  uLongf length = compressBound(static_cast<uLong>(data.size()));
  std::string out(length, '\0');
  compress2(reinterpret_cast<Bytef*>(&out[0]), &length, reinterpret_cast<const Bytef*>(data.data()),
            static_cast<uLong>(data.size()), 6);
  out.resize(length);
  return out;
}

struct File {
  std::string key;
  std::string name;
  std::string data;
  uint32_t flags;
  std::string digest;  // 16 bytes, whatever the test wants recorded
};

// A text in a zero-filled field of `size` bytes, cut to leave the NUL.
inline std::string field(const std::string& text, size_t size) {
  std::string out = text.substr(0, size - 1);
  return out + std::string(size - out.size(), '\0');
}

// A 608-byte record header.
inline std::string recordHeader(uint32_t magic, uint32_t fileSize, uint32_t storedSize, uint32_t flags,
                                const std::string& digest, const std::string& name, const std::string& key) {
  std::string out;
  put32(out, magic);
  put32(out, fileSize);
  put32(out, storedSize);
  put32(out, flags);
  return out + (digest + std::string(16, '\0')).substr(0, 16) + field(name, 300) + field(key, 276);
}

// The record stream with its end record; `deflated` stores each file's data
// as its own zlib stream, as a package that isn't solid does.
inline std::string records(const std::vector<File>& files, bool deflated) {
  std::string out;
  for (const File& f : files) {
    std::string stored = deflated ? deflate(f.data) : f.data;
    out += recordHeader(0x63270010u, static_cast<uint32_t>(f.data.size()), static_cast<uint32_t>(stored.size()),
                        f.flags, f.digest, f.name, f.key);
    out += stored;
  }
  return out + recordHeader(0x63270003u, 0, 0, 0, "", "", "");
}

inline std::string packageHeader(const std::vector<File>& files) {
  uint32_t sum = 0;
  for (const File& f : files) sum += static_cast<uint32_t>(f.data.size());
  std::string out;
  put32(out, 0x63276327u);
  put32(out, 0x75092612u);
  put32(out, 0x78011813u);
  put32(out, sum);
  put32(out, sum);
  put32(out, static_cast<uint32_t>(files.size()));
  return out + std::string(40, '\0');
}

struct Stripe {
  int32_t unpackedOffset, unpackedSize, packedOffset, packedSize;
};

// Head and stripe table of a solid block.
inline std::string solidHead(uint32_t method, uint32_t version, uint32_t count, const std::vector<Stripe>& table) {
  std::string out("SolidHD", 8);
  put32(out, method);
  put32(out, version);
  put32(out, count);
  for (const Stripe& s : table) {
    put32(out, static_cast<uint32_t>(s.unpackedOffset));
    put32(out, static_cast<uint32_t>(s.unpackedSize));
    put32(out, static_cast<uint32_t>(s.packedOffset));
    put32(out, static_cast<uint32_t>(s.packedSize));
  }
  return out;
}

// A valid solid block of `blob` in `n` stripes of uneven lengths (stripe i
// gets a share that grows with i). The table lists the stripes in
// `tableOrder` (blob order when empty); the streams stand in reverse blob
// order when `reversed`, with `gap` filler bytes in front of each.
inline std::string solidBlock(const std::string& blob, int n, std::vector<int> tableOrder = {}, int gap = 0,
                              bool reversed = false) {
  if (tableOrder.empty()) {
    for (int i = 0; i < n; i++) tableOrder.push_back(i);
  }
  std::vector<Stripe> stripes(n);
  std::vector<std::string> streams(n);
  int64_t weights = static_cast<int64_t>(n) * (n + 1) / 2, done = 0, start = 0;
  for (int i = 0; i < n; i++) {
    done += i + 1;
    int64_t end = static_cast<int64_t>(blob.size()) * done / weights;
    stripes[i].unpackedOffset = static_cast<int32_t>(start);
    stripes[i].unpackedSize = static_cast<int32_t>(end - start);
    streams[i] = deflate(blob.substr(start, end - start));
    start = end;
  }
  std::string body;
  for (int k = 0; k < n; k++) {
    int i = reversed ? n - 1 - k : k;
    body += std::string(gap, '\x5a');
    stripes[i].packedOffset = 20 + 16 * n + static_cast<int32_t>(body.size());
    stripes[i].packedSize = static_cast<int32_t>(streams[i].size());
    body += streams[i];
  }
  std::vector<Stripe> table;
  for (int i : tableOrder) table.push_back(stripes[i]);
  return solidHead(100, 0x20121111u, static_cast<uint32_t>(n), table) + body;
}

inline std::string pseudoRandom(size_t size, uint32_t seed) {
  std::string out(size, '\0');
  for (size_t i = 0; i < size; i++) {
    seed = seed * 1103515245u + 12345u;
    out[i] = static_cast<char>(seed >> 16);
  }
  return out;
}

inline bool writeFile(const std::string& path, const std::string& data) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  bool ok = std::fwrite(data.data(), 1, data.size(), f) == data.size();
  return std::fclose(f) == 0 && ok;
}

inline std::string readFile(const std::string& path) {
  std::string out;
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return out;
  char block[65536];
  size_t got;
  while ((got = std::fread(block, 1, sizeof(block), f)) > 0) out.append(block, got);
  std::fclose(f);
  return out;
}

}  // namespace testwriter

#endif  // QLUX_PACKAGE_TEST_WRITER_H_
