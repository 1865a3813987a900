// Tests of command-line parsing: options with and without values, quoting,
// where the parse ends, and reading values by type.
#include "foundation/parameters.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace QUtils {
namespace {

const char kEscape = kCommandLineEscape;

// "name=value" of every option, joined with blanks, for compact checks.
std::string listOf(const Parameters& parameters) {
  std::string text;
  for (int i = 0; i < parameters.getCount(); i++) {
    if (i) text += ' ';
    text += parameters.get(i)->name;
    text += '=';
    text += parameters.get(i)->value;
  }
  return text;
}

TEST(ParametersTest, OptionsWithAndWithoutValues) {
  Parameters a;
  EXPECT_EQ(0, a.parseArguments("-debug=1 -gui=0", kEscape));
  EXPECT_EQ("debug=1 gui=0", listOf(a));

  // A second dash and blanks round the '=' are accepted.
  Parameters b;
  EXPECT_EQ(0, b.parseArguments("  --gui = 0", kEscape));
  EXPECT_EQ("gui=0", listOf(b));

  // Options without values, the last one ending the text with no blank.
  Parameters c;
  EXPECT_EQ(0, c.parseArguments("-a -b", kEscape));
  ASSERT_EQ(2, c.getCount());
  EXPECT_STREQ("", c.get(1)->value);
  int number = 5;
  EXPECT_TRUE(c.getInteger("a", &number));
  EXPECT_EQ(0, number);
  number = 5;
  EXPECT_TRUE(c.getInteger("b", &number));
  EXPECT_EQ(0, number);

  Parameters empty;
  EXPECT_EQ(0, empty.parseArguments(" \t ", kEscape));
  EXPECT_EQ(0, empty.getCount());
  EXPECT_EQ(nullptr, empty.get(0));
}

TEST(ParametersTest, WordWithoutDashEndsTheParse) {
  Parameters parameters;
  EXPECT_EQ(-1, parameters.parseArguments("-a=1 file -b=2", kEscape));
  EXPECT_EQ("a=1", listOf(parameters));
  EXPECT_EQ(-1, parameters.find("b", -1));
}

TEST(ParametersTest, QuotedValues) {
  Parameters plain;
  EXPECT_EQ(0, plain.parseArguments("-path=\"C:\\Program Files\\x\" -next", kEscape));
  EXPECT_EQ("path=C:\\Program Files\\x next=", listOf(plain));

  // A quote before the dash quotes the value up to the closing quote.
  Parameters whole;
  EXPECT_EQ(0, whole.parseArguments("\"-path=C:\\Program Files\\x\" -next=1", kEscape));
  EXPECT_EQ("path=C:\\Program Files\\x next=1", listOf(whole));

  // A quoted option without a value.
  Parameters flag;
  EXPECT_EQ(0, flag.parseArguments("\"-gui\" -quiet=1", kEscape));
  EXPECT_EQ("gui= quiet=1", listOf(flag));

  // The escape byte keeps a quote in the value and is itself removed.
  Parameters escaped;
  std::string text = std::string("-a=\"x") + kEscape + "\"y\" -b";
  EXPECT_EQ(0, escaped.parseArguments(text.c_str(), kEscape));
  EXPECT_EQ("a=x\"y b=", listOf(escaped));

  Parameters unterminated;
  EXPECT_EQ(-2, unterminated.parseArguments("-first -a=\"unterminated", kEscape));
  EXPECT_EQ("first=", listOf(unterminated));
  EXPECT_EQ(-1, unterminated.find("a", -1));
}

TEST(ParametersTest, CommandLineSkipsTheProgramName) {
  Parameters quoted;
  EXPECT_EQ(0, quoted.parseCommandLine("\"C:\\Program Files\\setup.exe\" -gui=0", kEscape));
  EXPECT_EQ("gui=0", listOf(quoted));

  Parameters bare;
  EXPECT_EQ(0, bare.parseCommandLine("  /opt/qlux-setup\t-auto -bin=pkg.bin", kEscape));
  EXPECT_EQ("auto= bin=pkg.bin", listOf(bare));

  Parameters alone;
  EXPECT_EQ(0, alone.parseCommandLine("setup.exe", kEscape));
  EXPECT_EQ(0, alone.getCount());

  // An unclosed quote takes the whole text as the name.
  Parameters open;
  EXPECT_EQ(0, open.parseCommandLine("\"setup.exe -gui=0", kEscape));
  EXPECT_EQ(0, open.getCount());
}

TEST(ParametersTest, LookUps) {
  Parameters parameters;
  ASSERT_EQ(0, parameters.parseArguments("-ignoreErrors=1 -n=  42abc -IGNOREERRORS=0 -m=-7 -t=abc", kEscape));

  // Names ignore case; the first of two counts.
  EXPECT_EQ(0, parameters.find("IgnoreErrors", -1));
  EXPECT_EQ(2, parameters.find("ignoreerrors", 0));
  EXPECT_EQ(-1, parameters.find("ignoreErrors", 2));
  EXPECT_EQ(-1, parameters.find("ignoreErrors", 99));
  EXPECT_EQ(-1, parameters.find("ignoreErrors", -5));
  int number = 0;
  EXPECT_TRUE(parameters.getInteger("IGNOREERRORS", &number));
  EXPECT_EQ(1, number);

  // getInteger reads the number a value begins with.
  EXPECT_TRUE(parameters.getInteger("n", &number));
  EXPECT_EQ(42, number);
  EXPECT_TRUE(parameters.getInteger("m", &number));
  EXPECT_EQ(-7, number);
  EXPECT_TRUE(parameters.getInteger("t", &number));
  EXPECT_EQ(0, number);
  number = 9;
  EXPECT_FALSE(parameters.getInteger("missing", &number));
  EXPECT_EQ(9, number);

  const char* text = nullptr;
  EXPECT_TRUE(parameters.getText("t", &text));
  EXPECT_STREQ("abc", text);
  EXPECT_TRUE(parameters.getText("t", nullptr));
  EXPECT_FALSE(parameters.getText("missing", &text));
  EXPECT_STREQ("abc", text);
}

TEST(ParametersTest, CheckedReading) {
  Parameters parameters;
  ASSERT_EQ(0, parameters.parseArguments("-b=1 -two=2 -bad=1x -i=-12 -f=2.5 -word=abc", kEscape));
  char text[512];

  bool flag = false;
  EXPECT_TRUE(parameters.get(0)->asBoolean(&flag, nullptr));
  EXPECT_TRUE(flag);
  ErrorChain errors;
  EXPECT_FALSE(parameters.get(1)->asBoolean(&flag, &errors));
  errors.toText(text, sizeof text);
  EXPECT_NE(nullptr, std::strstr(text, "Integer value of 0 or 1 expected for parameter 'two', but got '2'")) << text;
  ErrorChain errors2;
  EXPECT_FALSE(parameters.get(2)->asBoolean(&flag, &errors2));
  errors2.toText(text, sizeof text);
  EXPECT_NE(nullptr, std::strstr(text, "but got '1x'")) << text;
  EXPECT_FALSE(parameters.get(2)->asBoolean(&flag, nullptr));

  int32_t number = 0;
  EXPECT_TRUE(parameters.get(3)->asInteger(&number, nullptr));
  EXPECT_EQ(-12, number);
  ErrorChain errors3;
  EXPECT_FALSE(parameters.get(2)->asInteger(&number, &errors3));
  errors3.toText(text, sizeof text);
  EXPECT_NE(nullptr, std::strstr(text, "Integer value expected for parameter 'bad', but got '1x'")) << text;
  EXPECT_EQ(-12, number);

  float real = 0;
  EXPECT_TRUE(parameters.get(4)->asFloat(&real, nullptr));
  EXPECT_FLOAT_EQ(2.5f, real);
  ErrorChain errors4;
  EXPECT_FALSE(parameters.get(5)->asFloat(&real, &errors4));
  errors4.toText(text, sizeof text);
  EXPECT_NE(nullptr, std::strstr(text, "Floating point value expected for parameter 'word', but got 'abc'")) << text;
}

}  // namespace
}  // namespace QUtils
