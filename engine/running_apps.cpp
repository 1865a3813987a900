// The running-programs condition of a "RunningApps" page.
#include "engine/running_apps.h"

#include "engine/installer.h"
#include "engine/installer_ui.h"

void RunningAppsCondition::add(const char* name, const char* directory) {
  Entry entry;
  entry.name = name ? name : "";
  entry.directory = directory ? directory : "";
  entries.add(entry);
}

bool RunningAppsCondition::check(Installer* engine, InstallerUI* ui) {
  bool noneRunning = true;
  bool listChanged = false;
  for (int i = 0; i < entries.getCount(); i++) {
    Entry& entry = entries[i];
    const char* directory = entry.directory.isEmpty() ? nullptr : entry.directory.getText();
    bool running = engine && engine->isAppRunning(entry.name.getText(), directory);
    if (running) {
      entry.state |= kRunning;
      noneRunning = false;
    } else {
      entry.state &= static_cast<unsigned char>(~kRunning);
    }
    if (((entry.state & kRunning) != 0) != ((entry.state & kListed) != 0)) listChanged = true;
  }

  // Rewrite the page's list only when what runs differs from what it shows.
  if (listChanged && ui) {
    ui->clearFileLines();
    for (int i = 0; i < entries.getCount(); i++) {
      Entry& entry = entries[i];
      entry.state &= static_cast<unsigned char>(~kListed);
      if (entry.state & kRunning) {
        ui->addFileLine(entry.name.getText(), false);
        entry.state |= kListed;
      }
    }
    ui->addFileLine(nullptr, true);
  }
  return noneRunning;
}
