// Command lines as Windows knows them, on every system. A command line is
// one text; the program that it starts gets it split into words by the
// rules of CommandLineToArgvW. The installer builds every command line it
// starts with quoteCommandWord, and on Linux splits it with
// splitCommandLine and starts the program with that argument list, so that
// no shell ever reads a path, a product name or a template's arguments: a
// '$', '`', ';' or newline in them is a character like any other.
//
// The rules of the split: words are separated by blanks and TABs outside
// double quotes. The first word is the program: it runs to the next blank,
// or, when it begins with a double quote, to the next double quote, with no
// escapes. In the other words a double quote toggles quoting and is
// dropped; 2n backslashes before a double quote give n backslashes, 2n+1
// give n and a literal double quote; backslashes anywhere else are
// literal; in quotes, a double quote right behind the one that ends them
// is a literal one, and quoting ends there.
#ifndef QLUX_FOUNDATION_COMMAND_LINE_H_
#define QLUX_FOUNDATION_COMMAND_LINE_H_

#include <string>
#include <vector>

namespace QUtils {

// `word` in double quotes, escaped so that the split gives it back whole:
// a double quote gets a backslash, as do the backslashes in front of one or
// at the end. A word that is a program (the first one) must hold no double
// quote: the split takes none from it.
std::string quoteCommandWord(const char* word);

// The words of a whole command line, the program first.
std::vector<std::string> splitCommandLine(const char* line);
// The words of a text of arguments alone (no program in front).
std::vector<std::string> splitCommandArguments(const char* text);

// The words as one text in the syntax that Parameters reads (the program
// first, then -name=value options): a word or value that holds a blank, a
// TAB or a double quote is quoted, with the escape byte before each double
// quote inside. The program's name, which Parameters passes over, is
// quoted without the double quotes it may hold.
std::string toParameterText(const std::vector<std::string>& words, char escape);

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_COMMAND_LINE_H_
