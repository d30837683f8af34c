#include "platform/arg_option.h"

#include <initializer_list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using osmik::ArgOption;
using Words = std::vector<std::string>;

namespace {

bool parse(ArgOption* option, std::initializer_list<const char*> words) {
  std::vector<const char*> argv{"program"};
  argv.insert(argv.end(), words);
  return option->parseArgs(static_cast<int>(argv.size()), argv.data());
}

ArgOption parsed(std::initializer_list<const char*> words) {
  ArgOption option;
  option.setMaxValues("one", 1);
  option.setMaxValues("two", 2);
  option.setMaxValues("all", ArgOption::kAllValues);
  EXPECT_TRUE(parse(&option, words));
  return option;
}

}  // namespace

TEST(ArgOptionParse, WordsWithoutOptionAreKeptInOrderUnderEmptyKey) {
  const ArgOption option = parsed({"info", "a.kbag", "b.kbag"});
  EXPECT_EQ(option.getValue(""), (Words{"info", "a.kbag", "b.kbag"}));
  EXPECT_EQ(option.hasOption(""), 3);
}

TEST(ArgOptionParse, NoWordsLeaveEmptyKeyAbsent) {
  const ArgOption option = parsed({});
  EXPECT_LT(option.hasOption(""), 0);
  EXPECT_TRUE(option.getValue("").empty());
}

TEST(ArgOptionParse, AbsentOptionIsNegativeAndHasNoValues) {
  const ArgOption option = parsed({"word"});
  EXPECT_LT(option.hasOption("one"), 0);
  EXPECT_TRUE(option["one"].empty());
}

TEST(ArgOptionParse, FlagIsPresentWithoutValuesAndTakesNoWord) {
  const ArgOption option = parsed({"--flag", "info", "a.kbag"});
  EXPECT_EQ(option.hasOption("flag"), 0);
  EXPECT_EQ(option.getValue(""), (Words{"info", "a.kbag"}));
}

TEST(ArgOptionParse, OneAndTwoDashesNameTheSameKey) {
  EXPECT_EQ(parsed({"-one", "x"})["one"], Words{"x"});
  EXPECT_EQ(parsed({"--one", "x"})["one"], Words{"x"});
  EXPECT_EQ(parsed({"--h"}).hasOption("h"), 0);
  EXPECT_EQ(parsed({"-help"}).hasOption("help"), 0);
}

TEST(ArgOptionParse, OptionTakesAsManyWordsAsItMay) {
  const ArgOption option = parsed({"--one", "a", "b", "--two", "c", "d", "e"});
  EXPECT_EQ(option["one"], Words{"a"});
  EXPECT_EQ(option["two"], (Words{"c", "d"}));
  EXPECT_EQ(option.getValue(""), (Words{"b", "e"}));
}

TEST(ArgOptionParse, OptionOfAllWordsEndsAtTheNextOption) {
  const ArgOption option = parsed({"--all", "a", "b", "c", "--flag", "d"});
  EXPECT_EQ(option["all"], (Words{"a", "b", "c"}));
  EXPECT_EQ(option.getValue(""), Words{"d"});
}

TEST(ArgOptionParse, OptionWithoutItsValueIsPresentWithNone) {
  const ArgOption atEnd = parsed({"--one"});
  EXPECT_EQ(atEnd.hasOption("one"), 0);
  const ArgOption beforeOption = parsed({"--one", "--two", "a"});
  EXPECT_EQ(beforeOption.hasOption("one"), 0);
  EXPECT_EQ(beforeOption["two"], Words{"a"});
}

TEST(ArgOptionParse, NegativeNumberIsAValue) {
  const ArgOption option = parsed({"--one", "-1", "--two", "-20", "-3", "-4word"});
  EXPECT_EQ(option["one"], Words{"-1"});
  EXPECT_EQ(option["two"], (Words{"-20", "-3"}));
  EXPECT_EQ(option.getValue(""), Words{"-4word"});
}

TEST(ArgOptionParse, EqualsSignGivesExactlyThatValue) {
  const ArgOption option = parsed({"--one=a", "b", "--all=c", "d", "--flag=e=f", "--two="});
  EXPECT_EQ(option["one"], Words{"a"});
  EXPECT_EQ(option["all"], Words{"c"});
  EXPECT_EQ(option["flag"], Words{"e=f"});
  EXPECT_EQ(option["two"], Words{""});
  EXPECT_EQ(option.getValue(""), (Words{"b", "d"}));
}

TEST(ArgOptionParse, RepeatedOptionAddsToItsValues) {
  const ArgOption option = parsed({"--all", "a", "--one", "x", "--all", "b", "--one=y"});
  EXPECT_EQ(option["all"], (Words{"a", "b"}));
  EXPECT_EQ(option["one"], (Words{"x", "y"}));
}

TEST(ArgOptionParse, EmptyWordIsAValueOrAPositionalWord) {
  const ArgOption option = parsed({"", "--one", ""});
  EXPECT_EQ(option.getValue(""), Words{""});
  EXPECT_EQ(option["one"], Words{""});
}

TEST(ArgOptionParse, DashesWithoutANameFail) {
  for (const char* word : {"-", "--", "-=x", "--=x"}) {
    ArgOption option;
    EXPECT_FALSE(parse(&option, {"info", word})) << word;
  }
}

TEST(ArgOptionParse, ProgramNameIsNoWord) {
  ArgOption option;
  const char* argv[] = {"--flag"};
  EXPECT_TRUE(option.parseArgs(1, argv));
  EXPECT_LT(option.hasOption("flag"), 0);
  EXPECT_TRUE(option.parseArgs(0, nullptr));
}
