// FuzzScratch: a mkdtemp directory per process, cleaned by name at exit.
#include "fuzz/fuzz_scratch.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>

namespace {

std::string* scratchDir = nullptr;
std::set<std::string>* scratchNames = nullptr;

void removeScratch() {
  if (!scratchDir || !scratchNames) return;
  for (const std::string& name : *scratchNames) unlink((*scratchDir + "/" + name).c_str());
  rmdir(scratchDir->c_str());
}

bool plainName(const char* name) {
  if (!name || !name[0] || std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) return false;
  for (const char* p = name; *p; p++) {
    char c = *p;
    bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
              c == '_' || c == '-';
    if (!ok) return false;
  }
  return true;
}

}  // namespace

const std::string& fuzzScratchDir() {
  if (!scratchDir) {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && base[0] == '/' ? base : "/tmp") + "/qlux-fuzz.XXXXXX";
    char* made = mkdtemp(&pattern[0]);
    if (!made || made[0] != '/') {
      std::fprintf(stderr, "fuzz: can't make a scratch directory\n");
      std::abort();
    }
    scratchDir = new std::string(made);
    scratchNames = new std::set<std::string>();
    std::atexit(removeScratch);
  }
  return *scratchDir;
}

std::string fuzzScratchPath(const char* name) {
  if (!plainName(name)) {
    std::fprintf(stderr, "fuzz: refusing scratch name \"%s\"\n", name ? name : "(null)");
    std::abort();
  }
  const std::string& dir = fuzzScratchDir();
  scratchNames->insert(name);
  return dir + "/" + name;
}

std::string fuzzScratchWrite(const char* name, const uint8_t* data, size_t size) {
  std::string path = fuzzScratchPath(name);
  FILE* file = std::fopen(path.c_str(), "wb");
  bool ok = file && (size == 0 || std::fwrite(data, 1, size, file) == size);
  if (file && std::fclose(file) != 0) ok = false;
  if (!ok) {
    std::fprintf(stderr, "fuzz: can't write %s\n", path.c_str());
    std::abort();
  }
  return path;
}

void fuzzScratchRemove(const char* name) { unlink(fuzzScratchPath(name).c_str()); }
