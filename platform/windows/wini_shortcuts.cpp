// Shortcuts and the firewall on Windows.
#include <windows.h>
#include <objbase.h>
#include <shlobj.h>
// intshcut.h needs the COM declarations of the headers above.
#include <intshcut.h>

#include <cstring>
#include <functional>

#include "foundation/convert.h"
#include "foundation/errors.h"
#include "foundation/text.h"
#include "platform/windows/firewall_operations.h"
#include "platform/windows/wini.h"

namespace {

const GUID kClsidInternetShortcut = {0xFBF23B40, 0xE3F0, 0x101B, {0x84, 0x88, 0x00, 0xAA, 0x00, 0x3E, 0x56, 0xF8}};
const GUID kIidUniformResourceLocatorW = {0xCABB0DA0, 0xDA57, 0x11CF, {0x99, 0x74, 0x00, 0x20, 0xAF, 0xD7, 0x97, 0x62}};
const int kCommandSize = 4096;

// Saves the object behind `object` as the file `linkPath` through its
// IPersistFile. True if it was saved.
bool saveAs(IUnknown* object, const wchar_t* linkPath) {
  IPersistFile* file = nullptr;
  if (FAILED(object->QueryInterface(IID_IPersistFile, reinterpret_cast<void**>(&file)))) return false;
  bool saved = SUCCEEDED(file->Save(linkPath, TRUE));
  file->Release();
  return saved;
}

// A shell link to `target`; description, arguments and working directory
// as given. COM lives for this call only.
bool makeShellLink(const char* linkPath, const char* target, const char* description, const char* arguments,
                   const char* startPath) {
  if (FAILED(CoInitialize(nullptr))) return false;
  IShellLinkW* link = nullptr;
  bool made = false;
  if (SUCCEEDED(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_IShellLinkW,
                                 reinterpret_cast<void**>(&link)))) {
    QUtils::TextConverter wideTarget(target ? target : "");
    QUtils::TextConverter wideDescription(description ? description : "");
    link->SetPath(wideTarget.wide());
    link->SetDescription(wideDescription.wide());
    if (arguments && *arguments) {
      QUtils::TextConverter wideArguments(arguments);
      link->SetArguments(wideArguments.wide());
    }
    if (startPath && *startPath) {
      QUtils::TextConverter wideStart(startPath);
      link->SetWorkingDirectory(wideStart.wide());
    }
    QUtils::TextConverter widePath(linkPath);
    made = saveAs(link, widePath.wide());
    link->Release();
  }
  CoUninitialize();
  return made;
}

// An Internet shortcut to `url`. Its path is UTF-8 like every other text:
// the ANSI code page would mangle a letter outside it.
bool makeInternetShortcut(const char* linkPath, const char* url) {
  if (!linkPath) return false;
  QUtils::TextConverter widePath(linkPath);
  if (FAILED(CoInitialize(nullptr))) return false;
  IUniformResourceLocatorW* locator = nullptr;
  bool made = false;
  if (SUCCEEDED(CoCreateInstance(kClsidInternetShortcut, nullptr, CLSCTX_INPROC_SERVER, kIidUniformResourceLocatorW,
                                 reinterpret_cast<void**>(&locator)))) {
    QUtils::TextConverter wideUrl(url ? url : "");
    locator->SetURL(wideUrl.wide(), IURL_SETURL_FL_GUESS_PROTOCOL);
    made = saveAs(locator, widePath.wide());
    locator->Release();
  }
  CoUninitialize();
  return made;
}

}  // namespace

bool Wini::createShortcut(const char* type, const char* linkPath, const char* target, const char* description,
                          const char* arguments, const char* startPath, char* out, int outSize, InstallerUI* ui) {
  bool made = false;
  if (!type || !linkPath || !*linkPath) {
    log("ERROR: A shortcut needs a type and a path");
  } else if (std::strcmp(type, "File") == 0) {
    made = makeShellLink(linkPath, target, description, arguments, startPath);
  } else if (std::strcmp(type, "URL") == 0) {
    made = makeInternetShortcut(linkPath, target);
  } else if (std::strcmp(type, "Uninstall") == 0) {
    char program[kCommandSize];
    char command[kCommandSize];
    if (getUninstallCommand(program, sizeof program, command, sizeof command, 1))
      made = makeShellLink(linkPath, program, description, command, nullptr);
    else
      log("ERROR: The template doesn't describe the uninstall command for %s", linkPath);
  } else {
    log("ERROR: Shortcuts of type %s can't be made on this system", type);
  }
  return reportShortcut(made, linkPath, out, outSize, ui);
}

namespace {

// Runs `operation` on a FirewallOperations made for it, and releases that
// behind it, also when the operation throws. What is thrown is logged
// behind `prefix`, and gives false.
bool runFirewall(Wini* engine, const char* prefix, const std::function<void(FirewallOperations&)>& operation) {
  try {
    FirewallOperations firewall;
    try {
      operation(firewall);
    } catch (const QUtils::GenericError&) {
      firewall.release();
      throw;
    }
    firewall.release();
  } catch (const QUtils::GenericError& error) {
    engine->log("ERROR: (%s) %s", prefix, error.getMessage());
    return false;
  }
  return true;
}

}  // namespace

bool Wini::addFirewallApplication(const char* path, const char* name) {
  if (!path || !name) return false;
  return runFirewall(this, "Firewall App", [&](FirewallOperations& firewall) { firewall.addApplication(path, name); });
}

bool Wini::removeFirewallApplication(const char* path) {
  if (!path) return false;
  return runFirewall(this, "Firewall App", [&](FirewallOperations& firewall) { firewall.removeApplication(path); });
}

bool Wini::addFirewallPort(const FirewallPort& port) {
  return runFirewall(this, "Firewall Port",
                     [&](FirewallOperations& firewall) { firewall.addPort(port.port, port.protocols, port.name); });
}

bool Wini::removeFirewallPort(const char* text) {
  if (!text) return false;
  uint32_t port = 0;
  uint8_t protocols = 0;
  if (!parsePortRemovalText(text, &port, &protocols)) {
    log("ERROR: (Firewall Port) Invalid port removal string %s", text);
    return false;
  }
  return runFirewall(this, "Firewall Port",
                     [&](FirewallOperations& firewall) { firewall.removePort(port, protocols); });
}
