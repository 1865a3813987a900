// The chain of open directories that the file stage writes into: the short
// way down from an open directory, and the long way by the whole path.
#include "engine/directory_chain.h"

#include "foundation/files.h"
#include "foundation/text.h"

namespace {

// The path without the separators at its end (a root keeps its own).
std::string withoutClosingSeparators(const char* path) {
  std::string key = path ? path : "";
  while (key.size() > 1 && QUtils::isSeparator(key.back()) && !(key.size() == 3 && key[1] == ':'))
    key.pop_back();
  return key;
}

bool sameCharacter(char a, char b) { return a == b || (QUtils::isSeparator(a) && QUtils::isSeparator(b)); }

// Whether `key` is `directory` itself (`outBelow` false) or lies below it
// (true), any separator matching any other. Names are compared as written:
// two spellings of one directory only cost the long way.
bool isWithin(const std::string& key, const std::string& directory, bool* outBelow) {
  if (key.size() < directory.size()) return false;
  for (size_t i = 0; i < directory.size(); i++) {
    if (!sameCharacter(key[i], directory[i])) return false;
  }
  if (key.size() == directory.size()) {
    *outBelow = false;
    return true;
  }
  *outBelow = true;
  return QUtils::isSeparator(directory.back()) || QUtils::isSeparator(key[directory.size()]);
}

// The names of `text` between its separators, empty ones left out.
std::vector<std::string> splitNames(const std::string& text) {
  std::vector<std::string> names;
  std::string name;
  for (char c : text) {
    if (QUtils::isSeparator(c)) {
      if (!name.empty()) names.push_back(name);
      name.clear();
    } else {
      name += c;
    }
  }
  if (!name.empty()) names.push_back(name);
  return names;
}

// The root that an absolute `key` starts from: "/" on POSIX, a drive's
// "C:\" on Windows; empty for a relative path or a network share, which go
// by the whole path.
std::string rootOf(const std::string& key) {
  if (QUtils::kPathSeparator == '/') return !key.empty() && key[0] == '/' ? "/" : "";
  if (key.size() >= 3 && key[1] == ':' && QUtils::isSeparator(key[2])) return key.substr(0, 3);
  return "";
}

}  // namespace

int DirectoryChain::enter(const char* directory, int* outCreated, QUtils::PDirectory** outOpen) {
  *outCreated = 0;
  *outOpen = nullptr;
  std::string key = withoutClosingSeparators(directory);
  bool below = false;
  while (!chain.empty() && !isWithin(key, chain.back()->getPath(), &below)) chain.pop_back();
  if (chain.empty()) {
    std::string root = rootOf(key);
    if (root.empty()) return enterByPath(key, outCreated, outOpen);
    std::unique_ptr<QUtils::PDirectory> opened(new QUtils::PDirectory);
    if (opened->open(root.c_str()) != 0) return -1;
    chain.push_back(std::move(opened));
    // Ignoring the result on purpose: an absolute path always lies within
    // its root; the call tells whether it lies below it.
    (void)isWithin(key, chain.back()->getPath(), &below);
  }
  if (below && descend(key, outCreated) != 0) return -1;
  *outOpen = chain.back().get();
  return 0;
}

int DirectoryChain::descend(const std::string& key, int* outCreated) {
  std::string path = chain.back()->getPath();
  for (const std::string& name : splitNames(key.substr(path.size()))) {
    if (!QUtils::isSeparator(path.back())) path += QUtils::kPathSeparator;
    path += name;
    std::unique_ptr<QUtils::PDirectory> next(new QUtils::PDirectory);
    bool made = false;
    // A level that doesn't open from its parent (a link, "..", something
    // that isn't a directory, or one that couldn't be made) is judged by
    // the file layer's rules for its whole path; what stands there and
    // isn't a directory fails the entry.
    if (next->openBelow(*chain.back(), name.c_str(), &made) != 0 && next->open(path.c_str()) != 0) return -1;
    if (made) (*outCreated)++;
    chain.push_back(std::move(next));
  }
  return 0;
}

int DirectoryChain::enterByPath(const std::string& key, int* outCreated, QUtils::PDirectory** outOpen) {
  *outCreated = 0;
  *outOpen = nullptr;
  if (standing.count(key) == 0) {
    // createPath makes the levels that a separator closes.
    std::string path = key;
    path += QUtils::kPathSeparator;
    if (QUtils::createPath(path.c_str(), outCreated) != 0) return -1;
    standing.insert(key);
  }
  // Held alone: a relative path is no part of the chain below a root.
  std::unique_ptr<QUtils::PDirectory> opened(new QUtils::PDirectory);
  if (opened->open(key.c_str()) != 0) return 0;
  chain.clear();
  chain.push_back(std::move(opened));
  *outOpen = chain.back().get();
  return 0;
}
