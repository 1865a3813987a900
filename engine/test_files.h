// File helpers shared by the engine's unit tests. Every test binary runs in a
// fresh scratch directory of its own (tests/unit_main.cpp), so paths made by
// here() stay inside it.
#ifndef QLUX_ENGINE_TEST_FILES_H_
#define QLUX_ENGINE_TEST_FILES_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "foundation/files.h"
#include "foundation/text.h"
#include "package/md5.h"
#include "package/test_writer.h"

#ifdef _WIN32
#include <direct.h>
#else
#include <unistd.h>
#endif

// A full path, with '/' separators, in the directory the test binary runs in.
inline std::string here(const std::string& name) {
  char directory[QUtils::kMaxPath];
#ifdef _WIN32
  EXPECT_NE(nullptr, _getcwd(directory, sizeof directory));
#else
  EXPECT_NE(nullptr, getcwd(directory, sizeof directory));
#endif
  std::string path = std::string(directory) + "/" + name;
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

inline void writeFile(const std::string& path, const std::string& data) {
  FILE* file = QUtils::openFile(path.c_str(), "wb");
  ASSERT_NE(nullptr, file);
  std::fwrite(data.data(), 1, data.size(), file);
  std::fclose(file);
}

// The file's bytes, or "<missing>".
inline std::string readFile(const std::string& path) {
  FILE* file = QUtils::openFile(path.c_str(), "rb");
  if (!file) return "<missing>";
  std::string data;
  char block[8192];
  size_t n;
  while ((n = std::fread(block, 1, sizeof block, file)) > 0) data.append(block, n);
  std::fclose(file);
  return data;
}

// A package file under `key` with its true digest, so that an identical file
// on disk is recognised.
inline testwriter::File packed(const std::string& key, const std::string& data) {
  unsigned char digest[kMD5DigestSize];
  MD5::digest(data.data(), data.size(), digest);
  return testwriter::File{key, key, data, 0, std::string(reinterpret_cast<char*>(digest), kMD5DigestSize)};
}

#endif  // QLUX_ENGINE_TEST_FILES_H_
