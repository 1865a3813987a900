// The wizard's records: reading the Dialogs section (UninstallDialogs in an
// uninstallation) into `dialogs`, the getters through which the front ends
// read them, and the two operations that act on one page's records:
// variableChanged() and fireTriggers().
#include <cstdlib>
#include <cstring>

#include "engine/installer.h"
#include "engine/installer_ui.h"
#include "foundation/text.h"

using QUtils::CharString;
using QUtils::PList;
using QUtils::PXML;
using QUtils::Table;

namespace {

// An integer attribute, read the way the template writes them ("+1", "-20",
// "300"); `fallback` when the attribute is absent.
int intAttribute(const PXML& document, int node, const char* name, int fallback) {
  const char* text = document.getAttribute(node, name);
  if (!text) return fallback;
  return static_cast<int>(std::strtol(text, nullptr, 10));
}

void textAttribute(const PXML& document, int node, const char* name, char* field, int size) {
  QUtils::copyText(field, document.getAttribute(node, name), size);
}

// Splits `text` at ';' into words with the blanks around them removed;
// empty words are left out. Gives the number of words.
int splitWords(const char* text, Table<CharString>& words) {
  Table<CharString> parts;
  QUtils::splitText(text, ';', parts);
  words.clear();
  for (int i = 0; i < parts.getCount(); i++) {
    char word[1024];
    QUtils::copyText(word, parts[i].getText(), sizeof word);
    QUtils::trimText(word);
    if (word[0]) words.add(CharString(word));
  }
  return words.getCount();
}

bool sameWord(const CharString& word, const char* known) { return QUtils::compareNoCase(word.getText(), known) == 0; }

int dialogFlags(const char* special) {
  Table<CharString> words;
  int flags = 0;
  for (int i = 0, n = splitWords(special, words); i < n; i++) {
    if (sameWord(words[i], "BadFinish") || sameWord(words[i], "1")) flags |= kDialogBadFinish;
    else if (sameWord(words[i], "HasSubDialogs")) flags |= kDialogHasSubDialogs;
    else if (sameWord(words[i], "AutoNext")) flags |= kDialogAutoNext;
    else if (sameWord(words[i], "Finish")) flags |= kDialogFinish;
    else if (sameWord(words[i], "WeakCondition")) flags |= kDialogWeakCondition;
  }
  return flags;
}

int triggerEvents(const char* evaluateOn) {
  Table<CharString> words;
  int events = 0;
  for (int i = 0, n = splitWords(evaluateOn, words); i < n; i++) {
    if (sameWord(words[i], "Start") || sameWord(words[i], "Set")) events |= kEventStart;
    else if (sameWord(words[i], "Dynamic")) events |= kEventDynamic;
    else if (sameWord(words[i], "End")) events |= kEventEnd;
  }
  return events;
}

// HAlign: "left", "right", and "center" unless the control can't centre
// (buttons). Anything else is no alignment.
int horizontalAlignment(const char* text, bool canCenter) {
  if (!text) return kAlignNone;
  if (QUtils::compareNoCase(text, "left") == 0) return kAlignLeft;
  if (QUtils::compareNoCase(text, "right") == 0) return kAlignRight;
  if (canCenter && QUtils::compareNoCase(text, "center") == 0) return kAlignCenter;
  return kAlignNone;
}

int verticalAlignment(const char* text, bool canCenter) {
  if (!text) return kAlignNone;
  if (QUtils::compareNoCase(text, "top") == 0) return kAlignTop;
  if (QUtils::compareNoCase(text, "bottom") == 0) return kAlignBottom;
  if (canCenter && QUtils::compareNoCase(text, "center") == 0) return kAlignCenter;
  return kAlignNone;
}

int elementType(const char* tag) {
  static const struct {
    const char* tag;
    int type;
  } kTypes[] = {
      {"Text", kElementText},
      {"Image", kElementImage},
      {"HLine", kElementHLine},
      {"RichEditText", kElementRichEditText},
      {"Progress", kElementProgress},
      {"List", kElementList},
      {"TaskLB", kElementTaskLB},
      {"Border", kElementBorder},
      {"SlideShow", kElementSlideShow},
  };
  for (const auto& entry : kTypes) {
    if (std::strcmp(tag, entry.tag) == 0) return entry.type;
  }
  return 0;
}

int fieldType(const char* text) {
  if (!text) return 0;
  if (QUtils::compareNoCase(text, "Directory") == 0) return kFieldDirectory;
  if (QUtils::compareNoCase(text, "CheckBox") == 0) return kFieldCheckBox;
  if (QUtils::compareNoCase(text, "RadioButtons") == 0) return kFieldRadioButtons;
  if (QUtils::compareNoCase(text, "InstallParameter") == 0) return kFieldInstallParameter;
  return 0;
}

// Templates write a line break in element text as the two characters '\'
// and 'n'; they become CR LF in place. "/n" is ordinary text.
void breakLines(CharString& text) {
  if (text.isNull()) return;
  text.makeUnique();
  for (char* p = text.getBuffer(); *p; p++) {
    if (p[0] == '\\' && p[1] == 'n') {
      p[0] = '\r';
      p[1] = '\n';
      p++;
    }
  }
}

BUTTONINFO makeButton(const char* text, int x, int hAlign) {
  BUTTONINFO button;
  QUtils::copyText(button.text, text, sizeof button.text);
  button.x = x;
  button.y = 50;
  button.w = 80;
  button.h = 30;
  button.hAlign = hAlign;
  button.vAlign = kAlignBottom;
  return button;
}

// What a template gets while it hasn't given a single button yet: a standard
// 500 by 390 page with a separator and the Next, Cancel and (except on the
// first and last pages) Back buttons.
void addDefaultPage(DIALOGINFO& dialog) {
  dialog.width = 500;
  dialog.height = 390;

  ELEMENTINFO line;
  line.type = kElementHLine;
  line.x = 1;
  line.y = 70;
  line.w = -1;
  line.h = 1;
  line.hAlign = kAlignLeft;
  line.vAlign = kAlignBottom;
  dialog.elements.add(line);

  BUTTONINFO next = makeButton("&Next", 100, kAlignRight);
  next.dialogShift = 1;
  next.flags = kButtonShift;
  dialog.buttons.add(next);

  BUTTONINFO cancel = makeButton("&Cancel", 20, kAlignLeft);
  QUtils::copyText(cancel.action, "Cancel", sizeof cancel.action);
  cancel.flags = kButtonAction;
  dialog.buttons.add(cancel);

  if (QUtils::compareNoCase(dialog.name, "Welcome") != 0 && QUtils::compareNoCase(dialog.name, "Finish") != 0 &&
      QUtils::compareNoCase(dialog.name, "BadFinish") != 0) {
    BUTTONINFO back = makeButton("&Back", 190, kAlignRight);
    back.dialogShift = -1;
    back.flags = kButtonShift;
    dialog.buttons.add(back);
  }
}

// Reads one dialog element, or one sub-dialog, into a record. Needs the
// engine for colours (which may name a theme group) and for the log.
class DialogReader {
 public:
  DialogReader(Installer& engine, bool isUninstall)
      : engine(engine), document(engine.document), isUninstall(isUninstall) {}

