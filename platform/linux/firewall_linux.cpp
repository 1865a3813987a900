// The commands of the Linux firewall tools.
#include "platform/linux/firewall_linux.h"

#include "platform/linux/run_command.h"

namespace LinuxFirewall {

namespace {

// "8080/tcp" and "8080/udp" as the mask asks; ufw with both gives the port
// alone, which it takes as both.
std::vector<std::string> portRules(uint32_t port, uint8_t protocols, bool bothAsOne) {
  std::string number = std::to_string(port);
  if (bothAsOne && protocols == 3) return {number};
  std::vector<std::string> rules;
  if (protocols & 1) rules.push_back(number + "/tcp");
  if (protocols & 2) rules.push_back(number + "/udp");
  return rules;
}

Step step(const std::string& toolPath, std::vector<std::string> arguments, bool mayFail) {
  arguments.insert(arguments.begin(), toolPath);
  return Step{arguments, mayFail};
}

}  // namespace

Tool findTool(std::string* outPath) {
  *outPath = Host::findOnPath("firewall-cmd");
  if (!outPath->empty()) return kFirewallCmd;
  *outPath = Host::findOnPath("ufw");
  if (!outPath->empty()) return kUfw;
  *outPath = Host::findOnPath("nft");
  std::string ruleset;
  if (!outPath->empty() && Host::runCommand({*outPath, "list", "ruleset"}, &ruleset) == 0 &&
      ruleset.find_first_not_of(" \t\r\n") != std::string::npos)
    return kNftables;
  outPath->clear();
  return kNoTool;
}

std::string serviceName(const char* text) {
  std::string name = "qlux-";
  for (const char* p = text ? text : ""; *p; p++) {
    char c = *p;
    bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    name += plain ? c : '-';
  }
  return name;
}

std::string tableName(const char* text) {
  std::string name = serviceName(text);
  for (char& c : name)
    if (c == '-') c = '_';
  return name;
}

std::vector<Step> addPortSteps(Tool tool, const std::string& toolPath, uint32_t port, uint8_t protocols,
                               const char* name) {
  std::vector<Step> steps;
  if (tool == kFirewallCmd) {
    std::string service = serviceName(name);
    steps.push_back(step(toolPath, {"--permanent", "--new-service=" + service}, true));
    std::vector<std::string> addPorts = {"--permanent", "--service=" + service};
    for (const std::string& rule : portRules(port, protocols, false)) addPorts.push_back("--add-port=" + rule);
    steps.push_back(step(toolPath, addPorts, false));
    steps.push_back(step(toolPath, {"--permanent", "--add-service=" + service}, false));
    steps.push_back(step(toolPath, {"--reload"}, false));
  } else if (tool == kUfw) {
    for (const std::string& rule : portRules(port, protocols, true))
      steps.push_back(step(toolPath, {"allow", rule, "comment", name ? name : ""}, false));
  } else if (tool == kNftables) {
    // A table left by an earlier installation of the same rule goes first,
    // so the rule isn't doubled.
    std::string table = tableName(name);
    steps.push_back(step(toolPath, {"delete", "table", "inet", table}, true));
    steps.push_back(step(toolPath, {"add", "table", "inet", table}, false));
    steps.push_back(step(toolPath,
                         {"add", "chain", "inet", table, "input", "{", "type", "filter", "hook", "input", "priority",
                          "0", ";", "policy", "accept", ";", "}"},
                         false));
    std::string number = std::to_string(port);
    for (const char* protocol : {"tcp", "udp"}) {
      if (!(protocols & (protocol[0] == 't' ? 1 : 2))) continue;
      steps.push_back(
          step(toolPath, {"add", "rule", "inet", table, "input", protocol, "dport", number, "accept"}, false));
    }
  }
  return steps;
}

std::vector<Step> removePortSteps(Tool tool, const std::string& toolPath, uint32_t port, uint8_t protocols,
                                  const char* name) {
  std::vector<Step> steps;
  if (tool == kFirewallCmd) {
    std::string service = serviceName(name);
    steps.push_back(step(toolPath, {"--permanent", "--remove-service=" + service}, false));
    steps.push_back(step(toolPath, {"--permanent", "--delete-service=" + service}, true));
    steps.push_back(step(toolPath, {"--reload"}, false));
  } else if (tool == kUfw) {
    for (const std::string& rule : portRules(port, protocols, true))
      steps.push_back(step(toolPath, {"delete", "allow", rule}, false));
  } else if (tool == kNftables) {
    // A restart has emptied the ruleset of the table already.
    steps.push_back(step(toolPath, {"delete", "table", "inet", tableName(name)}, true));
  }
  return steps;
}

}  // namespace LinuxFirewall
