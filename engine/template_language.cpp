// The tables of the template language. Each element's entry says where it
// stands, what its text is, and lists its attributes; the summaries and
// examples are written for the reference that is generated from them.
#include "engine/template_language.h"

#include <cstring>

#include "foundation/text.h"

namespace templatelang {
namespace {

#define COUNT(array) static_cast<int>(sizeof(array) / sizeof(array[0]))

const char kColourSummary[] = "0xRRGGBB, or Group:NAME for a colour of the theme's CustomGroup";

// ---------------------------------------------------------------------------
// Attribute lists shared by several elements.

const Attribute kConditionOnly[] = {
    {"Condition", Kind::kCondition, nullptr, 0, "False passes the element over."},
};

const Attribute kPageAttributes[] = {
    {"Special", Kind::kWords, "HasSubDialogs;AutoNext;Finish;WeakCondition;BadFinish;1", 0,
     "Flags: HasSubDialogs (a frame whose TaskList and SubDialogs give its steps), AutoNext (the walk goes on "
     "by itself once the page's work is done), Finish (the wizard ends on this page), WeakCondition (the page's "
     "running-programs check doesn't hold the walk). BadFinish, or 1, has no effect of its own."},
    {"Condition", Kind::kCondition, nullptr, 0, "False passes the page over, going forward and back."},
    {"w", Kind::kInteger, nullptr, 0, "Width of the window for this page, in units (760)."},
    {"h", Kind::kInteger, nullptr, 0, "Height of the window for this page, in units (520)."},
    {"BkgColour", Kind::kColour, nullptr, 0, "Background colour: " "0xRRGGBB, or Group:NAME."},
    {"FgColour", Kind::kColour, nullptr, 0, "Text colour: 0xRRGGBB, or Group:NAME."},
    {"Retain", Kind::kNames, nullptr, 0,
     "Names of controls (their Name) that stay on screen into the next sub-dialog, such as a progress bar."},
};

const Attribute kControlAttributes[] = {
    {"Name", Kind::kLiteral, nullptr, 0,
     "The control's name. The front ends fill the controls named Destfilelist, Destination, Current, Overall "
     "and TaskList; other names only serve Retain."},
    {"x", Kind::kInteger, nullptr, kRequired, "Left edge, in units; from the right edge with HAlign=\"right\"."},
    {"y", Kind::kInteger, nullptr, kRequired, "Top edge, in units; from the bottom edge with VAlign=\"bottom\"."},
    {"w", Kind::kInteger, nullptr, 0, "Width; a negative number leaves that much room to the right edge."},
    {"h", Kind::kInteger, nullptr, 0, "Height; a negative number leaves that much room to the bottom edge."},
    {"HAlign", Kind::kChoice, "left;center;right", 0,
     "right measures x from the right edge; center centres a picture in its rectangle."},
    {"VAlign", Kind::kChoice, "top;center;bottom", 0,
     "bottom measures y from the bottom edge; center centres a picture in its rectangle."},
    {"Condition", Kind::kCondition, nullptr, 0, "False hides the control; it is evaluated again on each change."},
    {"Details", Kind::kDetails, "size;width;height", 0,
     "For a TaskLB: the size of its task icons, as size=N or width=N;height=N."},
    {"BkgColour", Kind::kColour, nullptr, 0, "Background colour: 0xRRGGBB, or Group:NAME."},
    {"FgColour", Kind::kColour, nullptr, 0, "Text colour: 0xRRGGBB, or Group:NAME."},
};

const Attribute kButtonAttributes[] = {
    {"Name", Kind::kChoice, "Next;Back;Cancel;Help;Customize;Express", 0,
     "A standard button: Next (moves on, the default button), Back, Cancel, Help (opens InstallHelpURL), "
     "Customize and Express (set CUSTOMIZE to 1 or 0 and move). The name wins over DialogShift and Action."},
    {"x", Kind::kInteger, nullptr, kRequired, "Left edge; from the right edge with HAlign=\"right\"."},
    {"y", Kind::kInteger, nullptr, kRequired, "Top edge; from the bottom edge with VAlign=\"bottom\"."},
    {"w", Kind::kInteger, nullptr, 0, "Width (80)."},
    {"h", Kind::kInteger, nullptr, 0, "Height (30)."},
    {"HAlign", Kind::kChoice, "left;right", 0, "right measures x from the right edge."},
    {"VAlign", Kind::kChoice, "top;bottom", 0, "bottom measures y from the bottom edge."},
    {"Condition", Kind::kCondition, nullptr, 0, "False hides the button."},
    {"Action", Kind::kAction, nullptr, 0,
     "Cancel, Help, or assignments such as [ACCEPTED]='1';[OTHER]='0', made before the button moves."},
    {"DialogShift", Kind::kInteger, nullptr, 0, "Pages to move: +1 forward, -1 back."},
    {"Default", Kind::kOne, nullptr, 0, "1: the button that Enter presses."},
    {"Disableable", Kind::kOne, nullptr, 0,
     "1: the button starts disabled and comes alive when the page's fields are valid and its running-programs "
     "check passes."},
    {"LinkStyle", Kind::kOne, nullptr, 0, "1: drawn as a link."},
    {"BkgColour", Kind::kColour, nullptr, 0, "Background colour."},
    {"FgColour", Kind::kColour, nullptr, 0, "Text colour."},
    {"ActiveBkgColour", Kind::kColour, nullptr, 0, "Background colour under the mouse."},
    {"ActiveFgColour", Kind::kColour, nullptr, 0, "Text colour under the mouse."},
};

const Attribute kFieldAttributes[] = {
    {"Type", Kind::kChoice, "Directory;CheckBox;RadioButtons;InstallParameter", kRequired,
     "Directory (a folder, with a button to choose one), CheckBox (1 or 0), RadioButtons (the number of the "
     "choice, from 0), InstallParameter (shows a variable, read-only)."},
    {"Label", Kind::kLiteral, nullptr, 0, "The field's label."},
    {"Content", Kind::kLiteral, nullptr, 0,
     "RadioButtons: the choices, separated by ';'. InstallParameter: what the variable holds, Directory, "
     "RadioButtons or CheckBox."},
    {"Description", Kind::kLiteral, nullptr, 0,
     "Directory: a help text. RadioButtons: one text for each choice, separated by ';'."},
    {"Enable", Kind::kCondition, nullptr, 0,
     "One condition for each choice of a RadioButtons field, separated by '|'; a false one disables the "
     "choice."},
    {"ValidationVariable", Kind::kVariable, nullptr, 0,
     "A variable that the field sets to 1 while its value is valid and to 0 when it isn't, for conditions "
     "to react to. It counts as 1 until the page is shown."},
    {"Condition", Kind::kCondition, nullptr, 0, "False hides the field and skips its question."},
    {"x", Kind::kInteger, nullptr, 0, "Left edge (25)."},
    {"y", Kind::kInteger, nullptr, 0, "Top edge; without it the field stands under the one before."},
    {"w", Kind::kInteger, nullptr, 0, "Width; without it the field reaches to 16 units from the right edge."},
    {"h", Kind::kInteger, nullptr, 0, "Height."},
    {"HAlign", Kind::kChoice, "left;center;right", 0, "right measures x from the right edge."},
    {"VAlign", Kind::kChoice, "top;center;bottom", 0, "bottom measures y from the bottom edge."},
    {"LabelColour", Kind::kColour, nullptr, 0, "Label colour."},
    {"InputBkgColour", Kind::kColour, nullptr, 0, "Background of the input box."},
    {"InputFgColour", Kind::kColour, nullptr, 0, "Text of the input box."},
    {"ButtonBkgColour", Kind::kColour, nullptr, 0, "Background of the field's button."},
    {"ButtonFgColour", Kind::kColour, nullptr, 0, "Text of the field's button."},
    {"InvalidBkgColour", Kind::kColour, nullptr, 0, "Background while the value isn't valid."},
    {"InvalidFgColour", Kind::kColour, nullptr, 0, "Text while the value isn't valid."},
};

const Attribute kTriggerAttributes[] = {
    {"EvaluateOn", Kind::kWords, "Start;Set;End;Dynamic", kRequired,
     "When it fires: Start (or Set) when the page is entered, End when it is left, Dynamic when a field of the "
     "window changes."},
    {"Type", Kind::kChoice, "VarChange;RunActions;VarReset;VarRecalculation", 0,
     "VarChange (the default) sets Variable to Value; RunActions runs the section of actions named by Value; "
     "VarReset ties Variable to its DefValues expression again; VarRecalculation recalculates the variables "
     "that follow Variable."},
    {"Variable", Kind::kVariable, nullptr, 0, "The variable it sets or resets."},
    {"Value", Kind::kText, nullptr, 0,
     "VarChange: the new value, with [NAME] references. RunActions: the tag of the section to run."},
    {"Condition", Kind::kCondition, nullptr, 0, "False keeps it from firing."},
};

const Attribute kTaskAttributes[] = {
    {"CurrentLabel", Kind::kLiteral, nullptr, 0, "The task's text while it is the current step."},
    {"FinishLabel", Kind::kLiteral, nullptr, 0, "Its text once done (CurrentLabel if empty)."},
    {"UnreachedLabel", Kind::kLiteral, nullptr, 0, "Its text before it is reached (CurrentLabel if empty)."},
    {"ShowCondition", Kind::kCondition, nullptr, 0, "False leaves the task out of the list."},
    {"EnableCondition", Kind::kCondition, nullptr, 0, "False shows the task as inactive."},
};

const Attribute kTestAppAttributes[] = {
    {"Directory", Kind::kPath, nullptr, 0, "Only a program run from this folder counts."},
    {"Condition", Kind::kCondition, nullptr, 0, "False leaves the entry out."},
};

const Attribute kTerminateAppAttributes[] = {
    {"Service", Kind::kChoice, "true;false", 0, "true: the program runs as a service, which is stopped."},
    {"Condition", Kind::kCondition, nullptr, 0, "False leaves the entry out."},
};

const Attribute kCustomGroupAttributes[] = {
    {"Name", Kind::kLiteral, nullptr, kRequired, "The group's name, used as Group:NAME in colour attributes."},
    {"Condition", Kind::kCondition, nullptr, 0, "False passes the colour over."},
};

const Attribute kUninstallAttributes[] = {
    {"Auto", Kind::kFlag, nullptr, kBuilder,
     "qlux-pack fills the uninstall data itself: the four paths below Dest, the uninstaller program, "
     "placeholders for the log and the backup, and wildcards for what they leave behind."},
    {"Dest", Kind::kFolder, nullptr, kBuilder,
     "With Auto: the folder of the uninstall data. Without it, uninstall in the folder of the first Directory "
     "field."},
};

const Attribute kExcludeAttributes[] = {
    {"ExcludeFrom", Kind::kWords, "log;config;all", 0,
     "Where the variable is left out: log (the action log's values), config (config.xml), all (both, the "
     "default)."},
};

const Attribute kValueAttributes[] = {
    {"Name", Kind::kVariable, nullptr, kRequired, "The variable."},
    {"DataType", Kind::kChoice, "value;registry;installvar;checkproc", kRequired,
     "value: the text with $NAME references; registry: the registry value named by the text; installvar: the "
     "variable named by the text in another product's log; checkproc: 1 if the program named by the text "
     "runs, else 0."},
    {"Condition", Kind::kCondition, nullptr, 0, "False passes the entry over."},
    {"UseOld", Kind::kNotZero, nullptr, 0,
     "1: a value from an earlier installation's log stays, so that an upgrade keeps the user's choices."},
    {"Recalculate", Kind::kNotZero, nullptr, 0,
     "1: the variable follows its expression when a variable it names changes, until it is set by hand."},
    {"Default", Kind::kText, nullptr, 0, "registry: the value when the registry gives none."},
    {"RegPlace", Kind::kChoice, "HKEY_CLASSES_ROOT;HKEY_CURRENT_USER;HKEY_LOCAL_MACHINE;HKEY_USERS", 0,
     "registry: the root key."},
    {"RegKey", Kind::kLiteral, nullptr, 0,
     "registry: the key's path; '/' and '\\' both serve. A '*' stands for any sub-key, and the last one "
     "listed wins."},
    {"PreferredKey", Kind::kLiteral, nullptr, 0, "registry with '*': a key path tried first."},
    {"AppName", Kind::kLiteral, nullptr, 0, "installvar: the other product's Fullname."},
};

const Attribute kInstallTypeAttributes[] = {
    {"Name", Kind::kLiteral, nullptr, 0, "The type's name."},
    {"Default", Kind::kInteger, nullptr, 0, "Kept, not used."},
    {"EditFileSets", Kind::kInteger, nullptr, 0, "Kept, not used."},
};

const Attribute kFileSetAttributes[] = {
    {"Name", Kind::kLiteral, nullptr, kRequired, "The set's name; a set without one is passed over."},
    {"Desc", Kind::kLiteral, nullptr, 0, "A description."},
    {"Condition", Kind::kCondition, nullptr, 0, "False passes every entry of the set over."},
};

const Attribute kFNAttributes[] = {
    {"Dest", Kind::kFolder, nullptr, 0,
     "The folder the file is installed into. Without it nothing is written: the file only serves the wizard "
     "(a picture, a licence)."},
    {"Alias", Kind::kLiteral, nullptr, 0,
     "The key the file is packed under; without it, the text with every '/' and '\\' taken out."},
    {"Condition", Kind::kCondition, nullptr, 0, "False passes the file over."},
    {"Executable", Kind::kFlag, nullptr, 0,
     "The file is a program: mode 0755 on Linux. qlux-pack sets it for a file of a folder entry that has an "
     "execute bit."},
    {"StripExeExt", Kind::kFlag, nullptr, 0, "With Executable: installed without its .exe on Linux."},
    {"BackupExisting", Kind::kFlag, nullptr, 0,
     "A different file already there is saved first and comes back at uninstallation."},
    {"OkIfMissing", Kind::kFlag, nullptr, 0, "A file missing from the source folder is no error."},
    {"ExpandVarsInFile", Kind::kFlag, nullptr, 0,
     "The file is text whose [NAME] references are replaced when it is written (files below 8 KiB only)."},
    {"Symlink", Kind::kFlag, nullptr, 0,
     "The packed file holds the target of a symbolic link, which Linux makes in its place. qlux-pack writes "
     "it for a link in a folder entry."},
    {"Recurse", Kind::kFlag, nullptr, kBuilder,
     "The text names a folder, or a wildcard, whose files are taken from every folder below, keeping their "
     "relative paths below Dest. Empty folders are kept, links stay links."},
    {"Exclude", Kind::kLiteral, nullptr, kBuilder,
     "With a folder or a wildcard: patterns of files and folders to leave out, separated by ';'. A pattern "
     "with a '/' is matched against the path below the folder, one without against the name."},
};

const Attribute kEnvironmentChildAttributes[] = {
    {"VarName", Kind::kName, nullptr, kRequired, "The machine-wide environment variable."},
    {"IsPath", Kind::kFlag, nullptr, 0,
     "The value is a folder: Append and Insert leave a list that holds it already (in any spelling) alone."},
    {"Condition", Kind::kCondition, nullptr, 0, "False passes the change over."},
};

const Attribute kIniAddAttributes[] = {
    {"FileName", Kind::kPath, nullptr, kRequired, "The INI file."},
    {"Section", Kind::kText, nullptr, kRequired, "The section, without brackets."},
    {"Key", Kind::kText, nullptr, kRequired, "The key."},
    {"BeforeKey", Kind::kText, nullptr, 0, "A new key goes in front of this one."},
    {"IsPath", Kind::kFlag, nullptr, 0, "The value is a folder: a section that holds it already is left alone."},
    {"IgnoreErrors", Kind::kFlag, nullptr, 0, "A failure doesn't end the IniFiles element."},
    {"Condition", Kind::kCondition, nullptr, 0, "False passes the key over."},
};

const Attribute kModifyFileAttributes[] = {
    {"Path", Kind::kPath, nullptr, kRequired, "The text file to change."},
    {"Command", Kind::kChoice, "AddAfter", kRequired,
     "AddAfter: the modification file's new lines go after each run of its lines to look for."},
};

const Attribute kShortcutAttributes[] = {
    {"Type", Kind::kChoice, "File;URL;Uninstall;Symlink", kRequired | kExactCase,
     "File: a shortcut to a program or file (a desktop entry on Linux); URL: an Internet shortcut; Uninstall: "
     "a shortcut to the product's uninstall command; Symlink: a symbolic link (Linux only)."},
    {"Dest", Kind::kFolder, nullptr, kRequired, "The folder the shortcut goes into."},
    {"Target", Kind::kPath, nullptr, 0, "What it opens (an address for URL); not needed for Uninstall."},
    {"Description", Kind::kLiteral, nullptr, 0, "Its description (\"Halvo Works installer shortcut\")."},
    {"Arguments", Kind::kText, nullptr, 0, "Arguments for the program."},
    {"StartPath", Kind::kPath, nullptr, 0, "The folder the program starts in."},
    {"Condition", Kind::kCondition, nullptr, 0, "False passes the shortcut over."},
};

const Attribute kFirewallApplicationAttributes[] = {
    {"Target", Kind::kPath, nullptr, kRequired, "The program the firewall lets through."},
    {"Condition", Kind::kCondition, nullptr, 0, "False passes the rule over."},
};

const Attribute kFirewallPortAttributes[] = {
    {"Port", Kind::kInteger, nullptr, kRequired, "The port number."},
    {"Protocol", Kind::kWords, "TCP;UDP", kExactCase, "TCP, UDP or TCP;UDP (the default: both)."},
    {"Condition", Kind::kCondition, nullptr, 0, "False passes the rule over."},
};

const Attribute kTagChildAttributes[] = {
    {"Condition", Kind::kCondition, nullptr, 0, "False passes the action over."},
    {"Log", Kind::kLiteral, nullptr, 0, "A line for the progress list, shown before the action."},
    {"Arguments", Kind::kText, nullptr, 0, "RunProgram: the command line's arguments."},
    {"WorkDir", Kind::kPath, nullptr, 0, "RunProgram: the folder it runs in."},
    {"Wait", Kind::kCondition, nullptr, 0, "RunProgram: true waits for the program to end."},
    {"Asynchronous", Kind::kCondition, nullptr, 0,
     "RunProgram: true waits for the program while the wizard stays alive."},
    {"AsRoot", Kind::kCondition, nullptr, 0, "RunProgram: true asks for full rights (the installer has them)."},
    {"ErrorOutput", Kind::kCondition, nullptr, 0, "RunProgram: false sends the program's error output nowhere."},
    {"ProgressUpdate", Kind::kInteger, nullptr, 0,
     "RunProgram with Asynchronous: moves the progress bar while waiting, one step every N times 10 "
     "milliseconds."},
    {"Dest", Kind::kPath, nullptr, 0, "CopyFile: the path of the copy."},
    {"StripExeExt", Kind::kFlag, nullptr, 0, "Accepted, without effect."},
};

const Attribute kRegistryActionAttributes[] = {
    {"Place", Kind::kChoice, "HKEY_CLASSES_ROOT;HKEY_CURRENT_USER;HKEY_LOCAL_MACHINE;HKEY_USERS", kRequired,
     "The root key."},
    {"Path", Kind::kText, nullptr, kRequired, "The key's path below the root; '/' and '\\' both serve."},
    {"Value", Kind::kText, nullptr, 0, "AddValue, RemoveValue: the value's name."},
    {"Type", Kind::kChoice, "REG_SZ;REG_DWORD;REG_BINARY", 0,
     "AddValue: REG_SZ (the default), REG_DWORD (the text in hexadecimal) or REG_BINARY (hexadecimal "
     "digits)."},
    {"Expand", Kind::kCondition, nullptr, 0,
     "True replaces [NAME] references in Path, Value, the data and Log; without it they stay as written."},
    {"ActionLog", Kind::kCondition, nullptr, 0,
     "False leaves the change out of the action log: uninstalling keeps it."},
    {"KeyCount", Kind::kInteger, nullptr, 0, "RemoveKey: how many levels of the path go (1)."},
    {"Log", Kind::kText, nullptr, 0, "A line for the progress list."},
    {"Condition", Kind::kCondition, nullptr, 0, "False passes the action over."},
};

const Attribute kWildcardAttributes[] = {
    {"Dest", Kind::kFolder, nullptr, kRequired, "The folder searched, with every folder below it."},
    {"DeleteDirs", Kind::kCondition, nullptr, 0, "True removes the folders that are left empty."},
    {"Condition", Kind::kCondition, nullptr, 0, "False passes the pattern over."},
};

const Attribute kProductAttributes[] = {
    {"IfNewerInstalled", Kind::kChoice, "Refuse;Allow", 0,
     "What an installer does when a newer version of the product is installed (the DisplayVersion of its "
     "entry in the list of installed programs): Refuse (the default) shows a message and ends with exit code 4, "
     "changing nothing; Allow installs the older version over it."},
    {"IfSameInstalled", Kind::kChoice, "Reinstall;Skip", 0,
     "What an installer does when the same version is installed: Reinstall (the default) installs it again; "
     "Skip ends at once with exit code 0, saying that there is nothing to do."},
};

// ---------------------------------------------------------------------------
// The elements.

const char kDocumentSections[] = "HalvoWorksInstallation;Installation";

const Element kElements[] = {
    // The document and the product.
    {"HalvoWorksInstallation", "", nullptr, Kind::kNone, kRequired | kExactCase, nullptr, 0,
     "The root element of every template.",
     "<HalvoWorksInstallation>\n"
     "  <ProductDesc>...</ProductDesc>\n"
     "  <Dialogs>...</Dialogs>\n"
     "  <UninstallDialogs>...</UninstallDialogs>\n"
     "  <Installation>...</Installation>\n"
     "</HalvoWorksInstallation>"},
    {"Desc", "HalvoWorksInstallation", nullptr, Kind::kNone, kExactCase, nullptr, 0,
     "An optional wrapper around ProductDesc.",
     "<Desc>\n"
     "  <ProductDesc>...</ProductDesc>\n"
     "</Desc>"},
    {"ProductDesc", "HalvoWorksInstallation;Desc", nullptr, Kind::kNone, kRequired | kExactCase,
     kProductAttributes, COUNT(kProductAttributes),
     "The product: its name, version and addresses, and what to do when it is installed already. Without it "
     "the installer stops.",
     "<ProductDesc IfSameInstalled=\"Skip\">\n"
     "  <Fullname>Acme Editor</Fullname>\n"
     "  <MajorVersion>2</MajorVersion><MinorVersion>1</MinorVersion><MinestVersion>0</MinestVersion>\n"
     "  <Website>https://acme.example.org</Website>\n"
     "</ProductDesc>"},
    {"Fullname", "ProductDesc", nullptr, Kind::kLiteral, kRequired | kExactCase, nullptr, 0,
     "The product's name: the window title, and the name of its entry in the list of installed programs. "
     "Without it nothing is registered.",
     "<Fullname>Acme Editor</Fullname>"},
    {"Title", "ProductDesc", nullptr, Kind::kLiteral, kExactCase, nullptr, 0,
     "The window title; without it, Fullname and the version.",
     "<Title>Acme Editor Setup</Title>"},
    {"UninstallTitle", "ProductDesc", nullptr, Kind::kLiteral, kExactCase, nullptr, 0,
     "The uninstaller's window title; without it, the installer's.",
     "<UninstallTitle>Remove Acme Editor</UninstallTitle>"},
    {"MajorVersion", "ProductDesc", nullptr, Kind::kLiteral, kExactCase, nullptr, 0,
     "The first number of the version. The version is MajorVersion.MinorVersion.MinestVersion; all three are "
     "needed for it.",
     "<MajorVersion>2</MajorVersion>"},
    {"MinorVersion", "ProductDesc", nullptr, Kind::kLiteral, kExactCase, nullptr, 0,
     "The second number of the version.",
     "<MinorVersion>1</MinorVersion>"},
    {"MinestVersion", "ProductDesc", nullptr, Kind::kLiteral, kExactCase, nullptr, 0,
     "The third number of the version.",
     "<MinestVersion>0</MinestVersion>"},
    {"LetterVersion", "ProductDesc", nullptr, Kind::kLiteral, kExactCase | kUnread, nullptr, 0, "Kept, not used.",
     "<LetterVersion>b</LetterVersion>"},
    {"Website", "ProductDesc", nullptr, Kind::kLiteral, kExactCase, nullptr, 0,
     "The product's web address, shown in the list of installed programs.",
     "<Website>https://acme.example.org</Website>"},
    {"Supportemail", "ProductDesc", nullptr, Kind::kLiteral, kExactCase, nullptr, 0, "A support address.",
     "<Supportemail>support@acme.example.org</Supportemail>"},
    {"Supportsite", "ProductDesc", nullptr, Kind::kLiteral, kExactCase | kUnread, nullptr, 0, "Kept, not used.",
     "<Supportsite>https://acme.example.org/support</Supportsite>"},
    {"InstallHelpURL", "ProductDesc", nullptr, Kind::kLiteral, kExactCase, nullptr, 0,
     "What the Help button opens.",
     "<InstallHelpURL>https://acme.example.org/install-help</InstallHelpURL>"},
    {"LegacyApplication", "ProductDesc", nullptr, Kind::kLiteral, kExactCase | kRepeats | kTextRequired, nullptr,
     0,
     "A name under which earlier versions were registered. Such an installation is found and removed like one "
     "of this product, and its registration goes.",
     "<LegacyApplication>Acme Edit</LegacyApplication>"},
    {"Publisher", "ProductDesc", nullptr, Kind::kLiteral, kExactCase, nullptr, 0,
     "The publisher shown in the list of installed programs (\"Halvo Software Ltd\").",
     "<Publisher>Acme Software</Publisher>"},
    {"BannerText", "ProductDesc", nullptr, Kind::kLiteral, kExactCase, nullptr, 0,
     "The line the console installer shows in its banner (\"Halvo Works installer\").",
     "<BannerText>Acme Editor 2.1 setup</BannerText>"},
    {"UninstallBannerText", "ProductDesc", nullptr, Kind::kLiteral, kExactCase, nullptr, 0,
     "The line the console uninstaller shows in its banner (\"Halvo Works uninstaller\").",
     "<UninstallBannerText>Removing Acme Editor</UninstallBannerText>"},

    // The wizard.
    {"Dialogs", kDocumentSections, nullptr, Kind::kNone, kRequired | kExactCase, nullptr, 0,
     "The installer's wizard: its pages, in order. Each child is a page, named as the template likes; some "
     "names make the engine do work when the page is entered (see Pages that do the work).",
     "<Dialogs>\n"
     "  <Welcome>...</Welcome>\n"
     "  <InstallationDialog Special=\"HasSubDialogs\">...</InstallationDialog>\n"
     "</Dialogs>"},
    {"UninstallDialogs", kDocumentSections, nullptr, Kind::kNone, kExactCase, nullptr, 0,
     "The uninstaller's wizard, like Dialogs. Its pages have no fields.",
     "<UninstallDialogs>\n"
     "  <CopyProgress Special=\"AutoNext\"/>\n"
     "  <UnregisterApplication Special=\"AutoNext\"/>\n"
     "  <Finish Special=\"Finish\"/>\n"
     "</UninstallDialogs>"},
    {"@dialog", "Dialogs;UninstallDialogs", nullptr, Kind::kNone, kRepeats, kPageAttributes,
     COUNT(kPageAttributes),
     "A page of the wizard. Its tag is its name; the engine does work on entering a page with one of the "
     "special names.",
     "<Welcome>\n"
     "  <Text x=\"20\" y=\"20\" w=\"-20\" h=\"40\">Welcome to the Acme Editor setup.</Text>\n"
     "  <Button Name=\"Next\" x=\"100\" y=\"50\" HAlign=\"right\" VAlign=\"bottom\">&amp;Next</Button>\n"
     "  <Button Name=\"Cancel\" x=\"20\" y=\"50\" VAlign=\"bottom\">&amp;Cancel</Button>\n"
     "</Welcome>"},
    {"TaskList", "@dialog", nullptr, Kind::kNone, kExactCase, nullptr, 0,
     "In a page with Special=\"HasSubDialogs\": the steps of the frame, in order. Each child's tag names a "
     "sub-dialog of SubDialogs, which every task needs.",
     "<TaskList>\n"
     "  <Licence CurrentLabel=\"Licence\"/>\n"
     "  <CopyProgress CurrentLabel=\"Installing files\" FinishLabel=\"Files installed\"/>\n"
     "</TaskList>"},
    {"@task", "TaskList", nullptr, Kind::kNone, kRepeats, kTaskAttributes, COUNT(kTaskAttributes),
     "A step of the frame; its tag is the name of its sub-dialog.",
     "<CopyProgress CurrentLabel=\"Installing files\" FinishLabel=\"Files installed\"/>"},
    {"SubDialogs", "@dialog", nullptr, Kind::kNone, kExactCase, nullptr, 0,
     "In a page with Special=\"HasSubDialogs\": the sub-dialogs, each named by a task. Their order here "
     "doesn't matter; the TaskList's does.",
     "<SubDialogs>\n"
     "  <Licence>...</Licence>\n"
     "  <CopyProgress Special=\"AutoNext\">...</CopyProgress>\n"
     "</SubDialogs>"},
    {"@subdialog", "SubDialogs", nullptr, Kind::kNone, kRepeats, kPageAttributes, COUNT(kPageAttributes),
     "A step of a frame, shown inside the frame's page; it has the attributes and children of a page.",
     "<CopyProgress Special=\"AutoNext\">\n"
     "  <Text Name=\"Destination\" x=\"200\" y=\"10\" w=\"-10\" h=\"20\"/>\n"
     "  <Progress Name=\"Overall\" x=\"200\" y=\"40\" w=\"-10\" h=\"20\"/>\n"
     "  <List Name=\"Destfilelist\" x=\"200\" y=\"70\" w=\"-10\" h=\"-80\"/>\n"
     "</CopyProgress>"},
    {"Text", "@page", nullptr, Kind::kText, kExactCase | kRepeats, kControlAttributes,
     COUNT(kControlAttributes),
     "A text. \\n (a backslash and n) breaks the line; [NAME] references are replaced by the variables' values "
     "when the page is shown.",
     "<Text x=\"200\" y=\"10\" w=\"-10\" h=\"40\">Choose where to install Acme Editor.</Text>"},
    {"Image", "@page", nullptr, Kind::kFileKey, kExactCase | kRepeats, kControlAttributes,
     COUNT(kControlAttributes), "A PNG or JPEG picture; the text is its packed file's key.",
     "<Image x=\"10\" y=\"10\" w=\"180\" h=\"120\">banner</Image>"},
    {"HLine", "@page", nullptr, Kind::kNone, kExactCase | kRepeats, kControlAttributes, COUNT(kControlAttributes),
     "A horizontal line.", "<HLine x=\"1\" y=\"70\" w=\"-1\" h=\"1\" VAlign=\"bottom\"/>"},
    {"RichEditText", "@page", nullptr, Kind::kFileKey, kExactCase | kRepeats, kControlAttributes,
     COUNT(kControlAttributes),
     "A scrolling document, such as a licence; the text is its packed file's key. The file is RTF, or plain "
     "text shown with its lines.",
     "<RichEditText x=\"200\" y=\"10\" w=\"-10\" h=\"-80\">licence</RichEditText>"},
    {"Progress", "@page", nullptr, Kind::kNone, kExactCase | kRepeats, kControlAttributes,
     COUNT(kControlAttributes), "A progress bar: named Overall (the whole work) or Current (one program).",
     "<Progress Name=\"Overall\" x=\"200\" y=\"40\" w=\"-10\" h=\"20\"/>"},
    {"List", "@page", nullptr, Kind::kNone, kExactCase | kRepeats, kControlAttributes, COUNT(kControlAttributes),
     "A list of lines: named Destfilelist, it shows the files being worked on, the errors, and the programs "
     "that a RunningApps page waits for.",
     "<List Name=\"Destfilelist\" x=\"200\" y=\"70\" w=\"-10\" h=\"-80\"/>"},
    {"TaskLB", "@page", nullptr, Kind::kNone, kExactCase | kRepeats, kControlAttributes, COUNT(kControlAttributes),
     "The task list of a frame, named TaskList, with an icon per step (the packed files icon_not_started, "
     "icon_current, icon_good_finish, icon_bad_finish, icon_inactive).",
     "<TaskLB Name=\"TaskList\" x=\"10\" y=\"140\" w=\"180\" h=\"-80\" Details=\"size=18\"/>"},
    {"Border", "@page", nullptr, Kind::kNone, kExactCase | kRepeats, kControlAttributes, COUNT(kControlAttributes),
     "A frame drawn round a part of the page.",
     "<Border x=\"190\" y=\"5\" w=\"-5\" h=\"-75\"/>"},
    {"SlideShow", "@page", nullptr, Kind::kLiteral, kExactCase | kRepeats, kControlAttributes,
     COUNT(kControlAttributes),
     "A picture chosen at random from several: the text is their number N, and the packed files are Name0 to "
     "Name(N-1).",
     "<SlideShow Name=\"slide\" x=\"10\" y=\"10\" w=\"180\" h=\"120\">3</SlideShow>"},
    {"Button", "@page", nullptr, Kind::kLiteral, kExactCase | kRepeats | kTextRequired, kButtonAttributes,
     COUNT(kButtonAttributes), "A button; the text is its label, and '&' marks its key (&amp; in XML).",
     "<Button Name=\"Next\" x=\"100\" y=\"50\" HAlign=\"right\" VAlign=\"bottom\" Disableable=\"1\">&amp;Next</Button>"},
    {"Field", "@page", nullptr, Kind::kVariable, kExactCase | kRepeats, kFieldAttributes, COUNT(kFieldAttributes),
     "An input bound to the variable named by its text. The uninstaller's pages have none.",
     "<Field Type=\"Directory\" Label=\"Destination folder\" ValidationVariable=\"INSTALLDIR_VALID\"\n"
     "       x=\"200\" y=\"50\" w=\"-10\">INSTALLDIR</Field>"},
    {"Trigger", "@page", nullptr, Kind::kNone, kExactCase | kRepeats, kTriggerAttributes,
     COUNT(kTriggerAttributes), "Something that happens when the page is entered or left, or a field changes.",
     "<Trigger EvaluateOn=\"Start\" Variable=\"FILES_DONE\" Value=\"1\"/>"},
    {"TestApp", "@page", nullptr, Kind::kName, kExactCase | kRepeats | kTextRequired, kTestAppAttributes,
     COUNT(kTestAppAttributes),
     "On a RunningApps page: a program (its file name) that must not run while the installation goes on. The "
     "page holds the walk until it has ended.",
     "<TestApp Directory=\"[INSTALLDIR]/bin\">acme-editor</TestApp>"},
    {"TerminateApp", "@page", nullptr, Kind::kName, kRepeats | kTextRequired, kTerminateAppAttributes,
     COUNT(kTerminateAppAttributes), "On a RunningApps page: a program that is ended when the page is entered.",
     "<TerminateApp>acme-helper</TerminateApp>"},

    // The colour theme.
    {"ColourTheme", kDocumentSections, nullptr, Kind::kNone, kExactCase, nullptr, 0,
     "The colours of the window. A later child overrides an earlier one of the same tag, so conditions can "
     "choose.",
     "<ColourTheme>\n"
     "  <DialogBackground>0xFFFFFF</DialogBackground>\n"
     "  <ButtonsBackground>0x2060A0</ButtonsBackground>\n"
     "  <CustomGroup Name=\"accent\">0xE07020</CustomGroup>\n"
     "</ColourTheme>"},
    {"@colour", "ColourTheme",
     "DialogBackground;DialogForeground;ListBackground;InputBoxBackground;InputBoxText;LinkButtons;"
     "ButtonsBackground;ButtonsText;ActiveButtonsBackground;ActiveButtonsText;ActiveText;InactiveText;"
     "HighlightedText;ProgressBarForeground;ProgressBarBackground;FieldForeground;FieldBackground;"
     "InvalidFieldForeground;InvalidFieldBackground;StaticElements",
     Kind::kColour, kRepeats, kConditionOnly, COUNT(kConditionOnly),
     "One colour of the theme, 0xRRGGBB, filling what the pages leave open.",
     "<ButtonsText Condition=\"[GUI_INSTALL]==1\">0xFFFFFF</ButtonsText>"},
    {"CustomGroup", "ColourTheme", nullptr, Kind::kColour, kRepeats, kCustomGroupAttributes,
     COUNT(kCustomGroupAttributes), "A named colour, for Group:NAME in colour attributes.",
     "<CustomGroup Name=\"accent\">0xE07020</CustomGroup>"},

    // The installation.
    {"Installation", "HalvoWorksInstallation", nullptr, Kind::kNone, kExactCase, nullptr, 0,
     "Holds the installation's data and actions.",
     "<Installation>\n"
     "  <Uninstall Auto=\"1\"/>\n"
     "  <DefValues>...</DefValues>\n"
     "  <FileSet Name=\"Program\">...</FileSet>\n"
     "</Installation>"},
    {"Uninstall", "Installation", nullptr, Kind::kNone, kExactCase, kUninstallAttributes,
     COUNT(kUninstallAttributes),
     "Where the uninstall data goes. It must stand before any other child of Installation whose tag begins "
     "with Uninstall (such as UninstallWildcards), since the engine finds it by the beginning of its tag.",
     "<Uninstall Auto=\"1\" Dest=\"[INSTALLDIR]/uninstall\"/>"},
    {"InstallLogFile", "Uninstall", nullptr, Kind::kPath, kExactCase, nullptr, 0,
     "Where the action log goes. List the same path in a FileSet (a placeholder file), so that uninstalling "
     "removes it.",
     "<InstallLogFile>[INSTALLDIR]/uninstall/install.log</InstallLogFile>"},
    {"InstallBackupFile", "Uninstall", nullptr, Kind::kPath, kExactCase, nullptr, 0,
     "Where the backup of replaced files goes; also listed in a FileSet.",
     "<InstallBackupFile>[INSTALLDIR]/uninstall/backup.bin</InstallBackupFile>"},
    {"UninstallXmlFile", "Uninstall", nullptr, Kind::kPath, kExactCase, nullptr, 0,
     "Where the template is saved for the uninstaller: an FN install.xml installs it there.",
     "<UninstallXmlFile>[INSTALLDIR]/uninstall/install.xml</UninstallXmlFile>"},
    {"UninstallCmd", "Uninstall", nullptr, Kind::kPath, kExactCase, nullptr, 0,
     "The uninstaller program that the registration names: the installer program itself without a package, "
     "installed by the file set.",
     "<UninstallCmd>[INSTALLDIR]/uninstall/uninstall</UninstallCmd>"},
    {"InstallerControlVariables", kDocumentSections, nullptr, Kind::kNone, kExactCase, nullptr, 0,
     "Names the variables through which the engine tells the template what happened. Give each a default in "
     "DefValues.",
     "<InstallerControlVariables>\n"
     "  <PreviousInstallation>PREVIOUSINSTALLATION</PreviousInstallation>\n"
     "  <ShouldUninstall>SHOULDUNINSTALL</ShouldUninstall>\n"
     "  <InstallError>INSTALL_ERROR</InstallError>\n"
     "  <UninstallError>UNINSTALL_ERROR</UninstallError>\n"
     "  <DlgCondition>DLG_CONDITION</DlgCondition>\n"
     "</InstallerControlVariables>"},
    {"PreviousInstallation", "InstallerControlVariables", nullptr, Kind::kVariable, kExactCase, nullptr, 0,
     "Set to 1 when an installation of the product (or a LegacyApplication) is found.",
     "<PreviousInstallation>PREVIOUSINSTALLATION</PreviousInstallation>"},
    {"ShouldUninstall", "InstallerControlVariables", nullptr, Kind::kVariable, kExactCase, nullptr, 0,
     "Set to 1 in the same case; 0 keeps the Uninstall page from removing the old installation.",
     "<ShouldUninstall>SHOULDUNINSTALL</ShouldUninstall>"},
    {"CustomizeSettings", "InstallerControlVariables", nullptr, Kind::kVariable, kExactCase, nullptr, 0,
     "Kept out of the log and config.xml.",
     "<CustomizeSettings>CUSTOMIZE</CustomizeSettings>"},
    {"ProgressDetails", "InstallerControlVariables", nullptr, Kind::kVariable, kExactCase, nullptr, 0,
     "Kept out of the log and config.xml.",
     "<ProgressDetails>SHOWDETAILS</ProgressDetails>"},
    {"InstallError", "InstallerControlVariables", nullptr, Kind::kVariable, kExactCase, nullptr, 0,
     "Set to 1 when the file stage or a revert failed.",
     "<InstallError>INSTALL_ERROR</InstallError>"},
    {"UninstallError", "InstallerControlVariables", nullptr, Kind::kVariable, kExactCase, nullptr, 0,
     "Set to 1 when an uninstallation failed.",
     "<UninstallError>UNINSTALL_ERROR</UninstallError>"},
    {"DlgCondition", "InstallerControlVariables", nullptr, Kind::kVariable, kExactCase, nullptr, 0,
     "1 or 0: whether the page's running-programs check passed; 0 when a page is entered.",
     "<DlgCondition>DLG_CONDITION</DlgCondition>"},
    {"InstallerExcludeVariables", kDocumentSections, nullptr, Kind::kNone, kExactCase, nullptr, 0,
     "Variables kept out of the action log or config.xml; each child's text names one.",
     "<InstallerExcludeVariables>\n"
     "  <Variable ExcludeFrom=\"config\">PREVIOUSINSTALLATION</Variable>\n"
     "</InstallerExcludeVariables>"},
    {"@exclude", "InstallerExcludeVariables", nullptr, Kind::kVariable, kRepeats | kTextRequired,
     kExcludeAttributes, COUNT(kExcludeAttributes), "One excluded variable; the tag is free (Variable is usual).",
     "<Variable ExcludeFrom=\"log;config\">LICENCEKEY</Variable>"},
    {"DefValues", kDocumentSections, nullptr, Kind::kNone, kRequired | kExactCase, nullptr, 0,
     "The variables and their defaults, worked out in order before the first page: an entry's $NAME refers to "
     "the entries above it. Without it the installer stops.",
     "<DefValues>\n"
     "  <Value Name=\"PROGRAMFILES\" DataType=\"registry\" UseOld=\"1\" RegPlace=\"HKEY_LOCAL_MACHINE\"\n"
     "         RegKey=\"SOFTWARE/Microsoft/Windows/CurrentVersion\">ProgramFilesDir</Value>\n"
     "  <Value Name=\"INSTALLDIR\" DataType=\"value\" UseOld=\"1\">$PROGRAMFILES/Acme Editor</Value>\n"
     "  <Value Name=\"INSTALL_ERROR\" DataType=\"value\">0</Value>\n"
     "</DefValues>"},
    {"Value", "DefValues", nullptr, Kind::kExpression, kRepeats, kValueAttributes, COUNT(kValueAttributes),
     "One variable's default. Several entries may name one variable, each with its own Condition; the last "
     "that applies wins.",
     "<Value Name=\"DATADIR\" DataType=\"value\" Recalculate=\"1\">$INSTALLDIR/data</Value>"},
    {"InstallType", kDocumentSections, nullptr, Kind::kNone, kExactCase | kRepeats, kInstallTypeAttributes,
     COUNT(kInstallTypeAttributes), "Kept, not used: which files go in is decided by the Conditions.",
     "<InstallType Name=\"Full\" Default=\"1\"><Desc>Everything</Desc></InstallType>"},
    {"Desc", "InstallType", nullptr, Kind::kLiteral, kExactCase, nullptr, 0, "The type's description.",
     "<Desc>Everything</Desc>"},
    {"FileSet", kDocumentSections, nullptr, Kind::kNone, kExactCase | kRepeats, kFileSetAttributes,
     COUNT(kFileSetAttributes), "A group of files, chosen together by its Condition.",
     "<FileSet Name=\"Program\">\n"
     "  <FN Dest=\"[INSTALLDIR]\" Recurse=\"1\" Exclude=\"*.pyc;__pycache__\">app</FN>\n"
     "  <FN Dest=\"[INSTALLDIR]/doc\">README.txt</FN>\n"
     "</FileSet>"},
    {"FN", "FileSet", nullptr, Kind::kSourcePath, kExactCase | kRepeats | kTextRequired, kFNAttributes,
     COUNT(kFNAttributes),
     "A file, named by its path below the source folder. qlux-pack expands a folder (with Recurse) and "
     "wildcards (lib/*.py) into one entry per file.",
     "<FN Dest=\"[INSTALLDIR]/bin\" Executable=\"1\">bin/acme-editor</FN>"},

    // Actions of the file stage.
    {"Environment", kDocumentSections, nullptr, Kind::kNone, kExactCase | kRepeats, kConditionOnly,
     COUNT(kConditionOnly),
     "Changes to the machine-wide environment. A failure ends the element. Uninstalling undoes each.",
     "<Environment>\n"
     "  <Append VarName=\"PATH\" IsPath=\"1\">[INSTALLDIR]/bin</Append>\n"
     "  <Replace VarName=\"ACME_HOME\">[INSTALLDIR]</Replace>\n"
     "</Environment>"},
    {"Replace", "Environment", nullptr, Kind::kText, kRepeats | kTextRequired, kEnvironmentChildAttributes,
     COUNT(kEnvironmentChildAttributes), "Sets the variable to the text.",
     "<Replace VarName=\"ACME_HOME\">[INSTALLDIR]</Replace>"},
    {"Append", "Environment", nullptr, Kind::kText, kRepeats | kTextRequired, kEnvironmentChildAttributes,
     COUNT(kEnvironmentChildAttributes),
     "Adds the text at the end of a list (';' on Windows, ':' on Linux).",
     "<Append VarName=\"PATH\" IsPath=\"1\">[INSTALLDIR]/bin</Append>"},
    {"Insert", "Environment", nullptr, Kind::kText, kRepeats | kTextRequired, kEnvironmentChildAttributes,
     COUNT(kEnvironmentChildAttributes), "Adds the text at the front of a list.",
     "<Insert VarName=\"PATH\" IsPath=\"1\">[INSTALLDIR]/bin</Insert>"},
    {"IniFiles", kDocumentSections, nullptr, Kind::kNone, kExactCase | kRepeats, nullptr, 0,
     "Keys written into INI files; uninstalling puts the old values back.",
     "<IniFiles>\n"
     "  <Add FileName=\"[INSTALLDIR]/etc/acme.ini\" Section=\"Paths\" Key=\"Home\">[INSTALLDIR]</Add>\n"
     "</IniFiles>"},
    {"Add", "IniFiles", nullptr, Kind::kText, kRepeats | kTextRequired, kIniAddAttributes,
     COUNT(kIniAddAttributes), "Writes a key; the text is its value.",
     "<Add FileName=\"[INSTALLDIR]/etc/acme.ini\" Section=\"Paths\" Key=\"Home\">[INSTALLDIR]</Add>"},
    {"ModifyFiles", kDocumentSections, nullptr, Kind::kNone, kExactCase | kRepeats, kConditionOnly,
     COUNT(kConditionOnly), "Lines added to text files; uninstalling takes them out again.",
     "<ModifyFiles>\n"
     "  <File Path=\"[INSTALLDIR]/etc/acme.conf\" Command=\"AddAfter\">[INSTALLDIR]/etc/acme.mod</File>\n"
     "</ModifyFiles>"},
    {"File", "ModifyFiles", nullptr, Kind::kPath, kRepeats | kTextRequired, kModifyFileAttributes,
     COUNT(kModifyFileAttributes),
     "The text is the modification file: a count n, n lines to look for, a count m, and m lines to add. It "
     "must still be there at uninstallation.",
     "<File Path=\"[INSTALLDIR]/etc/acme.conf\" Command=\"AddAfter\">[INSTALLDIR]/etc/acme.mod</File>"},
    {"Shortcuts", kDocumentSections, nullptr, Kind::kNone, kExactCase | kRepeats, nullptr, 0,
     "Shortcuts; uninstalling removes them.",
     "<Shortcuts>\n"
     "  <Add Type=\"File\" Dest=\"[INSTALLDIR]/shortcuts\" Target=\"[INSTALLDIR]/bin/acme-editor\"\n"
     "       StartPath=\"[INSTALLDIR]\">Acme Editor.desktop</Add>\n"
     "</Shortcuts>"},
    {"Add", "Shortcuts", nullptr, Kind::kLiteral, kRepeats | kTextRequired, kShortcutAttributes,
     COUNT(kShortcutAttributes),
     "One shortcut; the text is its file name with its extension (.lnk, .url, .desktop), not expanded.",
     "<Add Type=\"URL\" Dest=\"[INSTALLDIR]/shortcuts\" Target=\"https://acme.example.org\">Acme Online.url</Add>"},
    {"Firewall", kDocumentSections, nullptr, Kind::kNone, kExactCase, nullptr, 0,
     "Firewall rules; only the first Firewall element counts. Uninstalling removes them.",
     "<Firewall>\n"
     "  <Port Port=\"8080\" Protocol=\"TCP\">TCP 8080</Port>\n"
     "</Firewall>"},
    {"Application", "Firewall", nullptr, Kind::kLiteral, kExactCase | kRepeats | kTextRequired,
     kFirewallApplicationAttributes, COUNT(kFirewallApplicationAttributes),
     "Lets a program through (Windows); the text is the rule's name.",
     "<Application Target=\"[INSTALLDIR]/bin/acme-server.exe\">Acme server</Application>"},
    {"Port", "Firewall", nullptr, Kind::kLiteral, kExactCase | kRepeats | kTextRequired, kFirewallPortAttributes,
     COUNT(kFirewallPortAttributes),
     "Opens a port. The text is the rule's name and, through the log, what removes it: write it as the "
     "protocol and the port (TCP 8080, UDP 53, TCP;UDP 5000).",
     "<Port Port=\"5353\" Protocol=\"UDP\">UDP 5353</Port>"},

    // Sections of actions.
    {"AdditionalInstall", kDocumentSections, nullptr, Kind::kNone, kExactCase | kRepeats, nullptr, 0,
     "Actions run as the last stage of the file work (page CopyProgress).",
     "<AdditionalInstall>\n"
     "  <RunProgram Wait=\"1\" WorkDir=\"[INSTALLDIR]\">[INSTALLDIR]/bin/acme-setup-db</RunProgram>\n"
     "</AdditionalInstall>"},
    {"PostInstall", kDocumentSections, nullptr, Kind::kNone, kExactCase | kRepeats, nullptr, 0,
     "Actions run by the page PostInstall.",
     "<PostInstall>\n"
     "  <OpenDocument>[INSTALLDIR]/doc/README.txt</OpenDocument>\n"
     "</PostInstall>"},
    {"PreUninstall", kDocumentSections, nullptr, Kind::kNone, kExactCase | kRepeats, nullptr, 0,
     "Actions run before an uninstallation removes anything.",
     "<PreUninstall>\n"
     "  <RunProgram Wait=\"1\" Arguments=\"--stop\">[INSTALLDIR]/bin/acme-server</RunProgram>\n"
     "</PreUninstall>"},
    {"OpenDocument", "@tag", nullptr, Kind::kPath, kRepeats | kTextRequired, kTagChildAttributes,
     COUNT(kTagChildAttributes), "Opens a document with its program.",
     "<OpenDocument>[INSTALLDIR]/doc/README.txt</OpenDocument>"},
    {"RunProgram", "@tag", nullptr, Kind::kPath, kRepeats | kTextRequired, kTagChildAttributes,
     COUNT(kTagChildAttributes),
     "Runs a program, given by its path. Its effects aren't undone, and a failure is only logged.",
     "<RunProgram Arguments=\"--init\" Wait=\"1\">[INSTALLDIR]/bin/acme-editor</RunProgram>"},
    {"CopyFile", "@tag", nullptr, Kind::kPath, kRepeats | kTextRequired, kTagChildAttributes,
     COUNT(kTagChildAttributes), "Copies a file to Dest; the copy isn't undone.",
     "<CopyFile Dest=\"[INSTALLDIR]/etc/acme.conf\">[INSTALLDIR]/etc/acme.conf.default</CopyFile>"},
    {"Registry", "@tag", nullptr, Kind::kNone, kRepeats, nullptr, 0,
     "Registry changes (on Linux in a file store below $QLUX_ROOT/var/lib/qlux/registry). Added keys and "
     "values are removed at uninstallation.",
     "<Registry>\n"
     "  <AddValue Place=\"HKEY_LOCAL_MACHINE\" Path=\"Software/Acme\" Value=\"Home\" Expand=\"1\">[INSTALLDIR]</AddValue>\n"
     "</Registry>"},
    {"AddValue", "Registry", nullptr, Kind::kText, kRepeats, kRegistryActionAttributes,
     COUNT(kRegistryActionAttributes), "Writes a value; the text is its data.",
     "<AddValue Place=\"HKEY_LOCAL_MACHINE\" Path=\"Software/Acme\" Value=\"Version\">2.1.0</AddValue>"},
    {"AddKey", "Registry", nullptr, Kind::kNone, kRepeats, kRegistryActionAttributes,
     COUNT(kRegistryActionAttributes), "Makes a key.",
     "<AddKey Place=\"HKEY_LOCAL_MACHINE\" Path=\"Software/Acme/Plugins\"/>"},
    {"RemoveValue", "Registry", nullptr, Kind::kNone, kRepeats, kRegistryActionAttributes,
     COUNT(kRegistryActionAttributes), "Deletes a value, for good.",
     "<RemoveValue Place=\"HKEY_CURRENT_USER\" Path=\"Software/Acme\" Value=\"Trial\"/>"},
    {"RemoveKey", "Registry", nullptr, Kind::kNone, kRepeats, kRegistryActionAttributes,
     COUNT(kRegistryActionAttributes), "Deletes KeyCount levels of a key that has no sub-keys, for good.",
     "<RemoveKey Place=\"HKEY_CURRENT_USER\" Path=\"Software/Acme/Cache\" KeyCount=\"1\"/>"},

    // The uninstallation.
    {"UninstallWildcards", kDocumentSections, nullptr, Kind::kNone, kExactCase, nullptr, 0,
     "Files that the product makes while it runs, removed at uninstallation; each child's text is a wildcard "
     "pattern.",
     "<UninstallWildcards>\n"
     "  <Files Dest=\"[INSTALLDIR]/var\" DeleteDirs=\"1\">*.log</Files>\n"
     "</UninstallWildcards>"},
    {"@wildcard", "UninstallWildcards", nullptr, Kind::kPattern, kRepeats | kTextRequired, kWildcardAttributes,
     COUNT(kWildcardAttributes), "A pattern removed below Dest; the tag is free (Files is usual).",
     "<Files Dest=\"[INSTALLDIR]/cache\" DeleteDirs=\"1\">*</Files>"},
};

const SpecialPage kSpecialPages[] = {
    {"Uninstall", "Removes an installation of the product (or of a LegacyApplication) found at the start, "
                  "if the ShouldUninstall variable isn't 0."},
    {"CopyProgress", "Installs the files and runs the environment, INI, modify-file, shortcut, firewall and "
                     "AdditionalInstall stages; in the uninstaller, removes the installation."},
    {"RevertInstallation", "Undoes a failed installation and brings back an older one that Uninstall "
                           "removed."},
    {"RegisterApplication", "Enters the product in the list of installed programs, with its uninstall "
                            "command."},
    {"UnregisterApplication", "In the uninstaller: takes the product out of the list again."},
    {"PreUninstall", "Runs the PreUninstall section."},
    {"PostInstall", "Runs the PostInstall section, saves the variables' final values in the log and writes the "
                    "configuration file (where -exportConfig=FILE asks, or config.xml beside the installer from a "
                    "console run with a person at it); the walk goes on by itself. Without this page no "
                    "configuration file is written."},
    {"RunningApps", "Holds the walk while a TestApp program runs, and ends the TerminateApp programs."},
    {"Finish", "Shows the list of errors, if there were any."},
    {"BadFinish", "The same."},
};

const ControlName kControlNames[] = {
    {"Destfilelist", "List", "the files being worked on, the errors, and the programs a RunningApps page "
                             "waits for"},
    {"Destination", "Text", "what is being done"},
    {"Overall", "Progress", "the progress of the whole work"},
    {"Current", "Progress", "the progress of one program"},
    {"TaskList", "TaskLB", "the steps of the frame"},
};

const BuiltIn kBuiltIns[] = {
    {"INSTALLER_DIR", "the folder of the running installer, with a separator at its end"},
    {"GUI_INSTALL", "1 in the window, 0 on the console"},
    {"WX_PORT", "win on Windows, gtk on Linux"},
    {"$NAME", "[$NAME] is the process's environment variable NAME"},
};

}  // namespace

const Element* elements(int* count) {
  *count = COUNT(kElements);
  return kElements;
}

const SpecialPage* specialPages(int* count) {
  *count = COUNT(kSpecialPages);
  return kSpecialPages;
}

const ControlName* controlNames(int* count) {
  *count = COUNT(kControlNames);
  return kControlNames;
}

const BuiltIn* builtIns(int* count) {
  *count = COUNT(kBuiltIns);
  return kBuiltIns;
}

bool standsUnder(const Element& element, const char* parent) {
  if (!parent) return false;
  size_t length = std::strlen(parent);
  for (const char* p = element.parents; *p;) {
    const char* end = std::strchr(p, ';');
    size_t partLength = end ? static_cast<size_t>(end - p) : std::strlen(p);
    if (partLength == length && std::strncmp(p, parent, length) == 0) return true;
    if (!end) break;
    p = end + 1;
  }
  // A page's children stand in dialogs and sub-dialogs alike.
  if (std::strcmp(element.parents, "@page") == 0)
    return std::strcmp(parent, "@dialog") == 0 || std::strcmp(parent, "@subdialog") == 0;
  return false;
}

namespace {

bool inList(const char* list, const char* word, bool exactCase) {
  size_t length = std::strlen(word);
  for (const char* p = list; *p;) {
    const char* end = std::strchr(p, ';');
    size_t partLength = end ? static_cast<size_t>(end - p) : std::strlen(p);
    if (partLength == length &&
        (exactCase ? std::strncmp(p, word, length) == 0 : QUtils::compareNoCase(p, word, static_cast<int>(length)) == 0))
      return true;
    if (!end) break;
    p = end + 1;
  }
  return false;
}

bool tagMatches(const Element& element, const char* tag) {
  if (element.name[0] == '@') return !element.names || inList(element.names, tag, false);
  if (element.flags & kExactCase) return std::strcmp(element.name, tag) == 0;
  return QUtils::compareNoCase(element.name, tag) == 0;
}

}  // namespace

const Element* findElement(const char* tag, const char* parentTag, const char* parentRole) {
  if (!tag) return nullptr;
  int count = 0;
  const Element* all = elements(&count);
  // A named element wins over a role: a TaskList in a page is the task
  // list, not a control.
  for (int pass = 0; pass < 2; pass++) {
    for (int i = 0; i < count; i++) {
      const Element& element = all[i];
      if ((element.name[0] == '@') != (pass == 1)) continue;
      bool placed = parentTag ? standsUnder(element, parentTag) : element.parents[0] == 0;
      if (!placed && parentRole) placed = standsUnder(element, parentRole);
      if (placed && tagMatches(element, tag)) return &element;
    }
  }
  return nullptr;
}

const Attribute* findAttribute(const Element& element, const char* name) {
  if (!name) return nullptr;
  for (int i = 0; i < element.attributeCount; i++) {
    if (QUtils::compareNoCase(element.attributes[i].name, name) == 0) return &element.attributes[i];
  }
  return nullptr;
}

const char* kindName(Kind kind) {
  switch (kind) {
    case Kind::kNone: return "none";
    case Kind::kLiteral: return "text";
    case Kind::kText: return "text with [NAME]";
    case Kind::kPath: return "path";
    case Kind::kFolder: return "folder";
    case Kind::kSourcePath: return "source path";
    case Kind::kPattern: return "pattern";
    case Kind::kCondition: return "condition";
    case Kind::kExpression: return "expression";
    case Kind::kAction: return "action";
    case Kind::kFlag: return "flag";
    case Kind::kOne: return "1 or 0";
    case Kind::kNotZero: return "1, or 0 for off";
    case Kind::kInteger: return "number";
    case Kind::kChoice: return "one of";
    case Kind::kWords: return "words";
    case Kind::kColour: return "colour";
    case Kind::kVariable: return "variable";
    case Kind::kFileKey: return "file key";
    case Kind::kSection: return "section";
    case Kind::kNames: return "names";
    case Kind::kDetails: return "details";
    case Kind::kName: return "name";
  }
  return "";
}

}  // namespace templatelang
