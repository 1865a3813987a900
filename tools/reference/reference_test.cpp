// The reference and the description of the template language against what
// they describe: the committed docs/template-reference.md is what the
// generator makes today, and every name that the engine's sources look up in
// a template is in the description (and every name the description gives the
// engine is one it looks up).
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "engine/template_language.h"

namespace {

namespace fs = std::filesystem;

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string runReference() {
  std::string command = std::string(QLUX_REFERENCE) + " " + QLUX_SOURCE_DIR + "/tools/reference/template-reference.md.in";
  FILE* pipe = popen(command.c_str(), "r");
  std::string output;
  if (!pipe) return output;
  char block[4096];
  size_t got;
  while ((got = std::fread(block, 1, sizeof block, pipe)) > 0) output.append(block, got);
  pclose(pipe);
  return output;
}

TEST(ReferenceTest, TheCommittedReferenceIsInStep) {
  std::string generated = runReference();
  std::string committed = readFile(fs::path(QLUX_SOURCE_DIR) / "docs/template-reference.md");
  ASSERT_FALSE(generated.empty());
  EXPECT_TRUE(generated == committed)
      << "docs/template-reference.md is out of step with the description of the template language; write it anew "
         "with `ninja -C build template-reference` and commit it";
}

TEST(ReferenceTest, EveryElementHasAnExample) {
  int count = 0;
  const templatelang::Element* all = templatelang::elements(&count);
  for (int i = 0; i < count; i++) {
    EXPECT_TRUE(all[i].example && all[i].example[0]) << all[i].name << " in " << all[i].parents;
  }
}

// Literals of the engine's sources that look like names but are no names of
// the template language: texts of the registry entry, the journal and the
// messages.
const char* const kNotTemplateNames[] = {
    "Added",           "Removed",       "Uninstalling", "Uninstallation", "UninstallString",
    "DisplayIcon",     "DisplayName",   "DisplayVersion", "HelpLink",     "EstimatedSize",
    "InstallLocation", "NoModify",      "NoRepair",     "QuietUninstallString", "ProgramFilesDir",
};

// The names the description knows: tags, attribute names, the words of
// choices, and the special names of pages and controls.
std::set<std::string> describedNames(bool valuesToo) {
  std::set<std::string> names;
  int count = 0;
  const templatelang::Element* all = templatelang::elements(&count);
  auto words = [&](const char* list) {
    std::string word;
    for (const char* p = list;; p++) {
      if (*p == ';' || !*p) {
        if (!word.empty()) names.insert(word);
        word.clear();
        if (!*p) break;
      } else {
        word += *p;
      }
    }
  };
  for (int i = 0; i < count; i++) {
    if (all[i].name[0] != '@') names.insert(all[i].name);
    if (all[i].names) words(all[i].names);
    for (int k = 0; k < all[i].attributeCount; k++) {
      names.insert(all[i].attributes[k].name);
      if (valuesToo && all[i].attributes[k].choices) words(all[i].attributes[k].choices);
    }
  }
  if (valuesToo) {
    const templatelang::SpecialPage* pages = templatelang::specialPages(&count);
    for (int i = 0; i < count; i++) names.insert(pages[i].name);
    const templatelang::ControlName* controls = templatelang::controlNames(&count);
    for (int i = 0; i < count; i++) names.insert(controls[i].name);
    const templatelang::BuiltIn* builtIns = templatelang::builtIns(&count);
    for (int i = 0; i < count; i++) names.insert(builtIns[i].name);
    names.insert("Welcome");  // the page that gets no Back button by default
  }
  return names;
}

// Every string literal of the engine's sources, split at '/' as the
// engine's paths are: the words that begin with a capital and have a small
// letter, as the language writes its names (texts all in capitals are log
// tags, words in small letters are values or texts), and the one-letter
// attributes x, y, w and h.
std::map<std::string, std::string> engineNames() {
  std::map<std::string, std::string> names;  // name -> the file it was found in
  std::regex literal("\"((?:[^\"\\\\]|\\\\.)*)\"");
  std::regex word("^(?:[A-Za-z][A-Za-z0-9]*)$");
  std::vector<fs::path> sources;
  for (const auto& entry : fs::directory_iterator(fs::path(QLUX_SOURCE_DIR) / "engine")) {
    std::string name = entry.path().filename().string();
    if (entry.path().extension() != ".cpp" || name.find("_test") != std::string::npos) continue;
    if (name == "template_language.cpp") continue;  // the description itself
    sources.push_back(entry.path());
  }
  for (const fs::path& source : sources) {
    std::string text = readFile(source);
    // Comments hold words that are no look-ups.
    text = std::regex_replace(text, std::regex("//[^\\n]*"), "");
    text = std::regex_replace(text, std::regex("#include[^\\n]*"), "");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), literal); it != std::sregex_iterator(); ++it) {
      std::string content = (*it)[1];
      std::stringstream parts(content);
      std::string part;
      while (std::getline(parts, part, '/')) {
        if (!std::regex_match(part, word)) continue;
        bool small = false;
        for (char c : part) small |= c >= 'a' && c <= 'z';
        if (part.size() > 1 && (!small || part[0] < 'A' || part[0] > 'Z')) continue;
        if (part.size() == 1 && std::strchr("xywh", part[0]) == nullptr) continue;
        names.insert({part, source.filename().string()});
      }
    }
  }
  return names;
}

TEST(ReferenceTest, EveryNameTheEngineLooksUpIsDescribed) {
  std::set<std::string> described = describedNames(true);
  std::set<std::string> ignored(std::begin(kNotTemplateNames), std::end(kNotTemplateNames));
  std::map<std::string, std::string> found = engineNames();
  ASSERT_GT(found.size(), 100u);  // the scan reads the sources at all
  for (const auto& name : found) {
    if (described.count(name.first) || ignored.count(name.first)) continue;
    ADD_FAILURE() << "the engine (" << name.second << ") uses \"" << name.first
                  << "\", which the description of the template language lacks: describe it in "
                     "engine/template_language.cpp (and write the reference anew), or, if it is no name of the "
                     "template language, add it to kNotTemplateNames in tools/reference/reference_test.cpp";
  }
}

TEST(ReferenceTest, EveryNameTheDescriptionGivesTheEngineIsLookedUp) {
  std::map<std::string, std::string> found = engineNames();
  int count = 0;
  const templatelang::Element* all = templatelang::elements(&count);
  for (int i = 0; i < count; i++) {
    const templatelang::Element& element = all[i];
    bool small = false;
    for (const char* p = element.name; *p; p++) small |= *p >= 'a' && *p <= 'z';
    if (element.name[0] != '@' && small && !(element.flags & templatelang::kUnread) && !found.count(element.name))
      ADD_FAILURE() << "the description has the element " << element.name << ", which the engine never looks up";
    for (int k = 0; k < element.attributeCount; k++) {
      const templatelang::Attribute& attribute = element.attributes[k];
      if (attribute.flags & templatelang::kBuilder) continue;
      if (!found.count(attribute.name))
        ADD_FAILURE() << "the description has the attribute " << attribute.name << " of " << element.name
                      << ", which the engine never looks up";
    }
  }
}

}  // namespace
