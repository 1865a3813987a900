// Tests of the condition and action checks: what the evaluator reads as
// meant passes, and each trap is named at its offset.
#include "tools/pack/condition_check.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// The first issue as "offset:message", or "" when the text is right.
std::string firstIssue(const std::string& condition) {
  std::vector<TextIssue> issues;
  std::vector<VariableUse> uses;
  checkCondition(condition, &issues, &uses);
  return issues.empty() ? "" : std::to_string(issues[0].offset) + ":" + issues[0].message;
}

TEST(ConditionCheckTest, TheLanguageReadsInFull) {
  // What the evaluator reads as meant passes.
  for (const char* good : {"", "0", "[A]==1,[B]==1", "[A]==1;[B]==1", "[A]==1,([B]==1;[A]==1)", "'[T]'=='abc'",
                           "([A]==1)==0", "0x10==16", "010==8", " [A] <= 3 , [B] >= 0x1F ", "'a'<1",
                           "[GUI_INSTALL]==1,([DIRECTORY_VALID_0]==0;[DIRECTORY_VALID_1]==0)",
                           "'[DATA_ROOT]'!='[PREVIOUS_DATA_ROOT]'"}) {
    EXPECT_EQ("", firstIssue(good)) << good;
  }
  // Each fault at its place, where the evaluator would have given up or
  // stopped reading.
  EXPECT_EQ("4:a single '=' is no comparison", firstIssue("[A] = 1"));
  EXPECT_EQ("0:there is no NOT", firstIssue("!1"));
  EXPECT_EQ("7:'&&' is no operator", firstIssue("[A]==1 && [B]==1"));
  EXPECT_EQ("7:'||' is no operator", firstIssue("[A]==1 || [B]==1"));
  EXPECT_EQ("7:'OR' is no operator", firstIssue("[A]==1 OR [B]==1"));
  EXPECT_EQ("5:a text must be in quotes", firstIssue("[A]==abc"));
  EXPECT_EQ("5:texts are quoted with ', not \"", firstIssue("[A]==\"x\""));
  EXPECT_EQ("7:an operand is missing here", firstIssue("[A]==1,"));
  EXPECT_EQ("4:')' without '('", firstIssue("1==1)"));
  // "1==1==0" counts as true: the rest isn't read.
  EXPECT_EQ("6:'=' can't stand here", firstIssue("[A]==1==0"));
  EXPECT_EQ("0:the reference has no ']'", firstIssue("[A==1"));
  EXPECT_EQ("2:unexpected 'x': the condition ends before it", firstIssue("1 x"));
  EXPECT_EQ("0:there is no 'true'", firstIssue("true"));
}

TEST(ConditionCheckTest, WhatTheEvaluatorForgivesIsNoted) {
  std::vector<TextIssue> issues;
  std::vector<VariableUse> uses;
  checkCondition("([A]==1", &issues, &uses);
  ASSERT_EQ(1u, issues.size());
  EXPECT_TRUE(issues[0].tolerated);
  EXPECT_EQ(0u, issues[0].offset);
  issues.clear();
  checkCondition("'[T]'=='abc", &issues, &uses);
  ASSERT_EQ(1u, issues.size());
  EXPECT_TRUE(issues[0].tolerated);
}

TEST(ConditionCheckTest, ReferencesAreFoundWithTheirPlaces) {
  std::vector<TextIssue> issues;
  std::vector<VariableUse> uses;
  checkCondition("[A]==1,'[T]'=='x'", &issues, &uses);
  ASSERT_EQ(2u, uses.size());
  EXPECT_EQ("A", uses[0].name);
  EXPECT_FALSE(uses[0].quoted);
  EXPECT_EQ("T", uses[1].name);
  EXPECT_EQ(8u, uses[1].offset);
  EXPECT_TRUE(uses[1].quoted);

  uses.clear();
  findDollarReferences("$ROOT/a_$SUB2/b", &issues, &uses);
  ASSERT_EQ(2u, uses.size());
  EXPECT_EQ("SUB2", uses[1].name);
  EXPECT_EQ(8u, uses[1].offset);
  findDollarReferences("US$ 5", &issues, &uses);
  ASSERT_EQ(1u, issues.size());
  EXPECT_EQ(2u, issues[0].offset);
}

TEST(ConditionCheckTest, ActionsAreAssignmentsOrOneCommand) {
  std::vector<TextIssue> issues;
  std::vector<VariableUse> assigned;
  checkAction("[A]='1';[B]='two words'", &issues, &assigned);
  EXPECT_TRUE(issues.empty());
  ASSERT_EQ(2u, assigned.size());
  EXPECT_EQ("B", assigned[1].name);

  checkAction("Cancel", &issues, &assigned);
  EXPECT_TRUE(issues.empty());
  checkAction("Cancel;[A]='1'", &issues, &assigned);
  ASSERT_EQ(1u, issues.size());
  EXPECT_NE(std::string::npos, issues[0].message.find("what follows it is not done"));

  issues.clear();
  checkAction("[A]=1", &issues, &assigned);
  ASSERT_EQ(1u, issues.size());
  EXPECT_EQ("an assignment's value stands between two single quotes", issues[0].message);
  issues.clear();
  checkAction("A='1'", &issues, &assigned);
  ASSERT_EQ(1u, issues.size());
  EXPECT_EQ("an assignment names its variable in brackets", issues[0].message);
}

}  // namespace
