// The wizard's records, read once from the template's Dialogs (or
// UninstallDialogs) section. A dialog and a sub-dialog are the same record.
// The engine owns them; front ends read them by index through
// InstallExchangeInfo and keep no copies beyond a page's life.
#ifndef QLUX_ENGINE_DIALOG_RECORDS_H_
#define QLUX_ENGINE_DIALOG_RECORDS_H_

#include <cstdint>
#include <memory>

#include "foundation/charstring.h"
#include "foundation/lists.h"

// Colours are 0x00BBGGRR; this is "unset".
const uint32_t kNoColour = 0xFFFFFFFFu;

// Dialog flags, from the Special attribute.
const int kDialogBadFinish = 1;
const int kDialogHasSubDialogs = 2;
const int kDialogAutoNext = 4;
const int kDialogFinish = 8;
const int kDialogWeakCondition = 16;

// Alignment codes of HAlign and VAlign.
const int kAlignNone = 0;
const int kAlignLeft = 20;
const int kAlignTop = 21;
const int kAlignCenter = 22;
const int kAlignRight = 23;
const int kAlignBottom = 24;

// Static element types, from the tag.
const int kElementText = 10;
const int kElementImage = 11;
const int kElementHLine = 12;
const int kElementRichEditText = 13;
const int kElementProgress = 14;
const int kElementList = 15;
const int kElementTaskLB = 16;
const int kElementBorder = 17;
const int kElementSlideShow = 18;

// Button flags.
const int kButtonShift = 1;
const int kButtonAction = 2;
const int kButtonLinkStyle = 4;
const int kButtonDisableable = 8;
const int kButtonDefault = 16;

// Field types.
const int kFieldDirectory = 30;
const int kFieldCheckBox = 31;
const int kFieldRadioButtons = 32;
const int kFieldInstallParameter = 34;

// Trigger events and types.
const int kEventStart = 1;
const int kEventDynamic = 2;
const int kEventEnd = 4;
const int kTriggerVarChange = 0;
const int kTriggerRunActions = 1;
const int kTriggerVarReset = 2;
const int kTriggerVarRecalculation = 3;

// Task states.
const int kTaskNotStarted = 0;
const int kTaskCurrent = 1;
const int kTaskDone = 2;
const int kTaskFailed = 3;
const int kTaskInactive = 4;

struct ELEMENTINFO {
  ELEMENTINFO();
  char name[199];
  int type;
  int x, y, w, h;
  char condition[511];
  char details[511];
  QUtils::CharString text;  // any length; for Image and RichEditText the file's alias
  int hAlign, vAlign;
  uint32_t background, foreground;
};

struct BUTTONINFO {
  BUTTONINFO();
  char text[199];
  char condition[511];
  char action[511];
  int dialogShift;
  int flags;
  int x, y, w, h;
  int hAlign, vAlign;
  uint32_t background, foreground, activeBackground, activeForeground;
};

struct FIELDINFO {
  FIELDINFO();
  char label[199];
  char variable[199];
  int type;
  int x, y, w, h;
  char content[511];
  char condition[511];
  char description[511];
  char enable[511];
  char validationVariable[511];
  int hAlign, vAlign;
  uint32_t labelBackground, labelColour, inputBackground, inputForeground;
  uint32_t buttonBackground, buttonForeground, invalidBackground, invalidForeground;
};

struct TASKINFO {
  TASKINFO();
  int state;
  char name[199];
  char currentLabel[511];
  char finishLabel[511];
  char unreachedLabel[511];
  char showCondition[199];
  char enableCondition[511];
};

struct TRIGGERINFO {
  TRIGGERINFO();
  int events;
  int type;
  char variable[1023];
  char value[1023];
  char condition[511];
};

class Installer;
class InstallerUI;

// What gates leaving a dialog (the running-programs test). Shared by the
// dialogs that hold it.
class DlgCondition {
 public:
  virtual ~DlgCondition() {}
  // True: the dialog may be left.
  virtual bool check(Installer* engine, InstallerUI* ui) = 0;
  // Writes the text through addFileLine, with flush; nothing if either is null.
  virtual void showText(InstallerUI* ui, const char* text);
};

struct DIALOGINFO {
  DIALOGINFO();
  char name[199];
  int node;
  int width, height;
  uint32_t background, foreground;
  int flags;
  std::shared_ptr<DlgCondition> dlgCondition;
  char condition[511];
  QUtils::Table<FIELDINFO> fields;
  QUtils::Table<ELEMENTINFO> elements;
  QUtils::Table<BUTTONINFO> buttons;
  QUtils::Table<TASKINFO> tasks;
  QUtils::Table<DIALOGINFO> subDialogs;
  QUtils::Table<TRIGGERINFO> triggers;
  QUtils::Table<QUtils::CharString> retain;
};

#endif  // QLUX_ENGINE_DIALOG_RECORDS_H_
