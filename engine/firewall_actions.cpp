// Firewall actions: the installation stage that opens the template's
// application and port exceptions, and the reverse that closes one again.
// Only the first Firewall element counts. A port's text is both the rule's
// name and, through the log, the text its removal reads (parsePortRemovalText),
// so a template gives it the form "PORT" or "PROTOCOLS PORT".
#include <cstdlib>
#include <cstring>

#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/text.h"

namespace {

// The protocols of a ';' list; `exactCase` takes only "TCP" and "UDP" as
// written, otherwise any case. `unknown` counts the other tokens.
uint8_t protocolMask(const char* text, size_t length, bool exactCase, int* unknown) {
  uint8_t mask = 0;
  const char* end = text + length;
  while (text <= end) {
    const char* stop = static_cast<const char*>(std::memchr(text, ';', static_cast<size_t>(end - text)));
    if (!stop) stop = end;
    size_t size = static_cast<size_t>(stop - text);
    auto is = [&](const char* word) {
      return size == 3 && (exactCase ? std::strncmp(text, word, 3) == 0 : QUtils::compareNoCase(text, word, 3) == 0);
    };
    if (is("TCP"))
      mask |= Installer::kFirewallTcp;
    else if (is("UDP"))
      mask |= Installer::kFirewallUdp;
    else if (unknown && size > 0)
      (*unknown)++;
    text = stop + 1;
  }
  return mask;
}

}  // namespace

int Installer::applyFirewallActions(QUtils::PConsole* console, InstallerUI* ui) {
  int element = document.findNext("Firewall", -1);
  if (element < 0) return 0;
  int result = 0;
  QUtils::PList<int> children(20);
  document.getChildren(element, &children);
  for (int i = 0; i < children.getCount(); i++) {
    int child = children[i];
    const char* text = document.getValue(child);
    if (!text || !*text) continue;
    if (evaluateCondition(document.getAttribute(child, "Condition")) == 0) continue;
    const char* kind = document.getName(child);
    char message[QUtils::kMaxPath + 128];

    if (kind && std::strcmp(kind, "Application") == 0) {
      const char* target = document.getAttribute(child, "Target");
      if (!target) continue;
      char path[QUtils::kMaxPath];
      expandVariables(target, path, sizeof path);
      QUtils::cleanPath(path);
      bool added = addFirewallApplication(path, text);
      if (added && !firewallFiltersPrograms()) {
        QUtils::boundedFormat(message, sizeof message,
                              "Firewall: no exception needed for application: %s (the firewall doesn't filter by "
                              "program)",
                              path);
      } else {
        QUtils::boundedFormat(message, sizeof message, "Firewall: %s exception for application: %s",
                              added ? "Added" : "FAILED to add", path);
      }
      if (ui) ui->addFileLine(message, false);
      if (!added) {
        log("ERROR: %s", message);
        addError(message);
        result = -1;
      } else if (console) {
        console->printf("%s%c%s%c%s", kLogFirewall, kLogTab, kLogApp, kLogTab, path);
      }
    } else if (kind && std::strcmp(kind, "Port") == 0) {
      const char* portText = document.getAttribute(child, "Port");
      if (!portText) continue;
      FirewallPort port;
      port.port = static_cast<uint32_t>(std::strtoul(portText, nullptr, 10));
      QUtils::copyText(port.name, text, sizeof port.name);
      const char* protocol = document.getAttribute(child, "Protocol");
      port.protocols = kFirewallTcp | kFirewallUdp;
      if (protocol) {
        int unknown = 0;
        port.protocols = protocolMask(protocol, std::strlen(protocol), true, &unknown);
        for (int k = 0; k < unknown; k++)
          log("WARNING: (Firewall): Unrecognized protocol in the Protocol attribute");
      }
      bool added = addFirewallPort(port);
      if (added && !firewallFiltersPorts()) {
        QUtils::boundedFormat(message, sizeof message, "Firewall: port %ld needs no rule (no firewall is active)",
                              static_cast<long>(port.port));
      } else {
        QUtils::boundedFormat(message, sizeof message, "Firewall: %s port %ld", added ? "Added" : "FAILED to add",
                              static_cast<long>(port.port));
      }
      if (ui) ui->addFileLine(message, false);
      if (!added) {
        log("ERROR: %s", message);
        addError(message);
        result = -1;
      } else if (console) {
        console->printf("%s%c%s%c%s", kLogFirewall, kLogTab, kLogPort, kLogTab, port.name);
      }
    }
  }
  if (ui) ui->addFileLine(nullptr, true);
  return result;
}

bool Installer::undoFirewall(const char* line, InstallerUI* ui) {
  if (!line) return true;
  char copy[kLogLineSize];
  QUtils::copyText(copy, line, sizeof copy);
  size_t kindLength = std::strcspn(copy, "\t");
  const char* argument = nextLogField(copy);
  auto isKind = [&](const char* word) {
    return kindLength == std::strlen(word) && std::strncmp(copy, word, kindLength) == 0;
  };

  bool removed;
  char message[kLogLineSize + 64];
  if (isKind(kLogApp)) {
    removed = removeFirewallApplication(argument);
    bool nothing = removed && !firewallFiltersPrograms();
    QUtils::boundedFormat(message, sizeof message, "%s application from firewall: %s",
                          nothing ? "Nothing to remove for" : removed ? "Removed" : "FAILED to remove", argument);
  } else if (isKind(kLogPort)) {
    removed = removeFirewallPort(argument);
    bool nothing = removed && !firewallFiltersPorts();
    QUtils::boundedFormat(message, sizeof message, "%s port from firewall: %s",
                          nothing ? "Nothing to remove for" : removed ? "Removed" : "FAILED to remove", argument);
  } else {
    return true;
  }
  if (!removed) log("WARNING: %s", message);
  if (ui) ui->addFileLine(message, false);
  return removed;
}

bool Installer::parsePortRemovalText(const char* text, uint32_t* outPort, uint8_t* outProtocols) {
  if (!text) return false;
  // The words, split at runs of blanks.
  const char* words[3];
  size_t lengths[3];
  int count = 0;
  for (const char* p = text; *p;) {
    while (*p == ' ' || *p == '\t') p++;
    if (!*p) break;
    const char* start = p;
    while (*p && *p != ' ' && *p != '\t') p++;
    if (count == 3) return false;
    words[count] = start;
    lengths[count] = static_cast<size_t>(p - start);
    count++;
  }
  if (count == 1) {
    *outPort = static_cast<uint32_t>(std::strtoul(words[0], nullptr, 10));
    *outProtocols = kFirewallTcp | kFirewallUdp;
    return true;
  }
  if (count == 2) {
    *outProtocols = protocolMask(words[0], lengths[0], false, nullptr);
    *outPort = static_cast<uint32_t>(std::strtoul(words[1], nullptr, 10));
    return true;
  }
  return false;
}

bool Installer::addFirewallApplication(const char* path, const char* name) {
  log("ERROR: (Firewall App) This system has no firewall to add %s to", path ? path : "");
  return false;
}

bool Installer::removeFirewallApplication(const char* path) {
  log("ERROR: (Firewall App) This system has no firewall to remove %s from", path ? path : "");
  return false;
}

bool Installer::addFirewallPort(const FirewallPort& port) {
  log("ERROR: (Firewall Port) This system has no firewall to open port %u in", static_cast<unsigned>(port.port));
  return false;
}

bool Installer::removeFirewallPort(const char* text) {
  log("ERROR: (Firewall Port) This system has no firewall to close %s in", text ? text : "");
  return false;
}
