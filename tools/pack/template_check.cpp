// The checks, in passes over the parsed template: roles (which elements are
// pages, tasks, action sections), then every element with its attributes and
// text, then what needs the whole template at once: variables, the pages
// that do the work, the uninstall data, the packed files the wizard shows,
// and the traps of the window.
#include "tools/pack/template_check.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <set>

#include "engine/template_language.h"
#include "tools/pack/condition_check.h"
#include "tools/pack/text_helpers.h"

using templatelang::Attribute;
using templatelang::Element;
using templatelang::Kind;

namespace {

const char kRoot[] = "HalvoWorksInstallation";
// The tags of the sections of actions the engine runs by itself.
const char* const kActionSections[] = {"AdditionalInstall", "PostInstall", "PreUninstall"};
// The built-in variables, compared without regard to case.
const char* const kBuiltIns[] = {"GUI_INSTALL", "INSTALLER_DIR", "WX_PORT"};
// The control variables that the engine sets only when something happened;
// a condition on one needs a default from DefValues.
const char* const kSometimesSet[] = {"PreviousInstallation", "ShouldUninstall", "InstallError", "UninstallError"};
const char kErrorList[] = "Destfilelist";

using PositionFn = std::function<SourcePosition(size_t)>;

using packtext::lower;
using packtext::sameNoCase;
using packtext::splitList;
using packtext::trimmed;

bool isBuiltIn(const std::string& name) {
  for (const char* builtIn : kBuiltIns)
    if (sameNoCase(name, builtIn)) return true;
  return false;
}

bool isNumber(const std::string& text) {
  size_t i = text[0] == '+' || text[0] == '-' ? 1 : 0;
  if (i >= text.size()) return false;
  for (; i < text.size(); i++)
    if (!std::isdigit(static_cast<unsigned char>(text[i]))) return false;
  return true;
}

// A path text made comparable: separators as '/', runs of them as one, none
// at the end.
std::string normalPath(const std::string& path) {
  std::string out;
  for (char c : path) {
    char d = c == '\\' ? '/' : c;
    if (d == '/' && !out.empty() && out.back() == '/') continue;
    out += d;
  }
  while (out.size() > 1 && out.back() == '/') out.pop_back();
  return out;
}

// The special names' words of a page's Special attribute, as flags.
const unsigned kHasSubDialogs = 1, kAutoNext = 2, kFinish = 4, kWeak = 8;
unsigned pageFlags(const std::string* special) {
  unsigned flags = 0;
  if (!special) return flags;
  for (std::string word : splitList(*special, ';')) {
    size_t leading = 0;
    word = lower(trimmed(word, &leading));
    if (word == "hassubdialogs") flags |= kHasSubDialogs;
    if (word == "autonext") flags |= kAutoNext;
    if (word == "finish") flags |= kFinish;
    if (word == "weakcondition") flags |= kWeak;
  }
  return flags;
}

struct Definition {
  enum Source { kDefValue, kField, kDirectoryField, kValidation, kTrigger, kAction, kControl } source;
  int element;
};

struct Use {
  std::string name;
  SourcePosition where;
};

struct Page {
  int element;
  std::string name;
  bool uninstall;
  int frame;  // the frame dialog of a sub-dialog, else -1
  unsigned flags;
};

class Checker {
 public:
  Checker(const XmlSource& xml, const ExpandedTemplate& expanded, Findings* findings)
      : xml(xml), nodes(xml.elements()), expanded(expanded), findings(findings), roles(nodes.size()),
        skipped(nodes.size(), false), described(nodes.size(), nullptr) {}

  void run();

 private:
  // ---- places and texts ----
  SourcePosition at(int element) const { return xml.position(nodes[static_cast<size_t>(element)].begin); }
  SourcePosition nameOf(const SourceAttribute& attribute) const { return xml.position(attribute.nameOffset); }
  std::string textOf(int element, size_t* leading) const {
    return trimmed(nodes[static_cast<size_t>(element)].text, leading);
  }
  PositionFn valuePlace(const SourceAttribute& attribute) const {
    return [this, &attribute](size_t index) { return xml.valuePosition(attribute, index); };
  }
  PositionFn textPlace(int element, size_t leading) const {
    return [this, element, leading](size_t index) {
      return xml.textPosition(nodes[static_cast<size_t>(element)], leading + index);
    };
  }
  const std::string* value(int element, const char* name) const {
    const SourceAttribute* attribute = xml.attribute(element, name);
    return attribute ? &attribute->value : nullptr;
  }
  const std::string& name(int element) const { return nodes[static_cast<size_t>(element)].name; }
  int parent(int element) const { return nodes[static_cast<size_t>(element)].parent; }

  void language(SourcePosition where, const std::string& message, const std::string& hint = "") {
    findings->add(where, Weight::kLanguage, message, hint);
  }
  void advice(SourcePosition where, const std::string& message, const std::string& hint = "") {
    findings->add(where, Weight::kAdvice, message, hint);
  }

  // ---- passes ----
  void assignRoles();
  void describeElements();
  void checkElements();
  void checkElement(int element, const Element& description);
  void checkUnknownElement(int element);
  void checkAttributes(int element, const Element& description);
  void checkValue(int element, Kind kind, const char* choices, unsigned flags, const std::string& text,
                  const PositionFn& where, const std::string& what);
  void checkText(int element, const Element& description);
  void checkPlacement(int element, const Element& description);
  void checkDefaultsOrder();
  void checkVariables();
  void checkPages();
  void checkUninstallData();
  void checkFileKeys();
  void checkWindowTraps();

  // ---- what the template defines ----
  void collectDefinitions();
  void define(const std::string& variable, Definition::Source source, int element) {
    if (!variable.empty()) definitions.insert({variable, Definition{source, element}});
  }
  bool isDefined(const std::string& variable) const;
  std::vector<std::string> variableNames() const;
  // Whether a variable holds a folder: 1 yes, 0 no, -1 can't be told.
  int holdsFolder(const std::string& variable, int depth) const;
  int textHoldsFolder(const std::string& text, int depth) const;
  // A path with its variables replaced by their DefValues expressions, as
  // far as the template tells them.
  std::string resolved(const std::string& text, int depth) const;
  std::string defaultExpression(const std::string& variable) const;

  const Page* findPage(const std::string& pageName, bool uninstall) const;
  std::vector<Page> walkOrder(bool uninstall) const;
  bool pageHasList(int page, const char* listName) const;

  const XmlSource& xml;
  const std::vector<SourceElement>& nodes;
  const ExpandedTemplate& expanded;
  Findings* findings;

