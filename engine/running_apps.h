// RunningAppsCondition: the condition of a "RunningApps" page. It holds the
// programs that the page tests for, and lets the page be left only while
// none of them runs. Each check also brings the page's file list up to date:
// the list shows exactly the programs found running, and is rewritten only
// when that set changed, so that a front end may check it on every idle
// pass without flicker.
#ifndef QLUX_ENGINE_RUNNING_APPS_H_
#define QLUX_ENGINE_RUNNING_APPS_H_

#include "engine/dialog_records.h"
#include "foundation/charstring.h"
#include "foundation/lists.h"

class RunningAppsCondition : public DlgCondition {
 public:
  // Bits of an entry's state.
  static const unsigned char kListed = 1;   // shown in the page's list
  static const unsigned char kRunning = 2;  // found running by the last check

  struct Entry {
    Entry() : state(0) {}
    QUtils::CharString name;       // executable name with extension
    QUtils::CharString directory;  // empty: anywhere
    unsigned char state;
  };

  // Asks the engine's isAppRunning for each entry. True if none runs.
  bool check(Installer* engine, InstallerUI* ui) override;

  void clear() { entries.clear(); }
  void add(const char* name, const char* directory);
  int getCount() const { return entries.getCount(); }
  const Entry& getEntry(int index) const { return entries[index]; }

 private:
  QUtils::Table<Entry> entries;
};

#endif  // QLUX_ENGINE_RUNNING_APPS_H_
