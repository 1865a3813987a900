// Record defaults: empty texts, unset colours, no alignment.
#include "engine/dialog_records.h"

#include "engine/installer_ui.h"

ELEMENTINFO::ELEMENTINFO()
    : type(0), x(0), y(0), w(0), h(0), hAlign(kAlignNone), vAlign(kAlignNone), background(kNoColour),
      foreground(kNoColour) {
  name[0] = condition[0] = details[0] = 0;
}

BUTTONINFO::BUTTONINFO()
    : dialogShift(0), flags(0), x(0), y(0), w(80), h(30), hAlign(kAlignNone), vAlign(kAlignNone),
      background(kNoColour), foreground(kNoColour), activeBackground(kNoColour), activeForeground(kNoColour) {
  text[0] = condition[0] = action[0] = 0;
}

FIELDINFO::FIELDINFO()
    : type(0), x(-1), y(-1), w(-1), h(-1), hAlign(kAlignNone), vAlign(kAlignNone), labelBackground(kNoColour),
      labelColour(kNoColour), inputBackground(kNoColour), inputForeground(kNoColour), buttonBackground(kNoColour),
      buttonForeground(kNoColour), invalidBackground(kNoColour), invalidForeground(kNoColour) {
  label[0] = variable[0] = content[0] = condition[0] = description[0] = enable[0] = validationVariable[0] = 0;
}

TASKINFO::TASKINFO() : state(kTaskNotStarted) {
  name[0] = currentLabel[0] = finishLabel[0] = unreachedLabel[0] = showCondition[0] = enableCondition[0] = 0;
}

TRIGGERINFO::TRIGGERINFO() : events(0), type(kTriggerVarChange) { variable[0] = value[0] = condition[0] = 0; }

DIALOGINFO::DIALOGINFO()
    : node(-1), width(760), height(520), background(kNoColour), foreground(kNoColour), flags(0),
      fields(16), elements(16), buttons(16), tasks(16), subDialogs(16), triggers(16), retain(0) {
  name[0] = condition[0] = 0;
}

void DlgCondition::showText(InstallerUI* ui, const char* text) {
  if (ui && text) ui->addFileLine(text, true);
}
