// Package throughput benchmark: packs, verifies and loads a generated payload
// and prints MB/s and peak memory for each step, beside gzip -6 and gunzip
// over the same bytes as the reference. Not a test: it asserts nothing.
//
//   qlux-bench-package --pack PATH-TO-qlux-pack --stub PATH-TO-qlux-setup
//                      [--megabytes 256] [--files 3000] [--dir DIR]
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "package/checksum.h"
#include "package/package.h"

namespace {

struct Measure {
  double seconds;
  long peakKilobytes;
  int status;
};

// Runs `work` in a child process and measures its wall time and peak RSS.
template <typename Work>
Measure inChild(Work work) {
  auto start = std::chrono::steady_clock::now();
  pid_t pid = fork();
  if (pid == 0) _exit(work());
  int status = 0;
  struct rusage usage;
  wait4(pid, &status, 0, &usage);
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return {seconds, usage.ru_maxrss, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

int runCommand(const std::vector<std::string>& args, const char* stdoutPath) {
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  if (stdoutPath) {
    int fd = open(stdoutPath, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(fd, 1);
    close(fd);
  }
  execvp(argv[0], argv.data());
  _exit(127);
}

void writeFile(const std::string& path, const std::vector<unsigned char>& data) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f || std::fwrite(data.data(), 1, data.size(), f) != data.size()) {
    std::perror(path.c_str());
    std::exit(1);
  }
  std::fclose(f);
}

// Text that compresses like source code and documentation: words from a
// small vocabulary in lines of varying length.
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

double mbPerSecond(double bytes, double seconds) { return seconds > 0 ? bytes / 1e6 / seconds : 0; }

}  // namespace

int main(int argc, char** argv) {
  std::string pack, stub, dir;
  long megabytes = 256, fileCount = 3000;
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string option = argv[i];
    if (option == "--pack") pack = argv[i + 1];
    else if (option == "--stub") stub = argv[i + 1];
    else if (option == "--megabytes") megabytes = std::atol(argv[i + 1]);
    else if (option == "--files") fileCount = std::atol(argv[i + 1]);
    else if (option == "--dir") dir = argv[i + 1];
  }
  if (pack.empty() || stub.empty() || fileCount < 1) {
    std::fprintf(stderr, "usage: %s --pack QLUX_PACK --stub QLUX_SETUP [--megabytes N] [--files N] [--dir DIR]\n",
                 argv[0]);
    return 2;
  }
  if (dir.empty()) {
    const char* tmp = std::getenv("TMPDIR");
    std::string base = std::string(tmp && *tmp ? tmp : "/tmp") + "/qlux-bench.XXXXXX";
    std::vector<char> buffer(base.begin(), base.end());
    buffer.push_back(0);
    if (!mkdtemp(buffer.data())) return 1;
    dir = buffer.data();
  }
  std::string source = dir + "/payload";
  mkdir(source.c_str(), 0755);

  // The payload: half compressible text, half random bytes, file sizes
  // spread around the mean; all bytes are also concatenated for gzip.
  std::mt19937 random(20261122);
  const size_t total = static_cast<size_t>(megabytes) << 20;
  const size_t mean = total / static_cast<size_t>(fileCount);
  std::string allBytes = dir + "/all.bin";
  FILE* all = std::fopen(allBytes.c_str(), "wb");
  std::string xml =
      "<HalvoWorksInstallation>\n <ProductDesc><Fullname>Bench</Fullname></ProductDesc>\n"
      " <Installation>\n  <FileSet Name=\"All\">\n";
  size_t written = 0;
  for (long n = 0; n < fileCount; n++) {
    size_t size = n + 1 == fileCount ? (total > written ? total - written : 0) : mean / 2 + random() % (mean + 1);
    if (written + size > total) size = total - written;
    std::vector<unsigned char> data(size);
    if (n % 2 == 0) {
      fillText(&data, &random);
    } else {
      for (size_t i = 0; i < size; i += 4) {
        uint32_t r = random();
        std::memcpy(&data[i], &r, size - i < 4 ? size - i : 4);
      }
    }
    char name[64];
    std::snprintf(name, sizeof name, "f%05ld.%s", n, n % 2 == 0 ? "txt" : "bin");
    writeFile(source + "/" + name, data);
    std::fwrite(data.data(), 1, data.size(), all);
    xml += std::string("   <FN Dest=\"[ROOT]\">") + name + "</FN>\n";
    written += size;
  }
  std::fclose(all);
  xml += "  </FileSet>\n </Installation>\n</HalvoWorksInstallation>\n";
  std::string templatePath = dir + "/install.xml";
  writeFile(templatePath, std::vector<unsigned char>(xml.begin(), xml.end()));
  const double bytes = static_cast<double>(written);
  std::printf("payload: %.1f MB in %ld files (half text, half random)\n", bytes / 1e6, fileCount);

  std::string installer = dir + "/setup.bin";
  Measure packed = inChild([&] {
    return runCommand({pack, "--stub", stub, "--template", templatePath, "--source", source, "-o", installer},
                      nullptr);
  });
  struct stat info;
  stat(installer.c_str(), &info);
  Measure verified = inChild([&] { return verifyPackageChecksum(installer.c_str()) ? 0 : 1; });
  // The package starts where the stub ends.
  struct stat stubInfo;
  stat(stub.c_str(), &stubInfo);
  Measure loaded = inChild([&] {
    Package package;
    return package.openPackage(installer.c_str(), static_cast<uint32_t>(stubInfo.st_size), 0) == 0 ? 0 : 1;
  });
  std::string gz = dir + "/all.bin.gz";
  Measure gzipped = inChild([&] { return runCommand({"gzip", "-6", "-c", allBytes}, gz.c_str()); });
  Measure gunzipped = inChild([&] { return runCommand({"gunzip", "-c", gz}, "/dev/null"); });
  struct stat gzInfo;
  stat(gz.c_str(), &gzInfo);

  std::printf("%-22s %9s %10s %12s %s\n", "step", "seconds", "MB/s", "peak RSS MB", "status");
  auto row = [&](const char* what, const Measure& m) {
    std::printf("%-22s %9.2f %10.1f %12.1f %d\n", what, m.seconds, mbPerSecond(bytes, m.seconds),
                m.peakKilobytes / 1024.0, m.status);
  };
  row("qlux-pack", packed);
  row("verify checksum", verified);
  row("load package", loaded);
  row("gzip -6 (reference)", gzipped);
  row("gunzip (reference)", gunzipped);
  std::printf("installer size: %.1f MB (%.1f%% of payload); gzip -6 size: %.1f MB\n", info.st_size / 1e6,
              100.0 * info.st_size / bytes, gzInfo.st_size / 1e6);
  // Remove only what this run made.
  std::string cleanup = "rm -rf -- '" + source + "' '" + allBytes + "' '" + gz + "' '" + installer + "' '" +
                        templatePath + "' && rmdir -- '" + dir + "'";
  if (std::system(cleanup.c_str()) != 0) return 1;
  return packed.status || verified.status || loaded.status;
}