  void readRecord(int node, DIALOGINFO& dialog);
  // The sub-dialogs of a HasSubDialogs frame, in the order of its TaskList.
  // Gives the number of buttons they hold, or -1 when the frame lacks its
  // TaskList or its SubDialogs; the caller adds the result to its count.
  int readSubDialogs(int node, DIALOGINFO& dialog);

 private:
  void readField(int node, DIALOGINFO& dialog);
  void readElement(int node, int type, DIALOGINFO& dialog);
  void readButton(int node, DIALOGINFO& dialog);
  void readTrigger(int node, DIALOGINFO& dialog);
  uint32_t colour(int node, const char* name) { return engine.parseColour(document.getAttribute(node, name)); }

  Installer& engine;
  const PXML& document;
  bool isUninstall;
};

void DialogReader::readRecord(int node, DIALOGINFO& dialog) {
  QUtils::copyText(dialog.name, document.getName(node), sizeof dialog.name);
  dialog.node = node;
  dialog.flags = dialogFlags(document.getAttribute(node, "Special"));
  textAttribute(document, node, "Condition", dialog.condition, sizeof dialog.condition);
  dialog.width = intAttribute(document, node, "w", 760);
  dialog.height = intAttribute(document, node, "h", 520);
  dialog.background = colour(node, "BkgColour");
  dialog.foreground = colour(node, "FgColour");
  splitWords(document.getAttribute(node, "Retain"), dialog.retain);

  PList<int> children(16);
  document.getChildren(node, &children);
  for (int i = 0; i < children.getCount(); i++) {
    int child = children[i];
    const char* tag = document.getName(child);
    int type = elementType(tag);
    if (type != 0) {
      readElement(child, type, dialog);
    } else if (std::strcmp(tag, "Button") == 0) {
      readButton(child, dialog);
    } else if (std::strcmp(tag, "Trigger") == 0) {
      readTrigger(child, dialog);
    } else if (std::strcmp(tag, "Field") == 0) {
      if (!isUninstall) readField(child, dialog);
    }
  }
}

void DialogReader::readField(int node, DIALOGINFO& dialog) {
  FIELDINFO field;
  const char* type = document.getAttribute(node, "Type");
  field.type = fieldType(type);
  if (field.type == 0) {
    // The front ends know only the four kinds; a field of another kind would
    // edit its variable in no defined way, so it doesn't reach them.
    engine.log("WARNING: Field of unknown type \"%s\" left out (Parent dlg name: %s)", type ? type : "",
               dialog.name);
    return;
  }
  textAttribute(document, node, "Label", field.label, sizeof field.label);
  QUtils::copyText(field.variable, document.getValue(node), sizeof field.variable);
  field.x = intAttribute(document, node, "x", -1);
  field.y = intAttribute(document, node, "y", -1);
  field.w = intAttribute(document, node, "w", -1);
  field.h = intAttribute(document, node, "h", -1);
  textAttribute(document, node, "Content", field.content, sizeof field.content);
  textAttribute(document, node, "Condition", field.condition, sizeof field.condition);
  textAttribute(document, node, "Description", field.description, sizeof field.description);
  textAttribute(document, node, "Enable", field.enable, sizeof field.enable);
  textAttribute(document, node, "ValidationVariable", field.validationVariable, sizeof field.validationVariable);
  field.hAlign = horizontalAlignment(document.getAttribute(node, "HAlign"), true);
  field.vAlign = verticalAlignment(document.getAttribute(node, "VAlign"), true);
  // labelBackground stays unset: only the colour theme fills it.
  field.labelColour = colour(node, "LabelColour");
  field.inputBackground = colour(node, "InputBkgColour");
  field.inputForeground = colour(node, "InputFgColour");
  field.buttonBackground = colour(node, "ButtonBkgColour");
  field.buttonForeground = colour(node, "ButtonFgColour");
  field.invalidBackground = colour(node, "InvalidBkgColour");
  field.invalidForeground = colour(node, "InvalidFgColour");
  dialog.fields.add(field);
}

void DialogReader::readElement(int node, int type, DIALOGINFO& dialog) {
  if (!document.getAttribute(node, "x") || !document.getAttribute(node, "y")) return;
  ELEMENTINFO element;
  textAttribute(document, node, "Name", element.name, sizeof element.name);
  element.type = type;
  element.x = intAttribute(document, node, "x", 0);
  element.y = intAttribute(document, node, "y", 0);
  element.w = intAttribute(document, node, "w", 0);
  element.h = intAttribute(document, node, "h", 0);
  textAttribute(document, node, "Condition", element.condition, sizeof element.condition);
  textAttribute(document, node, "Details", element.details, sizeof element.details);
  element.text = document.getValue(node);
  breakLines(element.text);
  element.hAlign = horizontalAlignment(document.getAttribute(node, "HAlign"), true);
  element.vAlign = verticalAlignment(document.getAttribute(node, "VAlign"), true);
  element.background = colour(node, "BkgColour");
  element.foreground = colour(node, "FgColour");
  dialog.elements.add(element);
}

void DialogReader::readButton(int node, DIALOGINFO& dialog) {
  const char* text = document.getValue(node);
  if (!text || !*text) return;
  if (!document.getAttribute(node, "x") || !document.getAttribute(node, "y")) return;
  BUTTONINFO button;
  QUtils::copyText(button.text, text, sizeof button.text);
  textAttribute(document, node, "Condition", button.condition, sizeof button.condition);
  textAttribute(document, node, "Action", button.action, sizeof button.action);
  button.dialogShift = intAttribute(document, node, "DialogShift", 0);
  if (button.dialogShift != 0) button.flags |= kButtonShift;
  if (button.action[0]) button.flags |= kButtonAction;
  if (intAttribute(document, node, "LinkStyle", 0) == 1) button.flags |= kButtonLinkStyle;
  if (intAttribute(document, node, "Disableable", 0) == 1) button.flags |= kButtonDisableable;
  if (intAttribute(document, node, "Default", 0) == 1) button.flags |= kButtonDefault;
  button.x = intAttribute(document, node, "x", 0);
  button.y = intAttribute(document, node, "y", 0);
  button.w = intAttribute(document, node, "w", 80);
  button.h = intAttribute(document, node, "h", 30);
  button.hAlign = horizontalAlignment(document.getAttribute(node, "HAlign"), false);
  button.vAlign = verticalAlignment(document.getAttribute(node, "VAlign"), false);
  button.background = colour(node, "BkgColour");
  button.foreground = colour(node, "FgColour");
  button.activeBackground = colour(node, "ActiveBkgColour");
  button.activeForeground = colour(node, "ActiveFgColour");

  // The standard buttons by name; the name wins over what the attributes said.
  const char* name = document.getAttribute(node, "Name");
  if (QUtils::compareNoCase(name, "Next") == 0) {
    button.dialogShift = 1;
    button.flags |= kButtonShift | kButtonDefault;
  } else if (QUtils::compareNoCase(name, "Back") == 0) {
    button.dialogShift = -1;
    button.flags |= kButtonShift;
  } else if (QUtils::compareNoCase(name, "Cancel") == 0) {
    QUtils::copyText(button.action, "Cancel", sizeof button.action);
    button.flags |= kButtonAction;
  } else if (QUtils::compareNoCase(name, "Help") == 0) {
    QUtils::copyText(button.action, "Help", sizeof button.action);
    button.flags |= kButtonAction;
  } else if (QUtils::compareNoCase(name, "Customize") == 0) {
    button.dialogShift = 1;
    QUtils::copyText(button.action, "[CUSTOMIZE]='1'", sizeof button.action);
    button.flags |= kButtonShift | kButtonAction;
  } else if (QUtils::compareNoCase(name, "Express") == 0) {
    button.dialogShift = -1;
    QUtils::copyText(button.action, "[CUSTOMIZE]='0'", sizeof button.action);
    button.flags |= kButtonShift | kButtonAction;
  }
  dialog.buttons.add(button);
}

void DialogReader::readTrigger(int node, DIALOGINFO& dialog) {
  TRIGGERINFO trigger;
  trigger.events = triggerEvents(document.getAttribute(node, "EvaluateOn"));
  const char* type = document.getAttribute(node, "Type");
  if (!type || QUtils::compareNoCase(type, "VarChange") == 0) {
    trigger.type = kTriggerVarChange;
  } else if (QUtils::compareNoCase(type, "RunActions") == 0) {
    trigger.type = kTriggerRunActions;
  } else if (QUtils::compareNoCase(type, "VarReset") == 0) {
    trigger.type = kTriggerVarReset;
  } else if (QUtils::compareNoCase(type, "VarRecalculation") == 0) {
    trigger.type = kTriggerVarRecalculation;
  } else {
    engine.log("WARNING: Unrecognized trigger type = %s (Parent dlg name: %s)", type, dialog.name);
    trigger.type = kTriggerVarChange;
  }
  textAttribute(document, node, "Variable", trigger.variable, sizeof trigger.variable);
  const char* value = document.getAttribute(node, "Value");
  QUtils::copyText(trigger.value, value, sizeof trigger.value);
  textAttribute(document, node, "Condition", trigger.condition, sizeof trigger.condition);

  // A variable change needs the value to set; the other types need none.
  if (trigger.events == 0 || (trigger.type == kTriggerVarChange && !value)) {
    engine.log("WARNING: Extracted a trigger with no type nor specified value (Parent dlg name: %s)", dialog.name);
    return;
  }
  dialog.triggers.add(trigger);
}

int DialogReader::readSubDialogs(int node, DIALOGINFO& dialog) {
  int taskList = document.findNextChild(node, "TaskList", -1);
  if (taskList < 0) return -1;
  PList<int> entries(16);
  document.getChildren(taskList, &entries);
  for (int i = 0; i < entries.getCount(); i++) {
    int entry = entries[i];
    TASKINFO task;
    QUtils::copyText(task.name, document.getName(entry), sizeof task.name);
    textAttribute(document, entry, "CurrentLabel", task.currentLabel, sizeof task.currentLabel);
    textAttribute(document, entry, "FinishLabel", task.finishLabel, sizeof task.finishLabel);
    textAttribute(document, entry, "UnreachedLabel", task.unreachedLabel, sizeof task.unreachedLabel);
    textAttribute(document, entry, "ShowCondition", task.showCondition, sizeof task.showCondition);
    textAttribute(document, entry, "EnableCondition", task.enableCondition, sizeof task.enableCondition);
    dialog.tasks.add(task);
  }

  int subDialogs = document.findNextChild(node, "SubDialogs", -1);
  if (subDialogs < 0) return -1;
  // The task list names the sub-dialogs and gives their order; a child of
  // SubDialogs that no task names is never read.
  int buttons = 0;
  for (int i = 0; i < dialog.tasks.getCount(); i++) {
    int child = document.findNextChild(subDialogs, dialog.tasks[i].name, -1);
    if (child < 0) continue;
    DIALOGINFO subDialog;
    readRecord(child, subDialog);
    buttons += subDialog.buttons.getCount();
    dialog.subDialogs.add(subDialog);
  }
  return buttons;
}

// Whether a condition names a variable: a plain substring search, so a
// longer name that contains it counts too.
bool mentions(const char* text, const char* name) { return text && std::strstr(text, name) != nullptr; }

}  // namespace

