// qlux-reference: writes docs/template-reference.md from the description of
// the template language (engine/template_language.h) and the prose around
// it (template-reference.md.in beside this file), so that the reference
// always says what the engine and the package builder do.
//
//   qlux-reference SKELETON > docs/template-reference.md
//
// The skeleton's lines @ELEMENTS@, @BUILTINS@, @PAGES@ and @CONTROLS@ are
// replaced by the tables; every other line is copied as it stands.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "engine/template_language.h"

using templatelang::Attribute;
using templatelang::Element;
using templatelang::Kind;

namespace {

// Where a new group of elements begins, and its heading.
struct Group {
  const char* first;
  const char* heading;
};
const Group kGroups[] = {
    {"HalvoWorksInstallation", "The document and the product"},
    {"Dialogs", "The wizard"},
    {"ColourTheme", "The colour theme"},
    {"Installation", "The installation's data and files"},
    {"Environment", "Changes to the machine"},
    {"AdditionalInstall", "Programs and other actions"},
    {"UninstallWildcards", "Uninstalling"},
};

// How an element whose tag is free is called.
std::string title(const Element& element) {
  std::string name = element.name;
  if (name == "@dialog") return "A page (its tag is its name)";
  if (name == "@subdialog") return "A sub-dialog (its tag is its task's)";
  if (name == "@task") return "A task (its tag names a sub-dialog)";
  if (name == "@colour") return "A theme colour";
  if (name == "@exclude") return "An excluded variable (any tag)";
  if (name == "@wildcard") return "An uninstall wildcard (any tag)";
  return "`" + name + "`";
}

// The anchor-free name of a parent in prose.
std::string place(const std::string& parent) {
  if (parent == "@dialog") return "a page";
  if (parent == "@page") return "a page or a sub-dialog";
  if (parent == "@tag") return "`AdditionalInstall`, `PostInstall`, `PreUninstall`, or a section that a RunActions "
                               "trigger names";
  if (parent == "TaskList" || parent[0] != '@') return "`" + parent + "`";
  return parent;
}

std::vector<std::string> split(const char* text) {
  std::vector<std::string> parts;
  std::string part;
  for (const char* p = text; *p; p++) {
    if (*p == ';') {
      parts.push_back(part);
      part.clear();
    } else {
      part += *p;
    }
  }
  if (!part.empty() || !parts.empty()) parts.push_back(part);
  return parts;
}

std::string quotedList(const char* text) {
  std::string out;
  std::vector<std::string> parts = split(text);
  for (size_t i = 0; i < parts.size(); i++) {
    if (i > 0) out += i + 1 == parts.size() ? " or " : ", ";
    out += "`" + parts[i] + "`";
  }
  return out;
}

std::string whereItStands(const Element& element) {
  if (!element.parents[0]) return "The root.";
  if (std::strcmp(element.parents, "HalvoWorksInstallation;Installation") == 0)
    return "Under the root or in `Installation`; the engine finds it by its name.";
  std::vector<std::string> parents = split(element.parents);
  std::string out = "In ";
  for (size_t i = 0; i < parents.size(); i++) {
    if (i > 0) out += i + 1 == parents.size() ? " or " : ", ";
    out += place(parents[i]);
  }
  return out + ".";
}

// The value column of an attribute's row.
std::string valueOf(const Attribute& attribute) {
  std::string out;
  if (attribute.kind == Kind::kChoice) {
    out = "one of " + quotedList(attribute.choices);
  } else if (attribute.kind == Kind::kWords) {
    out = "words of " + quotedList(attribute.choices) + ", separated by `;`";
  } else {
    out = templatelang::kindName(attribute.kind);
  }
  if ((attribute.kind == Kind::kChoice || attribute.kind == Kind::kWords) && (attribute.flags & templatelang::kExactCase))
    out += " (with case)";
  if (attribute.flags & templatelang::kRequired) out += "; *needed*";
  if (attribute.flags & templatelang::kBuilder) out += "; *qlux-pack*";
  return out;
}

std::string textOf(const Element& element) {
  switch (element.text) {
    case Kind::kNone:
      return "";
    case Kind::kSourcePath:
      return "Its text: the file's path below the source folder.";
    case Kind::kFileKey:
      return "Its text: the key of a packed file.";
    case Kind::kVariable:
      return "Its text: the name of a variable.";
    case Kind::kExpression:
      return "Its text: the value, with `$NAME` references for DataType value.";
    case Kind::kLiteral:
      return "Its text is taken as it stands.";
    case Kind::kText:
      return "Its text may hold [NAME] references.";
    case Kind::kPath:
      return "Its text: a path, which may hold [NAME] references.";
    case Kind::kPattern:
      return "Its text: a wildcard pattern.";
    case Kind::kColour:
      return "Its text: a colour, 0xRRGGBB.";
    case Kind::kName:
      return "Its text: a program's file name.";
    default:
      return std::string("Its text: ") + templatelang::kindName(element.text) + ".";
  }
}

void writeElements(std::ostream& out) {
  int count = 0;
  const Element* all = templatelang::elements(&count);
  // Elements that share their attributes (the controls of a page, the
  // children of Environment) list them once, at the first of them.
  std::map<const Attribute*, std::string> listed;
  for (int i = 0; i < count; i++) {
    const Element& element = all[i];
    for (const Group& group : kGroups) {
      if (std::strcmp(group.first, element.name) == 0) out << "### " << group.heading << "\n\n";
    }
    out << "#### " << title(element) << "\n\n";
    std::string facts = whereItStands(element);
    if (element.names) facts += " Its tag is one of " + quotedList(element.names) + ".";
    if (element.flags & templatelang::kRepeats) facts += " May stand more than once.";
    if (!(element.flags & templatelang::kExactCase) && element.name[0] != '@') facts += " Its tag in any case.";
    std::string text = textOf(element);
    if (!text.empty()) facts += " " + text;
    if (element.flags & templatelang::kTextRequired) facts += " Without text it is passed over.";
    out << facts << "\n\n" << element.summary << "\n\n";
    auto first = listed.find(element.attributes);
    if (element.attributeCount > 2 && first != listed.end()) {
      out << "Its attributes are those of " << first->second << ".\n\n";
    } else if (element.attributeCount > 0) {
      std::string name = title(element);
      if (name[0] != '`') name = "a" + name.substr(1, name.find(" (") - 1);  // "A page (...)" -> "a page"
      listed[element.attributes] = name;
      out << "| Attribute | Value | Meaning |\n|---|---|---|\n";
      for (int k = 0; k < element.attributeCount; k++) {
        const Attribute& attribute = element.attributes[k];
        out << "| `" << attribute.name << "` | " << valueOf(attribute) << " | " << attribute.summary << " |\n";
      }
      out << "\n";
    }
    if (element.example) out << "```xml\n" << element.example << "\n```\n\n";
  }
}

void writeBuiltIns(std::ostream& out) {
  int count = 0;
  const templatelang::BuiltIn* all = templatelang::builtIns(&count);
  out << "| Variable | Value |\n|---|---|\n";
  for (int i = 0; i < count; i++) out << "| `" << all[i].name << "` | " << all[i].value << " |\n";
}

void writePages(std::ostream& out) {
  int count = 0;
  const templatelang::SpecialPage* all = templatelang::specialPages(&count);
  out << "| Page | Work on entering it |\n|---|---|\n";
  for (int i = 0; i < count; i++) out << "| `" << all[i].name << "` | " << all[i].work << " |\n";
}

void writeControls(std::ostream& out) {
  int count = 0;
  const templatelang::ControlName* all = templatelang::controlNames(&count);
  out << "| Name | Element | What it shows |\n|---|---|---|\n";
  for (int i = 0; i < count; i++)
    out << "| `" << all[i].name << "` | `" << all[i].element << "` | " << all[i].use << " |\n";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: qlux-reference SKELETON > docs/template-reference.md\n");
    return 1;
  }
  std::ifstream skeleton(argv[1]);
  if (!skeleton) {
    std::fprintf(stderr, "qlux-reference: cannot read %s\n", argv[1]);
    return 1;
  }
  std::string line;
  std::ostringstream out;
  while (std::getline(skeleton, line)) {
    if (line == "@ELEMENTS@") {
      writeElements(out);
    } else if (line == "@BUILTINS@") {
      writeBuiltIns(out);
    } else if (line == "@PAGES@") {
      writePages(out);
    } else if (line == "@CONTROLS@") {
      writeControls(out);
    } else {
      out << line << "\n";
    }
  }
  // One blank line at most between blocks, none at the end.
  std::string text = out.str();
  std::string tidy;
  for (size_t i = 0; i < text.size(); i++) {
    if (text[i] == '\n' && tidy.size() >= 2 && tidy[tidy.size() - 1] == '\n' && tidy[tidy.size() - 2] == '\n') continue;
    tidy += text[i];
  }
  while (tidy.size() >= 2 && tidy[tidy.size() - 1] == '\n' && tidy[tidy.size() - 2] == '\n') tidy.pop_back();
  std::cout << tidy;
  return 0;
}
