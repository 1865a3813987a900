// Test support for the console front end: a scratch directory of the
// test's own, a terminal made of two files (the answers typed, and what was
// printed), and an engine on a wizard given as template text.
#ifndef QLUX_FRONTENDS_CONSOLE_CONSOLE_TEST_SUPPORT_H_
#define QLUX_FRONTENDS_CONSOLE_CONSOLE_TEST_SUPPORT_H_

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#ifdef _WIN32
#include <direct.h>
#include <io.h>
#else
#include <unistd.h>
#endif

#include "engine/test_support.h"
#include "foundation/files.h"
#include "foundation/text.h"

// The beginning of a whole path on either system: a folder that a test
// types must be one ("/srv/demo" alone has no drive on Windows).
#ifdef _WIN32
#define QLUX_TEST_ROOT "C:"
#else
#define QLUX_TEST_ROOT ""
#endif

// A path with the system's separators, as a cleaned path comes back.
inline std::string nativePath(std::string path) {
  for (char& c : path)
    if (c == '/') c = QUtils::kPathSeparator;
  return path;
}

// A directory made for one test below the working directory (which the test
// binary made for this run). At the end the files named through path() are
// removed, then the directory; nothing else is ever deleted.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    char here[QUtils::kMaxPath];
#ifdef _WIN32
    if (!_getcwd(here, sizeof here)) return;
    std::string pattern = std::string(here) + "\\console-XXXXXX";
    if (_mktemp_s(&pattern[0], pattern.size() + 1) != 0 || _mkdir(pattern.c_str()) != 0) return;
#else
    if (!getcwd(here, sizeof here)) return;
    std::string pattern = std::string(here) + "/console-XXXXXX";
    if (!mkdtemp(&pattern[0])) return;
#endif
    directory = pattern;
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  ~ScratchDirectory() {
    if (directory.empty()) return;
    for (const std::string& file : files) std::remove(file.c_str());
#ifdef _WIN32
    _rmdir(directory.c_str());
#else
    rmdir(directory.c_str());
#endif
  }
  bool ok() const { return !directory.empty(); }
  std::string path(const std::string& name) {
    files.push_back(directory + QUtils::kPathSeparator + name);
    return files.back();
  }
  std::string write(const std::string& name, const std::string& content) {
    std::string full = path(name);
    FILE* file = QUtils::openFile(full.c_str(), "wb");
    if (file) {
      std::fwrite(content.data(), 1, content.size(), file);
      std::fclose(file);
    }
    return full;
  }
  static std::string read(const std::string& path) {
    FILE* file = QUtils::openFile(path.c_str(), "rb");
    if (!file) return "<missing>";
    std::string content;
    int c;
    while ((c = std::fgetc(file)) != EOF) content += static_cast<char>(c);
    std::fclose(file);
    return content;
  }

  std::string directory;

 private:
  std::vector<std::string> files;
};

// The answers a person types, and what the program prints, as two files.
class FakeTerminal {
 public:
  explicit FakeTerminal(const std::string& answers) {
    in = QUtils::openFile(scratch.write("answers.txt", answers).c_str(), "rb");
    outPath = scratch.path("printed.txt");
    out = QUtils::openFile(outPath.c_str(), "wb");
  }
  ~FakeTerminal() {
    if (in) std::fclose(in);
    if (out) std::fclose(out);
  }
  std::string printed() {
    std::fflush(out);
    return ScratchDirectory::read(outPath);
  }
  // How often `text` was printed.
  int count(const std::string& text) {
    std::string all = printed();
    int n = 0;
    for (size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) n++;
    return n;
  }

  ScratchDirectory scratch;
  FILE* in = nullptr;
  FILE* out = nullptr;
  std::string outPath;
};

// An engine on the dialogs and DefValues entries given, with its values
// read, as a run has it when the front end's walk begins. Packed files come
// from `files`; `appRunning` says whether every program a page asks about
// runs.
class WizardEngine : public TestInstaller {
 public:
  // `product` adds elements to ProductDesc.
  WizardEngine(const std::string& dialogs, const std::string& values, const std::string& product = "") {
    std::string text = "<HalvoWorksInstallation><ProductDesc><Fullname>Demo</Fullname>" + product +
                       "</ProductDesc><Dialogs>" + dialogs +
                       "</Dialogs><Installation><InstallerControlVariables><DlgCondition>DLG_CONDITION</DlgCondition>"
                       "</InstallerControlVariables><DefValues>" +
                       values + "</DefValues></Installation></HalvoWorksInstallation>";
    loadTemplate(text.c_str());
    readControlVariables();
    readDialogs(false);
    readExcludes();
    readDefaults(nullptr);
    currentDialog = 0;
  }
  bool isAppRunning(const char*, const char*) override { return appRunning; }
  QUtils::RefArray<unsigned char> getFileData(const char* key, uint32_t* outSize) override {
    auto found = files.find(key);
    if (found == files.end()) return QUtils::RefArray<unsigned char>();
    QUtils::RefArray<unsigned char> data(static_cast<uint32_t>(found->second.size()));
    std::memcpy(data.get(), found->second.data(), found->second.size());
    *outSize = static_cast<uint32_t>(found->second.size());
    return data;
  }

  std::map<std::string, std::string> files;
  bool appRunning = false;
};

#endif  // QLUX_FRONTENDS_CONSOLE_CONSOLE_TEST_SUPPORT_H_
