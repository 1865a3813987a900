// Findings: what the package builder has to say about a template, each with
// the place it concerns, printed the way compilers print their diagnostics:
//
//   install.xml:12:7: error: unknown element 'FileSett' in 'Installation'
//   install.xml:12:7: hint: did you mean 'FileSet'?
//
// A finding has a weight. kBroken is always an error: the package can't be
// built as the template says (the XML is malformed, a file is missing).
// kLanguage is an error unless the vendor asked for leniency (--no-strict):
// the installer would read the template in a defined way, but not as it was
// meant (an unknown element is passed over, a broken condition counts as
// true). kAdvice is always a warning: the template works, with a trap a
// vendor will want to know about.
#ifndef QLUX_TOOLS_PACK_FINDINGS_H_
#define QLUX_TOOLS_PACK_FINDINGS_H_

#include <cstdio>
#include <string>
#include <vector>

#include "tools/pack/xml_source.h"

enum class Weight { kBroken, kLanguage, kAdvice };

struct Finding {
  SourcePosition where;
  Weight weight;
  std::string message;
  std::string hint;  // may be empty
};

class Findings {
 public:
  void add(SourcePosition where, Weight weight, const std::string& message, const std::string& hint = "") {
    list.push_back(Finding{where, weight, message, hint});
  }
  const std::vector<Finding>& all() const { return list; }
  bool empty() const { return list.empty(); }

  // Whether a finding counts as an error.
  static bool isError(const Finding& finding, bool strict) {
    return finding.weight == Weight::kBroken || (strict && finding.weight == Weight::kLanguage);
  }
  int errorCount(bool strict) const;

  // Prints every finding in the order of the text, each as
  // FILE:LINE:COLUMN: error|warning: message, and its hint on a line of its
  // own. A finding without a place (line 0) names the file alone.
  void print(FILE* out, const std::string& file, bool strict) const;

 private:
  std::vector<Finding> list;
};

// The name among `candidates` closest to `name` (without regard to case), if
// it is near enough to be a slip of the keyboard; empty otherwise.
std::string closestName(const std::string& name, const std::vector<std::string>& candidates);

#endif  // QLUX_TOOLS_PACK_FINDINGS_H_
