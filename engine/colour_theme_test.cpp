// Tests of the colour theme: the colour map, and how a theme's colours and
// groups reach the dialogs that leave them open.
#include <cstdio>
#include <string>

#include "engine/colour_map.h"
#include "engine/test_support.h"
#include "gtest/gtest.h"

namespace {


TEST(ColourMap, HashAndGrowthAlongPrimes) {
  EXPECT_EQ(0xdeadbeefu, hashlittle("", 0, 0));
  EXPECT_EQ(0x17770551u, hashlittle("Four score and seven years ago", 30, 0));
  EXPECT_EQ(0xcd628161u, hashlittle("Four score and seven years ago", 30, 1));

  ColourMap map;
  char name[24];
  for (int i = 0; i < 23; i++) {
    std::snprintf(name, sizeof name, "group%d", i);
    map.set(name, static_cast<uint32_t>(i));
    // Growth comes with the insert into a table more than 75 percent full.
    EXPECT_EQ(i < 10 ? 13 : i < 22 ? 29 : 59, map.getBucketCount()) << i;
  }

  // Removals don't shrink; each insert into a sparse table goes one step down.
  for (int i = 0; i < 22; i++) {
    std::snprintf(name, sizeof name, "group%d", i);
    EXPECT_TRUE(map.remove(name));
  }
  EXPECT_EQ(59, map.getBucketCount());
  map.set("a", 1);
  EXPECT_EQ(29, map.getBucketCount());
  map.set("b", 2);
  map.set("c", 3);
  EXPECT_EQ(13, map.getBucketCount());
  uint32_t colour = 0;
  EXPECT_TRUE(map.get("group22", &colour) && colour == 22);
  EXPECT_FALSE(map.get("group3", &colour));
}

TEST(ColourTheme, ReadsColoursConditionsAndGroups) {
  TestInstaller engine;
  LinesConsole log;
  engine.logConsole = &log;
  engine.guiInstall = 1;
  engine.loadTemplate(
      "<HalvoWorksInstallation><ColourTheme>"
      "<DialogBackground>0x102030</DialogBackground>"
      "<dialogbackground Condition='[GUI_INSTALL]==0'>0xAAAAAA</dialogbackground>"
      "<ACTIVETEXT Condition='[GUI_INSTALL]==1'>0x7F0000FF</ACTIVETEXT>"
      "<StaticElements></StaticElements>"
      "<CustomGroup Name='Accent'>FF8000</CustomGroup><CustomGroup>0x123456</CustomGroup>"
      "<Sparkle>0x123456</Sparkle>"
      "</ColourTheme></HalvoWorksInstallation>");
  engine.theme[19] = 0x42;
  engine.readColourTheme();
  EXPECT_TRUE(engine.hasColourTheme());
  EXPECT_EQ(0x00302010u, engine.getThemeColour(0));  // the false condition passed its child over
  EXPECT_EQ(0x7FFF0000u, engine.getThemeColour(10));  // red and blue swap, the top byte stays
  EXPECT_EQ(kNoColour, engine.getThemeColour(19));    // no text: unset
  EXPECT_EQ(
      "WARNING: Theme custom group tag missing a 'Name' attribute!\r\n"
      "WARNING: Colour theme tag is not supported by installer: \"Sparkle\"\r\n",
      log.all);

  EXPECT_EQ(0x000080FFu, engine.parseColour("GROUP:Accent"));
  EXPECT_EQ(kNoColour, engine.parseColour("Group:accent"));
  EXPECT_EQ(kNoColour, engine.parseColour("0x1FFFFFFFF"));  // too large for 32 bits
}

// Adds a page with one element of each kind, one field and two buttons.
DIALOGINFO& addDialog(QUtils::Table<DIALOGINFO>& list) {
  list.setCount(list.getCount() + 1, 0);
  DIALOGINFO& dialog = list[list.getCount() - 1];
  for (int type = kElementText; type <= kElementSlideShow; type++) {
    ELEMENTINFO element;
    element.type = type;
    dialog.elements.add(element);
  }
  dialog.fields.add(FIELDINFO());
  BUTTONINFO button;
  dialog.buttons.add(button);
  button.flags = kButtonLinkStyle;
  dialog.buttons.add(button);
  return dialog;
}

TEST(ColourTheme, ApplyFillsOnlyWhatDialogsLeaveOpen) {
  TestInstaller engine;
  engine.usesColourTheme = 1;
  for (int i = 0; i < kThemeColourCount; i++) engine.theme[i] = 0x100 + static_cast<uint32_t>(i);
  engine.theme[8] = engine.theme[9] = kNoColour;  // the active button colours

  DIALOGINFO& dialog = addDialog(engine.dialogs);
  dialog.foreground = 0x77;
  dialog.elements[0].foreground = 0x55;  // set by the template: kept
  addDialog(dialog.subDialogs).background = 0x88;
  engine.applyColourTheme();

  // Elements in type order: Text, Image, HLine, RichEditText, Progress,
  // List, TaskLB, Border, SlideShow.
  const uint32_t kForeground[] = {0x55, kNoColour, 0x113, kNoColour, 0x10D, 0x10A, kNoColour, 0x113, kNoColour};
  const uint32_t kBackground[] = {0x100, 0x100, kNoColour, 0x102, 0x10E, 0x102, 0x102, kNoColour, 0x100};
  const DIALOGINFO& d = engine.dialogs[0];
  for (int i = 0; i < 9; i++) {
    EXPECT_EQ(kForeground[i], d.elements[i].foreground) << i;
    EXPECT_EQ(kBackground[i], d.elements[i].background) << i;
  }
  EXPECT_EQ(0x77u, d.fields[0].labelColour);  // FieldForeground is set: the page's foreground
  EXPECT_EQ(0x110u, d.fields[0].labelBackground);
  EXPECT_EQ(0x107u, d.buttons[0].activeForeground);  // no ActiveButtonsText: the button's own
  EXPECT_EQ(0x105u, d.buttons[1].foreground);        // LinkStyle
  EXPECT_EQ(0x106u, d.buttons[1].activeBackground);

  // The sub-dialog is filled by the same rules, against its own colours.
  EXPECT_EQ(0x88u, d.subDialogs[0].elements[0].background);
  EXPECT_EQ(0x101u, d.subDialogs[0].fields[0].labelColour);

  // Without FieldForeground and FieldBackground a label takes the active
  // text colour and the page's background.
  engine.theme[15] = engine.theme[16] = kNoColour;
  engine.dialogs[0].fields[0] = FIELDINFO();
  engine.applyColourTheme();
  EXPECT_EQ(0x10Au, engine.dialogs[0].fields[0].labelColour);
  EXPECT_EQ(0x100u, engine.dialogs[0].fields[0].labelBackground);
}

TEST(ColourTheme, DialogColourAloneMakesTemplateThemedWithoutFilling) {
  TestInstaller engine;
  addDialog(engine.dialogs);
  engine.applyColourTheme();
  EXPECT_FALSE(engine.hasColourTheme());

  addDialog(engine.dialogs).foreground = 0x123;
  engine.applyColourTheme();
  EXPECT_TRUE(engine.hasColourTheme());
  EXPECT_EQ(kNoColour, engine.dialogs[1].background);
}

}  // namespace
