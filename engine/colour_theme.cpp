// The colour theme: twenty named colours and a map of custom groups, read
// from the template's ColourTheme section, and the filling of the colours
// that the dialogs leave unset. Only a graphical run reads a theme.
//
// Colours are held as 0x00BBGGRR; a template writes them as 0xRRGGBB.
#include <cctype>

#include "engine/installer.h"
#include "foundation/text.h"

namespace {

// Theme indices.
enum ThemeColour {
  kDialogBackground = 0,
  kDialogForeground,
  kListBackground,
  kInputBoxBackground,
  kInputBoxText,
  kLinkButtons,
  kButtonsBackground,
  kButtonsText,
  kActiveButtonsBackground,
  kActiveButtonsText,
  kActiveText,
  kInactiveText,
  kHighlightedText,
  kProgressBarForeground,
  kProgressBarBackground,
  kFieldForeground,
  kFieldBackground,
  kInvalidFieldForeground,
  kInvalidFieldBackground,
  kStaticElements,
};

// The ColourTheme child tags, by index.
const char* const kThemeTags[kThemeColourCount] = {
    "DialogBackground",        "DialogForeground",       "ListBackground",         "InputBoxBackground",
    "InputBoxText",            "LinkButtons",            "ButtonsBackground",      "ButtonsText",
    "ActiveButtonsBackground", "ActiveButtonsText",      "ActiveText",             "InactiveText",
    "HighlightedText",         "ProgressBarForeground",  "ProgressBarBackground",  "FieldForeground",
    "FieldBackground",         "InvalidFieldForeground", "InvalidFieldBackground", "StaticElements",
};

const char kGroupPrefix[] = "Group:";
const int kGroupPrefixLength = sizeof kGroupPrefix - 1;

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Reads a number in base 16 the way strtoul does with a 32-bit unsigned
// long, so that a colour reads the same on every system: leading white
// space, a sign and a "0x" are taken; reading stops at the first other
// character; a value that doesn't fit gives 0xFFFFFFFF; a minus negates.
uint32_t readHex(const char* text) {
  const char* p = text;
  while (std::isspace(static_cast<unsigned char>(*p))) p++;
  bool negative = false;
  if (*p == '+' || *p == '-') negative = *p++ == '-';
  if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X') && hexDigit(p[2]) >= 0) p += 2;
  uint64_t value = 0;
  for (; hexDigit(*p) >= 0; p++) {
    value = value * 16 + static_cast<uint64_t>(hexDigit(*p));
    if (value > 0xFFFFFFFFu) return 0xFFFFFFFFu;
  }
  uint32_t result = static_cast<uint32_t>(value);
  return negative ? 0u - result : result;
}

// 0xRRGGBB as the template writes it, to 0x00BBGGRR: the lowest and the
// third byte change places.
uint32_t hexColour(const char* text) {
  uint32_t value = readHex(text);
  return ((value & 0xFFu) << 16) | (value & 0xFF00FF00u) | ((value >> 16) & 0xFFu);
}

// Sets `colour` from `source` if it is still unset.
inline void fill(uint32_t* colour, uint32_t source) {
  if (*colour == kNoColour) *colour = source;
}

// `preferred` unless that is unset, else `fallback`.
inline uint32_t either(uint32_t preferred, uint32_t fallback) {
  return preferred != kNoColour ? preferred : fallback;
}

}  // namespace

uint32_t Installer::parseColour(const char* text) {
  if (!text) return kNoColour;
  if (QUtils::compareNoCase(text, kGroupPrefix, kGroupPrefixLength) == 0) {
    uint32_t colour;
    return themeGroups.get(text + kGroupPrefixLength, &colour) ? colour : kNoColour;
  }
  return hexColour(text);
}

uint32_t Installer::getThemeColour(int index) {
  return index >= 0 && index < kThemeColourCount ? theme[index] : kNoColour;
}

