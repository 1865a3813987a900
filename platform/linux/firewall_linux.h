// The firewall on Linux: port exceptions through firewalld's firewall-cmd
// when it is on $PATH, else through ufw, else, with an nftables ruleset in
// force, through nft in a table of our own. What this unit gives is the
// list of commands for one change; LinuxInstaller runs them
// (run_command.h). With none of them the machine filters no ports, and a
// port needs no rule.
//
// With firewall-cmd an exception is a permanent service named after the
// rule's text ("qlux-" and the text with every character other than a
// letter or digit made '-'), holding the port for each protocol, enabled
// in the default zone; the rules are reloaded after each change. Since
// the removal text of a port is the rule's text, removing finds the same
// service again. With ufw an exception is an "allow" rule for the port,
// with the rule's text as its comment; removing deletes the rule of that
// port and protocol. With nft each exception is a table of its own
// (family inet, named like the service with '_' for '-', as nft names
// take no '-') holding an input chain that accepts the port; removing
// deletes the table. Such a table lives until the next restart: nft keeps
// nothing on disk, and the machine's own ruleset file isn't ours to edit.
// An accept in our own table also doesn't override a drop in another
// table's chain; it serves rulesets that let through what some chain
// accepts.
#ifndef QLUX_PLATFORM_LINUX_FIREWALL_LINUX_H_
#define QLUX_PLATFORM_LINUX_FIREWALL_LINUX_H_

#include <cstdint>
#include <string>
#include <vector>

namespace LinuxFirewall {

enum Tool { kNoTool, kFirewallCmd, kUfw, kNftables };

// One command: the tool's path and its arguments. A step that `mayFail`
// doesn't fail the change (making a service that is there already,
// deleting one that is gone).
struct Step {
  std::vector<std::string> arguments;
  bool mayFail;
};

// The tool to use, and its full path in `outPath`. nft counts only when
// `nft list ruleset` lists something: an empty ruleset filters nothing.
Tool findTool(std::string* outPath);

// The service name of firewall-cmd for a rule's text.
std::string serviceName(const char* text);
// The nft table for a rule's text.
std::string tableName(const char* text);

// The steps that open `port` for `protocols` (bit 0 TCP, bit 1 UDP, at
// least one set) under the rule's text `name`, or close it again.
std::vector<Step> addPortSteps(Tool tool, const std::string& toolPath, uint32_t port, uint8_t protocols,
                               const char* name);
std::vector<Step> removePortSteps(Tool tool, const std::string& toolPath, uint32_t port, uint8_t protocols,
                                  const char* name);

}  // namespace LinuxFirewall

#endif  // QLUX_PLATFORM_LINUX_FIREWALL_LINUX_H_
