// Shortcuts and the firewall on Linux.
#include <errno.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "foundation/files.h"
#include "foundation/text.h"
#include "platform/linux/desktop_entry.h"
#include "platform/linux/firewall_linux.h"
#include "platform/linux/linux_installer.h"
#include "platform/linux/run_command.h"

namespace {

const int kCommandSize = 4096;

// Writes `text` as the file `path`, mode 0755. A symbolic link standing at
// the path is replaced, not written through.
bool writeFileText(const char* path, const std::string& text) {
  if (QUtils::isLink(path)) QUtils::deleteFile(path);
  FILE* file = QUtils::openFile(path, "wb");
  if (!file) return false;
  bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  if (std::fclose(file) != 0) written = false;
  return written && QUtils::setExecutable(path) == 0;
}

// Writes a desktop entry, and logs a failure in the engine's debug log.
bool writeDesktopEntry(Installer* engine, const char* path, const std::string& text) {
  if (writeFileText(path, text)) return true;
  engine->log("ERROR: Could not write the desktop entry %s: %s", path, std::strerror(errno));
  return false;
}

}  // namespace

bool LinuxInstaller::createShortcut(const char* type, const char* linkPath, const char* target, const char* description,
                                    const char* arguments, const char* startPath, char* out, int outSize,
                                    InstallerUI* ui) {
  bool made = false;
  std::string name = DesktopEntry::nameOf(linkPath);
  if (!type || !linkPath || !*linkPath) {
    log("ERROR: A shortcut needs a type and a path");
  } else if (std::strcmp(type, "Symlink") == 0) {
    if (!target || !*target) {
      log("ERROR: The symbolic link %s has no target", linkPath);
    } else {
      if (QUtils::isLink(linkPath)) QUtils::deleteFile(linkPath);
      made = symlink(QUtils::systemPath(target).getText(), QUtils::systemPath(linkPath).getText()) == 0;
      if (!made) log("ERROR: Could not link %s to %s: %s", linkPath, target, std::strerror(errno));
    }
  } else if (std::strcmp(type, "URL") == 0) {
    made = writeDesktopEntry(this, linkPath, DesktopEntry::link(name.c_str(), description, target));
  } else if (std::strcmp(type, "Uninstall") == 0) {
    char program[kCommandSize];
    char command[kCommandSize];
    if (!getUninstallCommand(program, sizeof program, command, sizeof command, 0)) {
      log("ERROR: The template doesn't describe the uninstall command for %s", linkPath);
    } else {
      std::string exec = DesktopEntry::execLine(program, command);
      made = writeDesktopEntry(this, linkPath,
                               DesktopEntry::application(name.c_str(), description, exec.c_str(), nullptr));
    }
  } else if (std::strcmp(type, "File") == 0) {
    std::string exec = DesktopEntry::execLine(target, arguments);
    made = writeDesktopEntry(this, linkPath,
                             DesktopEntry::application(name.c_str(), description, exec.c_str(), startPath));
  } else {
    log("ERROR: Unknown shortcut type %s", type);
  }
  return reportShortcut(made, linkPath, out, outSize, ui);
}

bool LinuxInstaller::addFirewallApplication(const char* path, const char* name) {
  if (!path || !name) return false;
  log("Firewall: Linux firewalls don't filter by program; %s (%s) needs no exception", path, name);
  return true;
}

bool LinuxInstaller::removeFirewallApplication(const char* path) {
  if (!path) return false;
  log("Firewall: Linux firewalls don't filter by program; %s has no exception to remove", path);
  return true;
}

bool LinuxInstaller::firewallFiltersPorts() {
  std::string toolPath;
  return LinuxFirewall::findTool(&toolPath) != LinuxFirewall::kNoTool;
}

namespace {

// Runs the steps in order; the first one that fails and mustn't ends the
// change. False with the failing command in `failed`.
bool runSteps(const std::vector<LinuxFirewall::Step>& steps, std::string* failed) {
  for (const LinuxFirewall::Step& step : steps) {
    int code = Host::runCommand(step.arguments);
    if (code == 0 || step.mayFail) continue;
    failed->clear();
    for (const std::string& argument : step.arguments) *failed += (failed->empty() ? "" : " ") + argument;
    *failed += " exited with " + std::to_string(code);
    return false;
  }
  return true;
}

}  // namespace

bool LinuxInstaller::addFirewallPort(const FirewallPort& port) {
  if ((port.protocols & (kFirewallTcp | kFirewallUdp)) == 0) {
    log("ERROR: (Firewall Port) Invalid firewall protocol or none specified!");
    return false;
  }
  std::string toolPath;
  LinuxFirewall::Tool tool = LinuxFirewall::findTool(&toolPath);
  if (tool == LinuxFirewall::kNoTool) {
    log("Firewall: no firewall manager found; port %u needs no rule", static_cast<unsigned>(port.port));
    return true;
  }
  std::string failed;
  if (!runSteps(LinuxFirewall::addPortSteps(tool, toolPath, port.port, port.protocols, port.name), &failed)) {
    log("ERROR: (Firewall Port) Adding the port %u failed! %s", static_cast<unsigned>(port.port), failed.c_str());
    return false;
  }
  log("Firewall: port %u opened through %s", static_cast<unsigned>(port.port), toolPath.c_str());
  return true;
}

bool LinuxInstaller::removeFirewallPort(const char* text) {
  if (!text) return false;
  uint32_t port = 0;
  uint8_t protocols = 0;
  if (!parsePortRemovalText(text, &port, &protocols)) {
    log("ERROR: (Firewall Port) Invalid port removal string %s", text);
    return false;
  }
  if (protocols == 0) {
    log("ERROR: (Firewall Port) Invalid firewall protocol or none specified!");
    return false;
  }
  std::string toolPath;
  LinuxFirewall::Tool tool = LinuxFirewall::findTool(&toolPath);
  if (tool == LinuxFirewall::kNoTool) {
    log("Firewall: no firewall manager found; port %u needs no rule", static_cast<unsigned>(port));
    return true;
  }
  std::string failed;
  if (!runSteps(LinuxFirewall::removePortSteps(tool, toolPath, port, protocols, text), &failed)) {
    log("ERROR: (Firewall Port) Removing port %u! %s", static_cast<unsigned>(port), failed.c_str());
    return false;
  }
  return true;
}
