// The syntax of the texts a template computes with, checked as the template
// writes them: conditions, button actions, and the two forms of variable
// reference. The installer's evaluator never reports an error (a broken
// condition counts as true, and what follows a complete expression is
// ignored); these checks read the same grammar strictly, so that the package
// builder can say where a text goes wrong and how to write it.
//
// A condition is checked before its [NAME] references are replaced, as the
// template holds it: a reference outside quotes stands for a number, one
// inside quotes is part of a text.
#ifndef QLUX_TOOLS_PACK_CONDITION_CHECK_H_
#define QLUX_TOOLS_PACK_CONDITION_CHECK_H_

#include <string>
#include <vector>

struct TextIssue {
  size_t offset;  // byte offset in the checked text
  std::string message;
  std::string hint;    // may be empty
  bool tolerated;      // the installer reads it as meant (a ')' or quote left out at the end)
};

struct VariableUse {
  std::string name;  // as written between the brackets (or behind the '$')
  size_t offset;     // of the '[' (or '$')
  bool quoted;       // inside a quoted text of a condition
};

// Checks a condition. `issues` gets what is wrong, `uses` every [NAME].
void checkCondition(const std::string& text, std::vector<TextIssue>* issues, std::vector<VariableUse>* uses);

// Checks a button's Action: Cancel, Help, or assignments [NAME]='value'
// separated by ';'. `assigned` gets the names the assignments set.
void checkAction(const std::string& text, std::vector<TextIssue>* issues, std::vector<VariableUse>* assigned);

// The [NAME] references of a text that the installer expands. A '[' without
// a ']' is an issue.
void findReferences(const std::string& text, std::vector<TextIssue>* issues, std::vector<VariableUse>* uses);

// The $NAME references of a DefValues expression. A '$' with no name behind
// it makes the installer drop the entry: an issue.
void findDollarReferences(const std::string& text, std::vector<TextIssue>* issues, std::vector<VariableUse>* uses);

#endif  // QLUX_TOOLS_PACK_CONDITION_CHECK_H_