int Installer::readDialogs(bool isUninstall) {
  int section = document.findNext(isUninstall ? "UninstallDialogs" : "Dialogs", -1);
  if (section < 0) return -1;

  DialogReader reader(*this, isUninstall);
  PList<int> children(16);
  document.getChildren(section, &children);
  int buttons = 0;  // over all dialogs read so far
  for (int i = 0; i < children.getCount(); i++) {
    DIALOGINFO dialog;
    reader.readRecord(children[i], dialog);
    buttons += dialog.buttons.getCount();
    if (dialog.flags & kDialogHasSubDialogs) buttons += reader.readSubDialogs(children[i], dialog);
    if (buttons == 0) addDefaultPage(dialog);
    dialogs.add(dialog);
  }
  return 0;
}

DIALOGINFO* Installer::getDialog(int dialog, int subDialog) {
  if (dialog < 0 || dialog >= dialogs.getCount()) return nullptr;
  DIALOGINFO& record = dialogs[dialog];
  if (subDialog == -1) return &record;
  if (subDialog < 0 || subDialog >= record.subDialogs.getCount()) return nullptr;
  return &record.subDialogs[subDialog];
}

int Installer::getDialogWidth(int dialog) {
  DIALOGINFO* record = getDialog(dialog, -1);
  return record ? record->width : 0;
}

