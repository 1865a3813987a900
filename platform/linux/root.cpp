// The body of the Linux root (root.h): $QLUX_ROOT, or "/", and the
// machine-wide paths below it.
#include "platform/linux/root.h"

#include <cstdlib>
#include <string>

namespace Host {

QUtils::CharString rootPath(const char* relative) {
  const char* root = std::getenv("QLUX_ROOT");
  std::string path = (root && *root) ? root : "/";
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  while (relative && *relative == '/') relative++;
  if (relative && *relative) {
    if (path.back() != '/') path += '/';
    path += relative;
  }
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return QUtils::CharString(path.c_str());
}

}  // namespace Host
