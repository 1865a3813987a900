// Every machine-wide place on Linux lives under one root directory: the
// environment variable QLUX_ROOT, or "/" when it is unset. Tests set it to a
// fresh directory so that nothing of the machine is touched.
#ifndef QLUX_PLATFORM_LINUX_ROOT_H_
#define QLUX_PLATFORM_LINUX_ROOT_H_

#include "foundation/charstring.h"

namespace Host {

// The root joined with `relative` ("opt", "etc/environment", ...), with one
// '/' between them and none at the end.
QUtils::CharString rootPath(const char* relative);

}  // namespace Host

#endif  // QLUX_PLATFORM_LINUX_ROOT_H_