int Installer::getDialogHeight(int dialog) {
  DIALOGINFO* record = getDialog(dialog, -1);
  return record ? record->height : 0;
}

int Installer::getSubDialogCount(int dialog) {
  DIALOGINFO* record = getDialog(dialog, -1);
  return record ? record->subDialogs.getCount() : 0;
}

ELEMENTINFO* Installer::getElement(int dialog, int index, int subDialog) {
  DIALOGINFO* record = getDialog(dialog, subDialog);
  if (!record || index < 0 || index >= record->elements.getCount()) return nullptr;
  return &record->elements[index];
}

int Installer::getElementCount(int dialog, int subDialog) {
  DIALOGINFO* record = getDialog(dialog, subDialog);
  return record ? record->elements.getCount() : 0;
}

BUTTONINFO* Installer::getButton(int dialog, int index, int subDialog) {
  DIALOGINFO* record = getDialog(dialog, subDialog);
  if (!record || index < 0 || index >= record->buttons.getCount()) return nullptr;
  return &record->buttons[index];
}

int Installer::getButtonCount(int dialog, int subDialog) {
  DIALOGINFO* record = getDialog(dialog, subDialog);
  return record ? record->buttons.getCount() : 0;
}

FIELDINFO* Installer::getField(int dialog, int index, int subDialog) {
  DIALOGINFO* record = getDialog(dialog, subDialog);
  if (!record || index < 0 || index >= record->fields.getCount()) return nullptr;
  return &record->fields[index];
}

