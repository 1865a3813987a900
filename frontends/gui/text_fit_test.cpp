// Tests of fitting a label into its box: breaks between words, the
// ellipsis, and a word wider than the box.
#include "frontends/gui/text_fit.h"

#include "gtest/gtest.h"

namespace {

// One pixel a character (UTF-8 aware), ten pixels a line.
class CountingMeasure : public TextMeasure {
 public:
  int width(const std::string& line) override {
    int count = 0;
    for (char c : line)
      if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) count++;
    return count;
  }
  int height(int lines) override { return 10 * lines; }
};

std::string fit(const std::string& text, int width, int height, bool* cut) {
  CountingMeasure measure;
  return fitText(text, width, height, measure, cut);
}

TEST(FitText, LongTextsBreakBetweenWordsAndEndWithAnEllipsisWhereTheBoxIsFull) {
  bool cut = true;
  const std::string name =
      "Qlux Demo Enterprise Edition for Distributed Teams and Large Organisations 2026";
  EXPECT_EQ("Qlux Demo Enterprise Edition\nfor Distributed Teams and\nLarge Organisations 2026",
            fit(name, 30, 40, &cut));
  EXPECT_FALSE(cut);

  // Two lines only: the second ends with the ellipsis.
  EXPECT_EQ("Qlux Demo Enterprise Edition\nfor Distributed Teams and…", fit(name, 30, 25, &cut));
  EXPECT_TRUE(cut);
  // Less room than one line still shows one; a word that leaves no room for
  // the ellipsis goes whole rather than cut.
  EXPECT_EQ("Qlux Demo…", fit(name, 20, 5, &cut));
  EXPECT_TRUE(cut);
}

TEST(FitText, TheTextsOwnBreaksIndentsAndLettersStay) {
  bool cut = true;
  EXPECT_EQ("Wählen Sie den\nOrdner, in den\n\n  Qlux Demo\nkommt.",
            fit("Wählen Sie den Ordner, in den\n\n  Qlux Demo kommt.", 15, 0, &cut));
  EXPECT_FALSE(cut);
  // Without a width the lines stay as they are; only the height cuts.
  EXPECT_EQ("one two three\nfour…", fit("one two three\nfour five\nsix", 0, 20, &cut));
  EXPECT_TRUE(cut);
}

TEST(FitText, AWordWiderThanTheBoxIsBrokenBetweenCharacters) {
  bool cut = true;
  EXPECT_EQ("see\n/opt/qlux-\ndemo/bin/t\nool", fit("see /opt/qlux-demo/bin/tool", 10, 0, &cut));
  EXPECT_FALSE(cut);
  EXPECT_EQ("ab…", fit("abcdefgh", 3, 10, &cut));
  EXPECT_TRUE(cut);
  EXPECT_EQ("für…", fit("fürchterlich lang", 4, 10, &cut)) << "cut between characters, not bytes";
}

}  // namespace