// Children are read in document order, so a later child of a tag overrides
// an earlier one; a Condition that is false passes its child over, which is
// how a template picks among colours. The theme is read before the dialogs,
// whose colours may name a CustomGroup.
void Installer::readColourTheme() {
  int section = document.findNext("ColourTheme", -1);
  if (section < 0) return;
  usesColourTheme = 1;

  QUtils::PList<int> children(16);
  document.getChildren(section, &children);
  for (int i = 0; i < children.getCount(); i++) {
    int child = children[i];
    if (evaluateCondition(document.getAttribute(child, "Condition")) == 0) continue;
    const char* text = document.getValue(child);
    uint32_t colour = text && *text ? hexColour(text) : kNoColour;
    const char* tag = document.getName(child);

    if (QUtils::compareNoCase(tag, "CustomGroup") == 0) {
      const char* name = document.getAttribute(child, "Name");
      if (name && *name) {
        themeGroups.set(name, colour);
      } else {
        log("WARNING: Theme custom group tag missing a 'Name' attribute!");
      }
      continue;
    }

    int index = 0;
    while (index < kThemeColourCount && QUtils::compareNoCase(tag, kThemeTags[index]) != 0) index++;
    if (index == kThemeColourCount) {
      log("WARNING: Colour theme tag is not supported by installer: \"%s\"", tag);
      continue;
    }
    theme[index] = colour;
  }
}

namespace {

void applyToElement(ELEMENTINFO& e, const uint32_t* theme, uint32_t dialogBackground) {
  switch (e.type) {
    case kElementText:
      fill(&e.foreground, theme[kActiveText]);
      fill(&e.background, dialogBackground);
      break;
    case kElementImage:
    case kElementSlideShow:
      fill(&e.background, dialogBackground);
      break;
    case kElementHLine:
    case kElementBorder:
      fill(&e.foreground, theme[kStaticElements]);
      break;
    case kElementRichEditText:
    case kElementTaskLB:
      fill(&e.background, theme[kListBackground]);
      break;
    case kElementProgress:
      fill(&e.foreground, theme[kProgressBarForeground]);
      fill(&e.background, theme[kProgressBarBackground]);
      break;
    case kElementList:
      fill(&e.foreground, theme[kActiveText]);
      fill(&e.background, theme[kListBackground]);
      break;
    default:
      break;
  }
}

void applyToField(FIELDINFO& f, const uint32_t* theme, const DIALOGINFO& dialog) {
  // A theme that sets a field foreground gives labels the page's text colour.
  fill(&f.labelColour, theme[kFieldForeground] != kNoColour ? dialog.foreground : theme[kActiveText]);
  fill(&f.labelBackground, either(theme[kFieldBackground], dialog.background));
  fill(&f.inputBackground, theme[kInputBoxBackground]);
  fill(&f.inputForeground, theme[kInputBoxText]);
  fill(&f.buttonBackground, theme[kButtonsBackground]);
  fill(&f.buttonForeground, theme[kButtonsText]);
  fill(&f.invalidBackground, theme[kInvalidFieldBackground]);
  fill(&f.invalidForeground, theme[kInvalidFieldForeground]);
}

void applyToButton(BUTTONINFO& b, const uint32_t* theme) {
  fill(&b.foreground, (b.flags & kButtonLinkStyle) ? theme[kLinkButtons] : theme[kButtonsText]);
  fill(&b.background, theme[kButtonsBackground]);
  fill(&b.activeForeground, either(theme[kActiveButtonsText], b.foreground));
  fill(&b.activeBackground, either(theme[kActiveButtonsBackground], b.background));
}

// The dialog's own colours first, then its sub-dialogs, then what it holds,
// so that elements and fields see the page's colours once they are final.
void applyToDialog(DIALOGINFO& dialog, const uint32_t* theme) {
  fill(&dialog.background, theme[kDialogBackground]);
  fill(&dialog.foreground, theme[kDialogForeground]);
  for (int i = 0; i < dialog.subDialogs.getCount(); i++) applyToDialog(dialog.subDialogs[i], theme);
  for (int i = 0; i < dialog.elements.getCount(); i++) applyToElement(dialog.elements[i], theme, dialog.background);
  for (int i = 0; i < dialog.fields.getCount(); i++) applyToField(dialog.fields[i], theme, dialog);
  for (int i = 0; i < dialog.buttons.getCount(); i++) applyToButton(dialog.buttons[i], theme);
}

}  // namespace

// Runs after the dialogs are read, and fills only what they left unset. A
// template without a ColourTheme still counts as themed when one of its
// dialogs gives a page colour; nothing is filled in then.
void Installer::applyColourTheme() {
  if (!usesColourTheme) {
    for (int i = 0; i < dialogs.getCount(); i++) {
      if (dialogs[i].background != kNoColour || dialogs[i].foreground != kNoColour) {
        usesColourTheme = 1;
        break;
      }
    }
    return;
  }
  for (int i = 0; i < dialogs.getCount(); i++) applyToDialog(dialogs[i], theme);
}
