// The template language: every element and attribute of "install.xml" that
// the engine reads or that the package builder expands, where each may stand,
// and what its value is. It is data only, in one place: the package builder
// checks templates against it (qlux-pack --check), the reference
// docs/template-reference.md is generated from it, and a test holds it
// against the names the engine's sources look up, so that the three can't
// drift apart.
//
// Where an element may stand is a list of parents. A parent is a tag, or one
// of the roles below for the elements whose tag the template chooses:
//
//   @dialog     a child of Dialogs or UninstallDialogs: a page, named freely
//   @subdialog  a child of SubDialogs, named by its task
//   @page       @dialog or @subdialog
//   @task       a child of TaskList; its tag names a sub-dialog
//   @tag        a section of actions that run together: AdditionalInstall,
//               PostInstall, PreUninstall, or one a RunActions trigger names
//
// An entry whose name starts with '@' is such a role itself; `names` then
// lists the tags it may have (null: any).
//
// Nothing here is read by the installer at run time; a program that doesn't
// call these functions doesn't carry the tables.
#ifndef QLUX_ENGINE_TEMPLATE_LANGUAGE_H_
#define QLUX_ENGINE_TEMPLATE_LANGUAGE_H_

namespace templatelang {

// What a value (an attribute's, or an element's text) is, and so how it is
// checked and how the reference describes it.
enum class Kind {
  kNone,         // no value: an element that only holds others
  kLiteral,      // text taken as it stands; a [NAME] in it is not replaced
  kText,         // text in which [NAME] references are replaced
  kPath,         // a file or program path with [NAME] references
  kFolder,       // a destination folder: absolute, or starting with a variable that holds one
  kSourcePath,   // a path below the builder's source folder; qlux-pack expands wildcards
  kPattern,      // a wildcard pattern ('*', '?')
  kCondition,    // a condition of the condition language
  kExpression,   // a value with $NAME references (DefValues)
  kAction,       // a button's Action: Cancel, Help, or [NAME]='value' assignments
  kFlag,         // counts by being there, whatever its value
  kOne,          // a number; only 1 switches it on
  kNotZero,      // on, unless its value starts with '0' (an empty value is on)
  kInteger,      // a decimal number, a sign allowed
  kChoice,       // one of `choices`
  kWords,        // words of `choices`, separated by ';'
  kColour,       // 0xRRGGBB in hexadecimal, or Group:NAME of the colour theme
  kVariable,     // the name of a template variable
  kFileKey,      // the key of a packed file (an FN's Alias, or its path without separators)
  kSection,      // the tag of a section of actions
  kNames,        // names of page controls, separated by ';'
  kDetails,      // key=number pairs, separated by ';'
  kName,         // a name of the system's (an environment variable, a program, a registry value)
};

// Bits of Attribute::flags and Element::flags.
const unsigned kRequired = 1;    // the element is passed over without it (for an element: the template needs it)
const unsigned kExactCase = 2;   // choices (attributes) or the tag (elements) are compared with case
const unsigned kBuilder = 4;     // read and expanded by qlux-pack; the installer never sees it
const unsigned kRepeats = 8;     // the element may stand more than once
const unsigned kTextRequired = 16;  // an element without text is passed over
const unsigned kUnread = 32;        // accepted in a template, and read by nothing

struct Attribute {
  const char* name;
  Kind kind;
  const char* choices;  // kChoice, kWords: the words, separated by ';'; else null
  unsigned flags;
  const char* summary;  // one or two sentences for the reference
};

struct Element {
  const char* name;     // the tag, or a role ("@dialog") for elements whose tag is free
  const char* parents;  // where it may stand: tags and roles, separated by ';'
  const char* names;    // for a role: the tags it may have, separated by ';' (null: any)
  Kind text;            // what its text is
  unsigned flags;
  const Attribute* attributes;
  int attributeCount;
  const char* summary;  // what it is and does, for the reference
  const char* example;  // a small XML example, or null
};

// Every element of the language, in the order of the reference.
const Element* elements(int* count);

// The entry for a tag standing under a parent of the given tag, or null if
// the language has no such element there. `parentRole` is the role the
// parent plays ("@dialog", "@subdialog", "@task", "@tag"), or null.
// Tags compare with case where the entry says so, else without.
const Element* findElement(const char* tag, const char* parentTag, const char* parentRole);

// The attribute of that name (without regard to case, as the engine reads
// attributes), or null.
const Attribute* findAttribute(const Element& element, const char* name);

// Whether `parents` (an Element's list) holds `parent`.
bool standsUnder(const Element& element, const char* parent);

// The pages whose names make the engine do work, with what it does.
struct SpecialPage {
  const char* name;
  const char* work;
};
const SpecialPage* specialPages(int* count);

// The names of page controls that the front ends fill, with what goes there.
struct ControlName {
  const char* name;
  const char* element;  // the element kind that carries it
  const char* use;
};
const ControlName* controlNames(int* count);

// The variables that every template has without defining them.
struct BuiltIn {
  const char* name;
  const char* value;
};
const BuiltIn* builtIns(int* count);

// A short word for a kind, as the reference's tables show it.
const char* kindName(Kind kind);

}  // namespace templatelang

#endif  // QLUX_ENGINE_TEMPLATE_LANGUAGE_H_