  std::vector<std::string> roles;        // "@dialog", "@subdialog", "@task", "@tag" or ""
  std::vector<bool> skipped;             // inside an element the language doesn't know
  std::vector<const Element*> described;
  std::set<std::string> actionSections;  // tags that a RunActions trigger names
  std::multimap<std::string, Definition> definitions;
  std::map<std::string, std::string> controlVariables;  // control tag -> variable
  std::vector<Use> conditionUses;  // references in conditions
  std::vector<Use> textUses;       // references in texts and paths
  std::vector<Page> pages;
  std::set<std::string> customGroups;
  std::vector<std::pair<std::string, SourcePosition>> fileKeys;  // keys the wizard shows
};

// ---------------------------------------------------------------------------

void Checker::assignRoles() {
  for (size_t i = 0; i < nodes.size(); i++) {
    if (nodes[i].name == "Trigger") {
      const std::string* type = value(static_cast<int>(i), "Type");
      const std::string* section = value(static_cast<int>(i), "Value");
      if (type && section && sameNoCase(*type, "RunActions")) actionSections.insert(*section);
    }
    if (nodes[i].name == "CustomGroup" || sameNoCase(nodes[i].name, "CustomGroup")) {
      if (const std::string* group = value(static_cast<int>(i), "Name")) customGroups.insert(lower(*group));
    }
  }
  for (const char* section : kActionSections) actionSections.insert(section);

  for (size_t i = 0; i < nodes.size(); i++) {
    int up = nodes[i].parent;
    if (up < 0) continue;
    const std::string& parentName = nodes[static_cast<size_t>(up)].name;
    const std::string& parentRole = roles[static_cast<size_t>(up)];
    if (parentRole.empty() && (parentName == "Dialogs" || parentName == "UninstallDialogs")) {
      roles[i] = "@dialog";
    } else if (parentName == "SubDialogs" && parent(up) >= 0 && roles[static_cast<size_t>(parent(up))] == "@dialog") {
      roles[i] = "@subdialog";
    } else if (parentName == "TaskList" && parent(up) >= 0 && roles[static_cast<size_t>(parent(up))] == "@dialog") {
      roles[i] = "@task";
    }
    // A section of actions plays the role for its children.
    if (roles[i].empty() && parentRole.empty() && actionSections.count(nodes[i].name)) roles[i] = "@tag";
    if (roles[i] == "@dialog" || roles[i] == "@subdialog") {
      bool uninstall = false;
      for (int a = up; a >= 0; a = parent(a))
        if (name(a) == "UninstallDialogs") uninstall = true;
      int frame = roles[i] == "@subdialog" ? parent(up) : -1;
      pages.push_back(Page{static_cast<int>(i), nodes[i].name, uninstall, frame,
                           pageFlags(value(static_cast<int>(i), "Special"))});
    }
  }
}

// ---------------------------------------------------------------------------
// Elements

void Checker::checkElements() {
  for (size_t i = 0; i < nodes.size(); i++) {
    if (!skipped[i] && described[i]) checkElement(static_cast<int>(i), *described[i]);
  }
}

void Checker::describeElements() {
  if (nodes.empty()) return;
  if (nodes[0].name != kRoot) {
    language(at(0), "the root element is '" + nodes[0].name + "'; a template's root is " + kRoot);
  }
  std::map<std::pair<const Element*, int>, int> seen;  // single elements per parent
  std::map<const Element*, int> seenSections;         // sections the engine finds anywhere
  for (size_t i = 0; i < nodes.size(); i++) {
    int element = static_cast<int>(i);
    int up = nodes[i].parent;
    if (up >= 0 && (skipped[static_cast<size_t>(up)] || !described[static_cast<size_t>(up)])) {
      // Inside an element the language doesn't know (or a section of actions
      // that a trigger names): its children are that element's business.
      bool section = roles[static_cast<size_t>(up)] == "@tag" && !skipped[static_cast<size_t>(up)];
      if (!section) {
        skipped[i] = true;
        continue;
      }
    }
    const char* parentName = up >= 0 ? name(up).c_str() : nullptr;
    const char* parentRole = up >= 0 && !roles[static_cast<size_t>(up)].empty() ? roles[static_cast<size_t>(up)].c_str()
                                                                                : nullptr;
    if (up < 0 && i > 0) continue;
    const Element* description = templatelang::findElement(nodes[i].name.c_str(), up >= 0 ? parentName : nullptr,
                                                           parentRole);
    if (!description) {
      if (roles[i] == "@tag") continue;  // a section that a trigger names
      checkUnknownElement(element);
      skipped[i] = true;
      continue;
    }
    described[i] = description;
    if (!(description->flags & templatelang::kRepeats)) {
      bool anywhere = std::strstr(description->parents, "Installation;") != nullptr ||
                      std::strcmp(description->parents, "HalvoWorksInstallation;Installation") == 0;
      int count = anywhere ? ++seenSections[description] : ++seen[{description, up}];
      if (count == 2)
        advice(at(element), "a second " + nodes[i].name + (anywhere ? " in the template" : " here") +
                                " is not read: the engine reads only the first");
    }
  }
}

void Checker::checkUnknownElement(int element) {
  int up = parent(element);
  const std::string& tag = name(element);
  const std::string parentName = up >= 0 ? name(up) : "";
  const std::string parentRole = up >= 0 ? roles[static_cast<size_t>(up)] : "";
  std::string where = up < 0 ? "the document" : parentRole == "@dialog" || parentRole == "@subdialog" ? "the page " + parentName : "'" + parentName + "'";

  // What may stand here, for the hint.
  int count = 0;
  const Element* all = templatelang::elements(&count);
  std::vector<std::string> candidates;
  std::vector<std::string> elsewhere;  // where this tag may stand instead
  for (int k = 0; k < count; k++) {
    const Element& e = all[k];
    bool here = up >= 0 && (templatelang::standsUnder(e, parentName.c_str()) ||
                            (!parentRole.empty() && templatelang::standsUnder(e, parentRole.c_str())));
    if (here) {
      if (e.name[0] != '@') {
        candidates.push_back(e.name);
      } else if (e.names) {
        for (const std::string& n : splitList(e.names, ';')) candidates.push_back(n);
      }
    }
    if (e.name[0] != '@' && e.name == tag) elsewhere.push_back(e.parents);
  }
  if (parentRole == "@dialog" || parentRole == "@subdialog") {
    for (const char* work : {"TestApp", "TerminateApp"}) candidates.push_back(work);
  }

  std::string guess = closestName(tag, candidates);
  if (!guess.empty() && guess != tag && lower(guess) == lower(tag)) {
    language(at(element), "unknown element '" + tag + "' in " + where,
             "element names are compared with case: write '" + guess + "'");
  } else if (!elsewhere.empty()) {
    std::string places = elsewhere[0];
    for (char& c : places)
      if (c == ';') c = ',';
    language(at(element), "'" + tag + "' is not read in " + where, "it belongs in " + places);
  } else {
    language(at(element), "unknown element '" + tag + "' in " + where,
             guess.empty() ? "the installer passes over elements it doesn't know" : "did you mean '" + guess + "'?");
  }
}

void Checker::checkElement(int element, const Element& description) {
  checkPlacement(element, description);
  checkAttributes(element, description);
  checkText(element, description);
}

// Rules of place that the parent lists can't say.
void Checker::checkPlacement(int element, const Element& description) {
  const SourceElement& node = nodes[static_cast<size_t>(element)];
  int up = node.parent;
  const std::string& tag = node.name;
  const std::string kind = description.name;  // what the element is, whatever its tag
  std::string parentRole = up >= 0 ? roles[static_cast<size_t>(up)] : "";
  bool onPage = parentRole == "@dialog" || parentRole == "@subdialog";

  if (onPage && (kind == "TestApp" || kind == "TerminateApp") && name(up) != "RunningApps") {
    language(at(element), tag + " is read only on a page named RunningApps", "move it to the RunningApps page");
  }
  if (onPage && kind == "Field") {
    for (int a = up; a >= 0; a = parent(a)) {
      if (name(a) == "UninstallDialogs") {
        advice(at(element), "the uninstaller's pages have no fields: this Field is not read");
        break;
      }
    }
  }
  if ((kind == "TaskList" || kind == "SubDialogs") && parentRole == "@dialog" &&
      !(pageFlags(value(up, "Special")) & kHasSubDialogs)) {
    language(at(element), tag + " is read only in a page with Special=\"HasSubDialogs\"",
             "add HasSubDialogs to the page's Special");
  }
  if (kind == "@dialog" || kind == "@subdialog") {
    unsigned flags = pageFlags(value(element, "Special"));
    if (flags & kHasSubDialogs) {
      if (kind == "@subdialog") {
        advice(at(element), "a sub-dialog has no sub-dialogs of its own: HasSubDialogs is not read here");
      } else {
        bool tasks = false, subDialogs = false;
        for (int child : node.children) {
          tasks |= name(child) == "TaskList";
          subDialogs |= name(child) == "SubDialogs";
        }
        if (!tasks || !subDialogs)
          language(at(element), "the page " + tag + " has Special=\"HasSubDialogs\" but no " +
                                    (tasks ? "SubDialogs" : "TaskList") + ": it has no steps",
                   "give it a TaskList that names its steps, and a SubDialogs that holds them");
      }
    }
  }
  if (kind == "@task") {
    // Every task needs its sub-dialog: tasks and sub-dialogs pair by index.
    int frame = parent(up);
    bool found = false;
    for (int child : nodes[static_cast<size_t>(frame)].children) {
      if (name(child) != "SubDialogs") continue;
      for (int sub : nodes[static_cast<size_t>(child)].children) found |= name(sub) == tag;
    }
    if (!found)
      language(at(element), "no sub-dialog is named " + tag + ": the tasks after it go out of step with their pages",
               "add <" + tag + "/> to SubDialogs");
  }
  if (kind == "@subdialog") {
    int frame = parent(up);
    bool named = false;
    for (int child : nodes[static_cast<size_t>(frame)].children) {
      if (name(child) != "TaskList") continue;
      for (int task : nodes[static_cast<size_t>(child)].children) named |= name(task) == tag;
    }
    if (!named) advice(at(element), "no task of the TaskList names " + tag + ": the sub-dialog is never shown");
  }
  if (kind == "Uninstall" && up >= 0) {
    // The engine finds Uninstall by a path whose segments match the
    // beginning of a tag: a sibling before it that begins the same way is
    // taken instead.
    for (int sibling : nodes[static_cast<size_t>(up)].children) {
      if (sibling == element) break;
      if (name(sibling).compare(0, 9, "Uninstall") == 0)
        language(at(sibling), name(sibling) + " stands before Uninstall, and the engine would take it for Uninstall",
                 "move Uninstall above it");
    }
  }
  if (kind == "Uninstall" && xml.attribute(element, "Auto")) {
    for (int child : node.children)
      language(at(child), "Auto fills the uninstall data itself: " + name(child) + " is not wanted",
               "leave out either Auto or the uninstall paths");
  }
}

void Checker::checkAttributes(int element, const Element& description) {
  const SourceElement& node = nodes[static_cast<size_t>(element)];
  std::vector<std::string> names;
  for (int k = 0; k < description.attributeCount; k++) names.push_back(description.attributes[k].name);
  std::set<std::string> present;
  for (const SourceAttribute& attribute : node.attributes) {
    if (!present.insert(lower(attribute.name)).second) {
      advice(nameOf(attribute), "'" + attribute.name + "' is given twice (with another case): the last one counts");
    }
    const Attribute* known = templatelang::findAttribute(description, attribute.name.c_str());
    std::string what = node.name[0] ? attribute.name : attribute.name;
    if (!known) {
      std::string guess = closestName(attribute.name, names);
      std::string owner = description.name[0] == '@' ? "the element " + node.name : node.name;
      language(nameOf(attribute), "unknown attribute '" + attribute.name + "' of " + owner,
               guess.empty() ? (names.empty() ? owner + " takes no attributes" : "it is passed over")
                             : "did you mean '" + guess + "'?");
      continue;
    }
    const char* raw = xml.text().c_str() + attribute.valueOffset;
    if (std::strstr(std::string(raw, attribute.valueEnd - attribute.valueOffset).c_str(), "&#"))
      advice(nameOf(attribute), "the installer decodes only &amp; &lt; &gt; &quot; &apos;: a character reference "
                                "stays as it is written");
    // A trigger's Value is a text or a section, by its Type.
    Kind kind = known->kind;
    if (node.name == "Trigger" && sameNoCase(attribute.name, "Value")) {
      const std::string* type = value(element, "Type");
      if (type && sameNoCase(*type, "RunActions")) kind = Kind::kSection;
      else if (type && !sameNoCase(*type, "VarChange")) kind = Kind::kLiteral;
    }
    // Registry actions replace references only with Expand.
    if (!value(element, "Expand") && (kind == Kind::kText) && parent(element) >= 0 &&
        sameNoCase(name(parent(element)), "Registry"))
      kind = Kind::kLiteral;
    if (std::strcmp(known->name, "Enable") == 0) {
      // One condition for each choice, separated by '|'.
      size_t offset = 0;
      PositionFn where = valuePlace(attribute);
      for (const std::string& piece : splitList(attribute.value, '|')) {
        checkValue(element, Kind::kCondition, nullptr, 0, piece,
                   [where, offset](size_t index) { return where(offset + index); }, attribute.name);
        offset += piece.size() + 1;
      }
      continue;
    }
    checkValue(element, kind, known->choices, known->flags, attribute.value, valuePlace(attribute),
               attribute.name);
  }
  for (int k = 0; k < description.attributeCount; k++) {
    const Attribute& wanted = description.attributes[k];
    if (!(wanted.flags & templatelang::kRequired) || present.count(lower(wanted.name))) continue;
    std::string owner = description.name[0] == '@' ? "the element " + node.name : node.name;
    language(at(element), owner + " without " + wanted.name + " is passed over",
             std::string("give ") + wanted.name + "=\"...\"");
  }
  // What a few elements need beyond their required attributes.
  if (node.name == "Trigger") {
    const std::string* type = value(element, "Type");
    if ((!type || sameNoCase(*type, "VarChange")) && !value(element, "Value"))
      language(at(element), "a VarChange trigger without Value is passed over", "give Value=\"...\"");
    if (!value(element, "Variable") && !(type && sameNoCase(*type, "RunActions")))
      language(at(element), "the trigger names no Variable", "give Variable=\"NAME\"");
  }
  if (node.name == "Value" && description.name == std::string("Value")) {
    const std::string* type = value(element, "DataType");
    std::string t = type ? lower(*type) : "";
    if (t == "registry" && (!value(element, "RegPlace") || !value(element, "RegKey")))
      language(at(element), "a registry entry needs RegPlace and RegKey", "give both");
    if (t == "installvar" && !value(element, "AppName"))
      language(at(element), "an installvar entry needs AppName", "give AppName=\"the other product's Fullname\"");
  }
  if (sameNoCase(node.name, "Add") && parent(element) >= 0 && name(parent(element)) == "Shortcuts") {
    const std::string* type = value(element, "Type");
    if (type && *type != "Uninstall" && !value(element, "Target"))
      language(at(element), "a shortcut of Type " + *type + " without Target is passed over", "give Target=\"...\"");
  }
  if (parent(element) >= 0 && sameNoCase(name(parent(element)), "Registry")) {
    std::string action = lower(node.name);
    if ((action == "addvalue" || action == "removevalue") && !value(element, "Value"))
      language(at(element), node.name + " needs Value, the value's name", "give Value=\"...\"");
  }
  if (node.name == "FN" && xml.attribute(element, "StripExeExt") && !xml.attribute(element, "Executable") &&
      !xml.attribute(element, "Recurse"))
    advice(at(element), "StripExeExt is read only together with Executable");
}

void Checker::checkValue(int element, Kind kind, const char* choices, unsigned flags, const std::string& text,
                         const PositionFn& where, const std::string& what) {
  std::vector<TextIssue> issues;
  std::vector<VariableUse> uses;
  switch (kind) {
    case Kind::kCondition:
      checkCondition(text, &issues, &uses);
      for (const VariableUse& use : uses) conditionUses.push_back(Use{use.name, where(use.offset)});
      break;
    case Kind::kText:
    case Kind::kPath:
    case Kind::kFolder:
      findReferences(text, &issues, &uses);
      for (const VariableUse& use : uses) textUses.push_back(Use{use.name, where(use.offset)});
      if (kind == Kind::kFolder && !(flags & templatelang::kBuilder) && issues.empty()) {
        size_t leading = 0;
        std::string folder = trimmed(text, &leading);
        int holds = textHoldsFolder(folder, 0);
        if (folder.empty()) {
          advice(where(0), what + " is empty");
        } else if (holds == 0) {
          std::string variable = folder[0] == '[' ? folder.substr(1, folder.find(']') - 1) : "";
          language(where(leading),
                   variable.empty() ? what + " '" + folder + "' is not an absolute folder: it would be taken from the "
                                                             "folder the installer runs in"
                                    : what + " starts with [" + variable + "], which holds no absolute folder",
                   "start it with a variable that holds a folder, such as [INSTALLDIR]");
        }
      }
      break;
    case Kind::kExpression:
      findDollarReferences(text, &issues, &uses);
      break;  // the order of DefValues is checked on its own
    case Kind::kAction: {
      checkAction(text, &issues, &uses);
      break;
    }
    case Kind::kFlag: {
      std::string v = lower(text);
      if (v == "0" || v == "false" || v == "no")
        advice(where(0), what + "=\"" + text + "\" counts as set: the value isn't looked at",
               "leave " + what + " out to switch it off");
      break;
    }
    case Kind::kNotZero: {
      // Only a leading '0' switches it off; "false" or "no" switch it on.
      std::string v = lower(text);
      if (v == "false" || v == "no" || v == "off")
        advice(where(0), what + "=\"" + text + "\" counts as set: only a value that starts with 0 switches it off",
               "write 0");
      break;
    }
    case Kind::kOne:
      if (text != "0" && text != "1")
        language(where(0), what + "=\"" + text + "\": only 1 switches it on", "write 1 or 0");
      break;
    case Kind::kInteger:
      if (!isNumber(text)) language(where(0), what + " takes a whole number, not '" + text + "'");
      break;
    case Kind::kChoice: {
      size_t leading = 0;
      std::string word = trimmed(text, &leading);
      std::vector<std::string> words = splitList(choices, ';');
      bool found = false;
      for (const std::string& w : words)
        found |= (flags & templatelang::kExactCase) ? w == word : sameNoCase(w, word);
      if (!found) {
        std::string guess = closestName(word, words);
        std::string all;
        for (const std::string& w : words) all += (all.empty() ? "" : ", ") + w;
        const char* article = !what.empty() && std::strchr("AEIOU", what[0]) ? "an " : "a ";
        language(where(leading), "'" + word + "' is not " + article + what + " the installer knows",
                 guess.empty() ? "use one of " + all
                 : lower(guess) == lower(word) ? "write '" + guess + "': it is compared with case"
                                               : "did you mean '" + guess + "'?");
      }
      break;
    }
    case Kind::kWords: {
      std::vector<std::string> words = splitList(choices, ';');
      size_t offset = 0;
      for (const std::string& piece : splitList(text, ';')) {
        size_t leading = 0;
        std::string word = trimmed(piece, &leading);
        bool found = word.empty();
        for (const std::string& w : words)
          found |= (flags & templatelang::kExactCase) ? w == word : sameNoCase(w, word);
        if (!found) {
          std::string guess = closestName(word, words);
          language(where(offset + leading), "'" + word + "' is not a word of " + what,
                   guess.empty() ? "" : lower(guess) == lower(word) ? "write '" + guess + "': it is compared with case"
                                                                      : "did you mean '" + guess + "'?");
        }
        offset += piece.size() + 1;
      }
      break;
    }
    case Kind::kColour: {
      if (lower(text.substr(0, 6)) == "group:") {
        if (!customGroups.count(lower(text.substr(6))))
          language(where(6), "the colour theme has no CustomGroup named '" + text.substr(6) + "'");
        break;
      }
      std::string digits = lower(text.substr(0, 2)) == "0x" ? text.substr(2) : text;
      bool hex = !digits.empty() && digits.size() <= 8;
      for (char c : digits) hex &= std::isxdigit(static_cast<unsigned char>(c)) != 0;
      if (!hex) language(where(0), "'" + text + "' is not a colour", "write 0xRRGGBB, or Group:NAME");
      break;
    }
    case Kind::kDetails:
      for (const std::string& pair : splitList(text, ';')) {
        size_t leading = 0;
        std::string item = trimmed(pair, &leading);
        if (item.empty()) continue;
        size_t equals = item.find('=');
        std::string key = lower(item.substr(0, equals));
        if (equals == std::string::npos || (key != "size" && key != "width" && key != "height") ||
            !isNumber(item.substr(equals + 1)))
          language(where(0), "'" + item + "' is not a detail the task list knows", "write size=N, width=N or height=N");
      }
      break;
    case Kind::kSection: {
      bool exists = false;
      for (const SourceElement& candidate : nodes) exists |= candidate.name == text;
      if (!exists) language(where(0), "the template has no section " + text + " for the trigger to run");
      break;
    }
    case Kind::kLiteral:
    case Kind::kName: {
      // A [NAME] of a known variable in a text that isn't expanded is
      // shown as it stands.
      findReferences(text, &issues, &uses);
      issues.clear();
      for (const VariableUse& use : uses) {
        if (isDefined(use.name) && kind == Kind::kLiteral)
          advice(where(use.offset), "this text is shown as it stands: [" + use.name + "] is not replaced");
      }
      uses.clear();
      break;
    }
    default:
      break;
  }
  (void)element;
  for (const TextIssue& issue : issues) {
    if (issue.tolerated)
      advice(where(issue.offset), issue.message, issue.hint);
    else
      language(where(issue.offset), issue.message, issue.hint);
  }
}

void Checker::checkText(int element, const Element& description) {
  const SourceElement& node = nodes[static_cast<size_t>(element)];
  size_t leading = 0;
  std::string text = textOf(element, &leading);
  if (node.mixedText) {
    advice(at(element), "the text of " + node.name + " stands beside other elements and is not read");
    return;
  }
  if (text.empty()) {
    if (description.flags & templatelang::kTextRequired)
      language(at(element), (description.name[0] == '@' ? "this element" : node.name) + " without text is passed over");
    return;
  }
  if (description.text == Kind::kNone) {
    if (node.children.empty()) advice(textPlace(element, leading)(0), "the text of " + node.name + " is not read");
    return;
  }
  std::string raw = xml.text().substr(node.contentBegin, node.contentEnd - node.contentBegin);
  if (raw.find("&#") != std::string::npos)
    advice(textPlace(element, leading)(0),
           "the installer decodes only &amp; &lt; &gt; &quot; &apos;: a character reference stays as it is written");
  Kind kind = description.text;
  // A DefValues entry's text is an expression only for DataType value.
  if (description.name == std::string("Value")) {
    const std::string* type = value(element, "DataType");
    if (!type || lower(*type).compare(0, 5, "value") != 0) kind = Kind::kLiteral;
  }
  if (kind == Kind::kFileKey) {
    fileKeys.push_back({text, textPlace(element, leading)(0)});
    return;
  }
  if (node.name == "SlideShow" && !isNumber(text)) {
    language(textPlace(element, leading)(0), "a SlideShow's text is the number of its pictures");
    return;
  }
  if (node.name == "SlideShow") {
    const std::string* base = value(element, "Name");
    for (int k = 0; base && k < std::atoi(text.c_str()) && k < 100; k++)
      fileKeys.push_back({*base + std::to_string(k), textPlace(element, leading)(0)});
    return;
  }
  if (kind == Kind::kVariable || kind == Kind::kSourcePath) return;  // collected, or the builder's
  // Registry data is expanded only with Expand.
  if (kind == Kind::kText && sameNoCase(node.name, "AddValue") && !value(element, "Expand")) kind = Kind::kLiteral;
  checkValue(element, kind, nullptr, 0, text, textPlace(element, leading), "the text of " + node.name);
}

// ---------------------------------------------------------------------------
// Variables

void Checker::collectDefinitions() {
  for (size_t i = 0; i < nodes.size(); i++) {
    int element = static_cast<int>(i);
    if (skipped[i] || !described[i]) continue;
    const std::string& tag = nodes[i].name;
    size_t leading = 0;
    std::string text = textOf(element, &leading);
    const std::string kind = described[i]->name;
    if (kind == "Value") {
      if (const std::string* variable = value(element, "Name")) define(*variable, Definition::kDefValue, element);
    } else if (kind == "Field") {
      const std::string* type = value(element, "Type");
      define(text, type && sameNoCase(*type, "Directory") ? Definition::kDirectoryField : Definition::kField, element);
      if (const std::string* validation = value(element, "ValidationVariable"))
        define(*validation, Definition::kValidation, element);
    } else if (kind == "Trigger") {
      const std::string* type = value(element, "Type");
      if (!type || sameNoCase(*type, "VarChange"))
        if (const std::string* variable = value(element, "Variable")) define(*variable, Definition::kTrigger, element);
    } else if (kind == "Button") {
      std::vector<TextIssue> issues;
      std::vector<VariableUse> assigned;
      if (const std::string* action = value(element, "Action")) checkAction(*action, &issues, &assigned);
      for (const VariableUse& use : assigned) define(use.name, Definition::kAction, element);
      const std::string* buttonName = value(element, "Name");
      if (buttonName && (sameNoCase(*buttonName, "Customize") || sameNoCase(*buttonName, "Express")))
        define("CUSTOMIZE", Definition::kAction, element);
    } else if (parent(element) >= 0 && name(parent(element)) == "InstallerControlVariables") {
      controlVariables[tag] = text;
      if (tag == "DlgCondition") define(text, Definition::kControl, element);
    }
  }
}

bool Checker::isDefined(const std::string& variable) const {
  if (variable.empty()) return false;
  if (variable[0] == '$' || isBuiltIn(variable)) return true;
  return definitions.count(variable) > 0;
}

std::vector<std::string> Checker::variableNames() const {
  std::vector<std::string> names;
  for (const auto& definition : definitions) names.push_back(definition.first);
  for (const char* builtIn : kBuiltIns) names.push_back(builtIn);
  return names;
}

std::string Checker::defaultExpression(const std::string& variable) const {
  auto range = definitions.equal_range(variable);
  for (auto it = range.first; it != range.second; ++it) {
    if (it->second.source != Definition::kDefValue) continue;
    const std::string* type = value(it->second.element, "DataType");
    if (!type || lower(*type).compare(0, 5, "value") != 0) continue;
    size_t leading = 0;
    return textOf(it->second.element, &leading);
  }
  return "";
}

int Checker::textHoldsFolder(const std::string& text, int depth) const {
  if (text.empty()) return 0;
  char first = text[0];
  if (first == '/' || first == '\\') return 1;
  if (text.size() >= 2 && std::isalpha(static_cast<unsigned char>(first)) && text[1] == ':') return 1;
  if (first == '[') {
    size_t close = text.find(']');
    return close == std::string::npos ? 0 : holdsFolder(text.substr(1, close - 1), depth);
  }
  if (first == '$') {
    size_t end = 1;
    while (end < text.size() && (std::isalnum(static_cast<unsigned char>(text[end])) || text[end] == '_')) end++;
    return holdsFolder(text.substr(1, end - 1), depth);
  }
  return 0;
}

int Checker::holdsFolder(const std::string& variable, int depth) const {
  if (depth > 20) return -1;
  if (variable.empty()) return 0;
  if (variable[0] == '$') return -1;  // the process's environment: can't be told
  if (sameNoCase(variable, "INSTALLER_DIR")) return 1;
  if (isBuiltIn(variable)) return 0;
  auto range = definitions.equal_range(variable);
  if (range.first == range.second) return -1;  // unknown: reported as such
  int result = 0;
  for (auto it = range.first; it != range.second; ++it) {
    const Definition& definition = it->second;
    if (definition.source == Definition::kDirectoryField) return 1;
    if (definition.source != Definition::kDefValue) continue;
    const std::string* type = value(definition.element, "DataType");
    std::string t = type ? lower(*type) : "";
    if (t.compare(0, 8, "registry") == 0 || t.compare(0, 10, "installvar") == 0) return -1;
    if (t.compare(0, 5, "value") != 0) continue;
    size_t leading = 0;
    int holds = textHoldsFolder(textOf(definition.element, &leading), depth + 1);
    if (holds != 0) return holds;
  }
  return result;
}

std::string Checker::resolved(const std::string& text, int depth) const {
  if (depth > 20) return text;
  std::string out;
  for (size_t i = 0; i < text.size(); i++) {
    char c = text[i];
    size_t end = std::string::npos;
    std::string variable;
    if (c == '[') {
      end = text.find(']', i);
      if (end != std::string::npos) variable = text.substr(i + 1, end - i - 1);
    } else if (c == '$') {
      end = i + 1;
      while (end < text.size() && (std::isalnum(static_cast<unsigned char>(text[end])) || text[end] == '_')) end++;
      variable = text.substr(i + 1, end - i - 1);
      end--;
    }
    if (variable.empty()) {
      out += c;
      continue;
    }
    std::string expression = defaultExpression(variable);
    out += expression.empty() ? "<" + variable + ">" : resolved(expression, depth + 1);
    i = end;
  }
  return out;
}

void Checker::checkDefaultsOrder() {
  // The first pass declares, empty, every variable whose entry doesn't keep
  // an old value; the second works the entries out in order. A $NAME that no
  // entry above has worked out is empty, or fails the entry.
  std::set<std::string> declared, worked;
  std::vector<int> entries;
  for (size_t i = 0; i < nodes.size(); i++)
    if (described[i] && std::strcmp(described[i]->name, "Value") == 0) entries.push_back(static_cast<int>(i));
  for (int entry : entries) {
    const std::string* useOld = value(entry, "UseOld");
    const std::string* variable = value(entry, "Name");
    if (variable && (!useOld || (*useOld)[0] == '0')) declared.insert(*variable);
  }
  for (int entry : entries) {
    const std::string* type = value(entry, "DataType");
    const std::string* variable = value(entry, "Name");
    if (type && lower(*type).compare(0, 5, "value") == 0) {
      size_t leading = 0;
      std::string text = textOf(entry, &leading);
      std::vector<TextIssue> issues;
      std::vector<VariableUse> uses;
      findDollarReferences(text, &issues, &uses);
      PositionFn where = textPlace(entry, leading);
      for (const VariableUse& use : uses) {
        if (worked.count(use.name) || isBuiltIn(use.name)) continue;
        if (declared.count(use.name))
          language(where(use.offset), "$" + use.name + " is still empty here: DefValues entries are worked out in order",
                   "move the entry for " + use.name + " above this one");
        else if (definitions.count(use.name))
          language(where(use.offset), "$" + use.name + " is not defined yet here, so this entry is passed over",
                   "move the entry for " + use.name + " above this one");
        else {
          std::string guess = closestName(use.name, variableNames());
          language(where(use.offset), "unknown variable $" + use.name + ": the entry is passed over",
                   guess.empty() ? "define it in DefValues" : "did you mean $" + guess + "?");
        }
      }
    }
    if (variable) worked.insert(*variable);
  }
}

void Checker::checkVariables() {
  auto report = [&](const Use& use, bool inCondition) {
    if (use.name.empty()) {
      language(use.where, "an empty reference []", "write [NAME]");
      return;
    }
    if (use.name[0] == '$' || isDefined(use.name)) return;
    for (const char* tag : kSometimesSet) {
      auto control = controlVariables.find(tag);
      if (control != controlVariables.end() && control->second == use.name) {
        language(use.where, use.name + " has no default: the engine sets it only when it has something to say, and "
                                       "until then " + (inCondition ? "a condition on it counts as true" : "it stays as written"),
                 "add <Value Name=\"" + use.name + "\" DataType=\"value\">0</Value> to DefValues");
        return;
      }
    }
    std::string guess = closestName(use.name, variableNames());
    std::string consequence = inCondition ? ": the condition counts as true" : ": the text keeps [" + use.name + "]";
    language(use.where, "unknown variable [" + use.name + "]" + consequence,
             guess.empty() ? "define it in DefValues"
             : lower(guess) == lower(use.name) ? "names of variables are compared with case: write [" + guess + "]"
                                               : "did you mean [" + guess + "]?");
  };
  for (const Use& use : conditionUses) report(use, true);
  for (const Use& use : textUses) report(use, false);
}

// ---------------------------------------------------------------------------
// Pages

const Page* Checker::findPage(const std::string& pageName, bool uninstall) const {
  for (const Page& page : pages)
    if (page.name == pageName && page.uninstall == uninstall) return &page;
  return nullptr;
}

std::vector<Page> Checker::walkOrder(bool uninstall) const {
  std::vector<Page> order;
  for (const Page& page : pages) {
    if (page.uninstall != uninstall || page.frame >= 0) continue;
    order.push_back(page);
    if (!(page.flags & kHasSubDialogs)) continue;
    // Sub-dialogs come in the order of the task list.
    for (int child : nodes[static_cast<size_t>(page.element)].children) {
      if (name(child) != "TaskList") continue;
      for (int task : nodes[static_cast<size_t>(child)].children) {
        for (const Page& sub : pages)
          if (sub.frame == page.element && sub.name == name(task)) order.push_back(sub);
      }
    }
  }
  return order;
}

bool Checker::pageHasList(int page, const char* listName) const {
  for (int child : nodes[static_cast<size_t>(page)].children) {
    const std::string* controlName = value(child, "Name");
    if (name(child) == "List" && controlName && sameNoCase(*controlName, listName)) return true;
  }
  return false;
}

void Checker::checkPages() {
  int dialogs = -1, uninstallDialogs = -1;
  for (size_t i = 0; i < nodes.size(); i++) {
    if (skipped[i] || !described[i]) continue;
    if (std::strcmp(described[i]->name, "Dialogs") == 0 && dialogs < 0) dialogs = static_cast<int>(i);
    if (std::strcmp(described[i]->name, "UninstallDialogs") == 0 && uninstallDialogs < 0)
      uninstallDialogs = static_cast<int>(i);
  }
  // Sections the installer can't do without.
  for (const char* section : {"ProductDesc", "Dialogs", "DefValues"}) {
    bool found = false;
    for (const SourceElement& node : nodes) found |= node.name == section;
    if (!found && !nodes.empty())
      language(at(0), std::string("the template has no ") + section + ": the installer stops at once");
  }

  int count = 0;
  const templatelang::SpecialPage* special = templatelang::specialPages(&count);
  std::vector<std::string> specialNames;
  for (int k = 0; k < count; k++) specialNames.push_back(special[k].name);
  // A page named like a special page but for its case does no work.
  for (const Page& page : pages) {
    for (const std::string& known : specialNames) {
      if (page.name != known && sameNoCase(page.name, known))
        language(at(page.element), "the page " + page.name + " does no work: page names are compared with case",
                 "write " + known);
    }
  }
  // The hint for a missing page: a page whose name is a slip of it.
  auto missing = [&](const std::string& wanted, bool uninstall, int section, const std::string& message) {
    std::vector<std::string> names;
    for (const Page& page : pages)
      if (page.uninstall == uninstall) names.push_back(page.name);
    std::string guess = closestName(wanted, names);
    const Page* near = guess.empty() ? nullptr : findPage(guess, uninstall);
    SourcePosition where = near ? at(near->element) : section >= 0 ? at(section) : at(0);
    language(where, message, near ? "did you mean " + wanted + "? The page " + guess + " does no work"
                                  : "add a page <" + wanted + " Special=\"AutoNext\"/> where the work should be done");
  };

  bool installsFiles = false;
  for (const InstalledFile& file : expanded.installed) installsFiles |= !file.dest.empty();
  if (installsFiles && !findPage("CopyProgress", false))
    missing("CopyProgress", false, dialogs,
            "the template installs files, but no page of Dialogs is named CopyProgress: nothing would be installed");

  bool uninstallCommand = expanded.autoUninstall;
  for (size_t i = 0; i < nodes.size(); i++) {
    if (!described[i]) continue;
    uninstallCommand |= std::strcmp(described[i]->name, "UninstallCmd") == 0;
    uninstallCommand |= std::strcmp(described[i]->name, "Uninstall") == 0 && xml.attribute(static_cast<int>(i), "Auto");
  }
  const Page* registers = findPage("RegisterApplication", false);
  if (uninstallCommand && !registers)
    missing("RegisterApplication", false, dialogs,
            "the template names an uninstaller, but no page is named RegisterApplication: the product would not be "
            "registered, and can't be removed through the list of installed programs");
  if (registers) {
    // The registration needs every one of these, or it silently makes no
    // entry at all.
    for (const char* needed : {"Fullname", "MajorVersion", "MinorVersion", "MinestVersion", "Website"}) {
      bool found = false;
      for (size_t i = 0; i < nodes.size(); i++) {
        size_t leading = 0;
        found |= described[i] && nodes[i].name == needed && !textOf(static_cast<int>(i), &leading).empty();
      }
      if (!found)
        language(at(registers->element),
                 std::string("RegisterApplication makes no entry without the product's ") + needed,
                 std::string("give <") + needed + "> in ProductDesc");
    }
  }
  if (registers && !uninstallCommand)
    language(at(registers->element), "RegisterApplication registers nothing: the template names no UninstallCmd",
             "use <Uninstall Auto=\"1\"/>, or give UninstallCmd");
  if (registers) {
    if (uninstallDialogs < 0) {
      language(at(registers->element),
               "the product is registered with an uninstall command, but the template has no UninstallDialogs: the "
               "uninstaller would remove nothing",
               "add UninstallDialogs with a page CopyProgress");
    } else {
      if (!findPage("CopyProgress", true))
        missing("CopyProgress", true, uninstallDialogs,
                "no page of UninstallDialogs is named CopyProgress: the uninstaller would remove nothing");
      if (!findPage("UnregisterApplication", true))
        advice(at(uninstallDialogs), "no page of UninstallDialogs is named UnregisterApplication: the product stays "
                                     "in the list of installed programs after it has been removed",
               "add <UnregisterApplication Special=\"AutoNext\"/>");
    }
  }
  for (bool uninstall : {false, true}) {
    int section = uninstall ? uninstallDialogs : dialogs;
    if (section < 0) continue;
    bool finish = false;
    for (const Page& page : pages) finish |= page.uninstall == uninstall && (page.flags & kFinish);
    if (!finish)
      advice(at(section), "no page of " + name(section) + " has Special=\"Finish\": the wizard ends with an error "
                                                          "behind its last page",
             "give the last page Special=\"Finish\"");
  }
}

void Checker::checkUninstallData() {
  int uninstall = -1;
  for (size_t i = 0; i < nodes.size(); i++)
    if (described[i] && std::strcmp(described[i]->name, "Uninstall") == 0 && uninstall < 0)
      uninstall = static_cast<int>(i);
  bool installsFiles = false;
  for (const InstalledFile& file : expanded.installed) installsFiles |= !file.dest.empty();
  if (uninstall < 0) {
    if (installsFiles && !nodes.empty())
      advice(at(0), "the template has no Uninstall data: the installation can't be uninstalled",
             "add <Uninstall Auto=\"1\"/> to Installation");
    return;
  }
  if (expanded.autoUninstall || xml.attribute(uninstall, "Auto")) return;

  // Where each installed file lands, as far as the template tells.
  std::set<std::string> places;
  for (const InstalledFile& file : expanded.installed) {
    if (file.dest.empty()) continue;
    std::string folder = normalPath(resolved(file.dest, 0));
    places.insert(folder + "/" + file.name);
    if (file.stripExeExt && file.name.size() > 4 && lower(file.name.substr(file.name.size() - 4)) == ".exe")
      places.insert(folder + "/" + file.name.substr(0, file.name.size() - 4));
  }
  // What the uninstaller's wildcards remove, as folder and pattern.
  std::vector<std::pair<std::string, std::string>> wildcards;
  for (size_t i = 0; i < nodes.size(); i++) {
    int up = nodes[i].parent;
    if (up < 0 || !described[i] || std::strcmp(described[i]->name, "@wildcard") != 0 ||
        !value(static_cast<int>(i), "Dest"))
      continue;
    size_t leading = 0;
    wildcards.push_back({normalPath(resolved(*value(static_cast<int>(i), "Dest"), 0)), textOf(static_cast<int>(i), &leading)});
  }

  struct Place {
    const char* tag;
    bool wildcardsDo;
    const char* problem;
    const char* fix;
  } kPlaces[] = {
      {"InstallLogFile", true, "nothing installs the action log's place %s: uninstalling would leave the log behind",
       "list a placeholder for it in a FileSet, or use <Uninstall Auto=\"1\"/>"},
      {"InstallBackupFile", true, "nothing installs the backup's place %s: uninstalling would leave it behind",
       "list a placeholder for it in a FileSet, or use <Uninstall Auto=\"1\"/>"},
      {"UninstallXmlFile", false, "no FN installs the template at %s: the uninstaller could not start",
       "add <FN Dest=\"FOLDER\">install.xml</FN>, or use <Uninstall Auto=\"1\"/>"},
      {"UninstallCmd", false, "no FN installs the uninstaller at %s: the registered command would find no program",
       "install the installer program there (Executable, and StripExeExt for a .exe on Linux), or use <Uninstall "
       "Auto=\"1\"/>"},
  };
  bool hasLog = false;
  for (int child : nodes[static_cast<size_t>(uninstall)].children) {
    for (const Place& place : kPlaces) {
      if (name(child) != place.tag) continue;
      size_t leading = 0;
      std::string text = textOf(child, &leading);
      if (text.empty()) continue;
      if (name(child) == std::string("InstallLogFile")) hasLog = true;
      std::string path = normalPath(resolved(text, 0));
      bool filled = places.count(path) > 0;
      if (!filled && place.wildcardsDo) {
        size_t slash = path.rfind('/');
        std::string folder = slash == std::string::npos ? "" : path.substr(0, slash);
        std::string fileName = path.substr(slash + 1);
        for (const auto& wildcard : wildcards) filled |= wildcard.first == folder && packtext::matchPattern(wildcard.second, fileName);
      }
      if (filled) continue;
      char message[2048];
      std::snprintf(message, sizeof message, place.problem, text.c_str());
      language(textPlace(child, leading)(0), message, place.fix);
    }
  }
  if (installsFiles && !hasLog)
    advice(at(uninstall), "Uninstall has no InstallLogFile: the installation can't be uninstalled",
           "give InstallLogFile, or use <Uninstall Auto=\"1\"/>");
}

void Checker::checkFileKeys() {
  std::set<std::string> keys;
  std::vector<std::string> names;
  for (const PackEntry& entry : expanded.entries) {
    keys.insert(entry.key);
    names.push_back(entry.key);
  }
  keys.insert("install.xml");
  for (const auto& key : fileKeys) {
    if (keys.count(key.first)) continue;
    std::string guess = closestName(key.first, names);
    language(key.second, "no file is packed under the key '" + key.first + "': the wizard shows nothing here",
             guess.empty() ? "add <FN Alias=\"" + key.first + "\">path/of/the/file</FN> to a FileSet"
                           : "did you mean '" + guess + "'?");
  }
}

void Checker::checkWindowTraps() {
  std::string installError = controlVariables.count("InstallError") ? controlVariables["InstallError"] : "";
  std::string uninstallError = controlVariables.count("UninstallError") ? controlVariables["UninstallError"] : "";
  for (bool uninstall : {false, true}) {
    std::vector<Page> order = walkOrder(uninstall);
    bool afterWork = false;
    const Page* previous = nullptr;
    for (const Page& page : order) {
      int frame = page.frame;
      // A RunningApps page shows the programs it waits for in the list
      // named Destfilelist, on the page or on its frame.
      if (page.name == "RunningApps") {
        bool list = pageHasList(page.element, kErrorList) || (frame >= 0 && pageHasList(frame, kErrorList));
        bool misnamed = false;  // a List stands there under another name: that is the one finding
        for (int child : nodes[static_cast<size_t>(page.element)].children) {
          const std::string* controlName = value(child, "Name");
          if (name(child) == "List" && !(controlName && sameNoCase(*controlName, kErrorList))) {
            misnamed = true;
            language(at(child), "a List on the RunningApps page shows the running programs only when it is named " +
                                    std::string(kErrorList),
                     "give it Name=\"Destfilelist\"");
          }
        }
        if (!list && !misnamed)
          advice(at(page.element), "the RunningApps page has no List named Destfilelist: the window can't show which "
                                   "programs hold the installation",
                 "add <List Name=\"Destfilelist\" x=\"...\" y=\"...\" w=\"...\" h=\"...\"/>");
      }
      // The window never goes back into work that has run: a Back button
      // behind the file stage is dead.
      if (afterWork) {
        for (int holder : {page.element, frame}) {
          if (holder < 0) continue;
          for (int child : nodes[static_cast<size_t>(holder)].children) {
            const std::string* buttonName = value(child, "Name");
            const std::string* shift = value(child, "DialogShift");
            bool back = name(child) == "Button" &&
                        ((buttonName && (sameNoCase(*buttonName, "Back") || sameNoCase(*buttonName, "Express"))) ||
                         (shift && std::atoi(shift->c_str()) < 0));
            if (back && !value(child, "Condition")) {
              advice(at(child), "this Back button stands on " + page.name + ", behind the page CopyProgress: the "
                                "window disables it once the files are in, since going back would install them "
                                "again",
                     "leave it out");
              afterWork = false;  // one warning for the run of pages
            }
          }
          if (!afterWork) break;
        }
      }
      if (page.name == "CopyProgress") afterWork = true;
      // An error page shows the list of errors where the window puts it.
      const std::string* condition = value(page.element, "Condition");
      std::string errorVariable = uninstall ? uninstallError : installError;
      // Pages that do work show their own lines; Finish and BadFinish list
      // the errors.
      bool workPage = false;
      int specialCount = 0;
      const templatelang::SpecialPage* special = templatelang::specialPages(&specialCount);
      for (int k = 0; k < specialCount; k++) workPage |= page.name == special[k].name;
      bool errorPage = page.name == "BadFinish" ||
                       (!workPage && condition && !errorVariable.empty() &&
                        condition->find("[" + errorVariable + "]==1") != std::string::npos);
      if (errorPage) {
        // Finish and BadFinish list the errors again; another error page
        // shows the list the file stage filled, which lives on only on the
        // frame, or when the page before it retains it.
        bool onFrame = frame >= 0 && pageHasList(frame, kErrorList);
        bool listsErrors = page.name == "BadFinish" || page.name == "Finish";
        const std::string* retain = previous ? value(previous->element, "Retain") : nullptr;
        bool retained = retain && lower(*retain).find("destfilelist") != std::string::npos;
        bool shown = onFrame || (pageHasList(page.element, kErrorList) && (listsErrors || retained));
        if (!shown)
          advice(at(page.element), "the error page " + page.name + " doesn't show the list of errors",
                 listsErrors ? "add <List Name=\"Destfilelist\" .../>: the page lists the errors in it"
                             : "keep the file stage's list: Retain=\"Destfilelist\" on the page before it, and a List "
                               "Name=\"Destfilelist\" here");
      }
      previous = &page;
    }
  }
}

void Checker::run() {
  if (nodes.empty()) return;
  assignRoles();
  describeElements();
  collectDefinitions();
  checkElements();
  checkDefaultsOrder();
  checkVariables();
  checkPages();
  checkUninstallData();
  checkFileKeys();
  checkWindowTraps();
}

}  // namespace

void checkTemplate(const XmlSource& xml, const ExpandedTemplate& expanded, Findings* findings) {
  Checker(xml, expanded, findings).run();
}
