// Findings (findings.h): collecting, weighing and printing what the builder
// has to say, and the closest known name for a misspelt one.
#include "tools/pack/findings.h"

#include <algorithm>
#include <cctype>

#include "tools/pack/text_helpers.h"

namespace {

using packtext::lower;

// Edits (insert, delete, replace, swap of neighbours) from a to b.
size_t editDistance(const std::string& a, const std::string& b) {
  std::vector<std::vector<size_t>> d(a.size() + 1, std::vector<size_t>(b.size() + 1));
  for (size_t i = 0; i <= a.size(); i++) d[i][0] = i;
  for (size_t j = 0; j <= b.size(); j++) d[0][j] = j;
  for (size_t i = 1; i <= a.size(); i++) {
    for (size_t j = 1; j <= b.size(); j++) {
      size_t cost = a[i - 1] == b[j - 1] ? 0 : 1;
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + cost});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
    }
  }
  return d[a.size()][b.size()];
}

}  // namespace

int Findings::errorCount(bool strict) const {
  int count = 0;
  for (const Finding& finding : list) count += isError(finding, strict) ? 1 : 0;
  return count;
}

void Findings::print(FILE* out, const std::string& file, bool strict) const {
  std::vector<Finding> sorted = list;
  std::stable_sort(sorted.begin(), sorted.end(), [](const Finding& a, const Finding& b) {
    return a.where.line != b.where.line ? a.where.line < b.where.line : a.where.column < b.where.column;
  });
  for (const Finding& finding : sorted) {
    std::string place = file;
    if (finding.where.line > 0) place += ":" + std::to_string(finding.where.line) + ":" + std::to_string(finding.where.column);
    std::fprintf(out, "%s: %s: %s\n", place.c_str(), isError(finding, strict) ? "error" : "warning",
                 finding.message.c_str());
    if (!finding.hint.empty()) std::fprintf(out, "%s: hint: %s\n", place.c_str(), finding.hint.c_str());
  }
}

std::string closestName(const std::string& name, const std::vector<std::string>& candidates) {
  std::string wanted = lower(name);
  // A name that differs only in case is the best guess of all.
  for (const std::string& candidate : candidates) {
    if (lower(candidate) == wanted) return candidate;
  }
  // Two slips in a long name, one in a short one; never more than a third
  // of the name, so that short names don't match everything.
  size_t allowed = wanted.size() >= 6 ? 2 : 1;
  if (wanted.empty()) return "";
  std::string best;
  size_t bestDistance = allowed + 1;
  for (const std::string& candidate : candidates) {
    // A name of one or two letters is only taken for a longer one that
    // begins like it ("Ad" for "Add").
    if (wanted.size() < 3 && (candidate.empty() || std::tolower(static_cast<unsigned char>(candidate[0])) != wanted[0]))
      continue;
    size_t distance = editDistance(wanted, lower(candidate));
    if (distance < bestDistance) {
      bestDistance = distance;
      best = candidate;
    }
  }
  return best;
}
