// The directories that the file stage writes into, held open: the one of
// the current entry and every one above it up to the root. A package's
// entries come folder by folder, so an entry mostly finds its directory
// open already, and another one is reached from the nearest open directory
// above it, each missing level made and opened in one step, without
// walking its whole path again. A level that isn't a plain directory (a
// link, "..", a file) is opened by its whole path instead, which follows
// or refuses links as every name of the file layer does; a relative path
// goes that way whole (createPath, then an open). One thread uses a chain.
#ifndef QLUX_ENGINE_DIRECTORY_CHAIN_H_
#define QLUX_ENGINE_DIRECTORY_CHAIN_H_

#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "foundation/file_stream.h"

class DirectoryChain {
 public:
  // Makes what is missing of `directory` (with or without a separator at
  // its end) and gives it open in `outOpen`. `outCreated` counts the levels
  // made, also after a failure. 0, or -1 if a level couldn't be made.
  // `outOpen` may be null with 0: the directory stands but didn't open, and
  // the caller reaches its files by their whole paths.
  int enter(const char* directory, int* outCreated, QUtils::PDirectory** outOpen);

 private:
  // Opens the levels of `key` (the directory without its closing
  // separators) below the deepest open one, making what is missing.
  int descend(const std::string& key, int* outCreated);
  // The way for a relative path.
  int enterByPath(const std::string& key, int* outCreated, QUtils::PDirectory** outOpen);

  // From a root on, each directory lies below the one before it.
  std::vector<std::unique_ptr<QUtils::PDirectory>> chain;
  // Relative directories that enterByPath made or found standing, so that
  // it doesn't ask the system about every level again.
  std::unordered_set<std::string> standing;
};

#endif  // QLUX_ENGINE_DIRECTORY_CHAIN_H_
