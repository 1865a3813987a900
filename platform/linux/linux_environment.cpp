// The machine-wide environment of LinuxInstaller: the variables of
// $QLUX_ROOT/etc/environment.
#include "platform/linux/environment_file.h"
#include "platform/linux/linux_installer.h"
#include "platform/linux/root.h"

#include <cstring>

namespace {

// The search path that a login or a service gets when /etc/environment sets
// none (the default of Debian's login and of systemd).
const char kDefaultPath[] = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

EnvironmentFile machineEnvironment() { return EnvironmentFile(Host::rootPath("etc/environment").getText()); }

}  // namespace

int LinuxInstaller::getEnvironmentValue(const char* name, char* out, int size) {
  return machineEnvironment().get(name, out, size);
}

bool LinuxInstaller::setEnvironmentValue(const char* name, const char* value) {
  return machineEnvironment().set(name, value);
}

bool LinuxInstaller::deleteEnvironmentValue(const char* name) { return machineEnvironment().remove(name); }

std::string LinuxInstaller::getUndefinedListValue(const char* name) {
  return name && std::strcmp(name, "PATH") == 0 ? kDefaultPath : "";
}
