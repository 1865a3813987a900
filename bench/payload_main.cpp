// qlux-bench-payload: writes a generated payload for the benchmarks.
//
//   qlux-bench-payload DIR MEGABYTES FILES TEXT-PERCENT
//
// FILES files of MEGABYTES in all, spread over sixteen folders of DIR, with
// sizes scattered around their mean. TEXT-PERCENT of the files are text
// that compresses like source code and documentation; the others are
// random bytes, which don't compress at all. The same arguments always give
// the same bytes.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

// Words from a small vocabulary in lines of varying length.
void fillText(std::vector<unsigned char>* data, std::mt19937* random) {
  static const char* const kWords[] = {"install", "the", "file", "directory", "value", "return", "if", "for",
                                       "const", "char", "int", "size", "buffer", "product", "version", "=",
                                       "{", "}", ";", "path", "error", "log", "window", "button"};
  size_t i = 0;
  while (i < data->size()) {
    const char* w = kWords[(*random)() % (sizeof kWords / sizeof kWords[0])];
    for (; *w && i < data->size(); w++) (*data)[i++] = static_cast<unsigned char>(*w);
    if (i < data->size()) (*data)[i++] = ((*random)() % 9 == 0) ? '\n' : ' ';
  }
}

void fillRandom(std::vector<unsigned char>* data, std::mt19937* random) {
  for (size_t i = 0; i < data->size(); i += 4) {
    uint32_t r = (*random)();
    std::memcpy(&(*data)[i], &r, data->size() - i < 4 ? data->size() - i : 4);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: %s DIR MEGABYTES FILES TEXT-PERCENT\n", argv[0]);
    return 2;
  }
  const std::string dir = argv[1];
  const long long total = std::atoll(argv[2]) << 20;
  const long files = std::atol(argv[3]);
  const int textPercent = std::atoi(argv[4]);
  if (total <= 0 || files < 1 || textPercent < 0 || textPercent > 100) return 2;
  const int kFolders = 16;
  mkdir(dir.c_str(), 0755);
  for (int f = 0; f < kFolders; f++) mkdir((dir + "/d" + std::to_string(f)).c_str(), 0755);

  std::mt19937 random(20261122);
  const long long mean = total / files;
  long long written = 0;
  std::vector<unsigned char> data;
  for (long n = 0; n < files; n++) {
    long long size = n + 1 == files ? total - written : mean / 2 + static_cast<long long>(random() % (mean + 1));
    if (size > total - written) size = total - written;
    if (size < 0) size = 0;
    data.resize(static_cast<size_t>(size));
    // Spread evenly: file n is text when the running share of text files
    // steps up at it.
    bool text = n * textPercent / 100 != (n + 1) * textPercent / 100;
    if (text) {
      fillText(&data, &random);
    } else {
      fillRandom(&data, &random);
    }
    char name[64];
    std::snprintf(name, sizeof name, "/d%ld/f%05ld.%s", n % kFolders, n, text ? "txt" : "bin");
    std::string path = dir + name;
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file || std::fwrite(data.data(), 1, data.size(), file) != data.size() || std::fclose(file) != 0) {
      std::perror(path.c_str());
      return 1;
    }
    written += size;
  }
  return 0;
}
