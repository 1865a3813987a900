// The body of the uninstaller hand-over (uninstaller_handover.h): the
// registered command started, and its two events waited for.
#include "platform/uninstaller_handover.h"

#include "foundation/text.h"
#include "platform/host.h"

namespace {

const int kStartTimeoutMs = 60000;
const int kEndTimeoutMs = 300000;

}  // namespace

bool runRegisteredUninstaller(Installer* engine, const char* name, int gui) {
  char product[512];
  if (!name) {
    if (engine->getProductName(product, sizeof product) != 0) return false;
    name = product;
  }
  char command[4096 + 8];
  if (!engine->getUninstallString(name, command, 4096)) return false;
  if (gui == 0) QUtils::appendText(command, " -gui=0", sizeof command);

  // Both events exist before the process does, so no signal is missed.
  Host::NamedEvent* start = Host::createNamedEvent(Host::kUninstallerStartEvent);
  Host::NamedEvent* end = Host::createNamedEvent(Host::kUninstallerEndEvent);
  bool started = Host::startProcess(command, nullptr) == 0;
  if (started && Host::waitNamedEvent(start, kStartTimeoutMs)) Host::waitNamedEvent(end, kEndTimeoutMs);
  Host::closeNamedEvent(start);
  Host::closeNamedEvent(end);
  return started;
}