int Installer::getFieldCount(int dialog, int subDialog) {
  DIALOGINFO* record = getDialog(dialog, subDialog);
  return record ? record->fields.getCount() : 0;
}

int Installer::getTaskCount(int dialog) {
  DIALOGINFO* record = getDialog(dialog, -1);
  return record ? record->tasks.getCount() : 0;
}

TASKINFO* Installer::getTask(int dialog, int index) {
  DIALOGINFO* record = getDialog(dialog, -1);
  if (!record || index < 0 || index >= record->tasks.getCount()) return nullptr;
  return &record->tasks[index];
}

void Installer::getDialogColours(int dialog, int subDialog, uint32_t* background, uint32_t* foreground) {
  DIALOGINFO* record = getDialog(dialog, subDialog);
  *background = record ? record->background : kNoColour;
  *foreground = record ? record->foreground : kNoColour;
}

int Installer::variableChanged(const char* variable, int dialog, int subDialog) {
  DIALOGINFO* top = getDialog(dialog, -1);
  if (!top || !variable || !*variable) return 0;
  DIALOGINFO* record = getDialog(dialog, subDialog);
  if (!record) record = top;

  // A field whose condition names the variable may appear or vanish. A
  // field's validation variable moves with every edit on the page, so an
  // element whose condition reads one is refreshed whatever changed.
  int flags = 0;
  Table<CharString> validation;
  for (int i = 0; i < record->fields.getCount(); i++) {
    const FIELDINFO& field = record->fields[i];
    if (mentions(field.condition, variable)) flags |= kRefreshFields;
    if (field.validationVariable[0]) validation.add(CharString(field.validationVariable));
  }
  for (int i = 0; i < record->elements.getCount() && !(flags & kRefreshConditions); i++) {
    const char* condition = record->elements[i].condition;
    if (mentions(condition, variable)) flags |= kRefreshConditions;
    for (int v = 0; v < validation.getCount() && !(flags & kRefreshConditions); v++) {
      if (mentions(condition, validation[v].getText())) flags |= kRefreshConditions;
    }
  }
  for (int i = 0; i < top->tasks.getCount() && flags < kRefreshTasks; i++) {
    if (mentions(top->tasks[i].enableCondition, variable)) flags |= kRefreshTasks;
  }
  return flags;
}

void Installer::fireTriggers(int event, int dialog, int subDialog) {
  DIALOGINFO* record = getDialog(dialog, subDialog);
  if (!record) return;
  for (int i = 0; i < record->triggers.getCount(); i++) {
    const TRIGGERINFO& trigger = record->triggers[i];
    if (!(trigger.events & event)) continue;
    if (evaluateCondition(trigger.condition) == 0) continue;
    switch (trigger.type) {
      case kTriggerVarChange: {
        char value[1024];
        expandVariables(trigger.value, value, sizeof value);
        setVariable(trigger.variable, value);
        break;
      }
      case kTriggerRunActions:
        runTagActions(nullptr, trigger.value);
        break;
      case kTriggerVarReset:
        if (resetVariable(trigger.variable, 1) != 0) {
          log("WARNING: Trying to reset non-existent variable: %s", trigger.variable);
        }
        break;
      case kTriggerVarRecalculation:
        recalculateDependents(getVariable(trigger.variable, nullptr, 0));
        break;
      default:
        log("WARNING: Unrecognized trigger type (%d)", trigger.type);
        break;
    }
  }
}
