// Wini's announcement of a changed machine-wide environment. The variables
// themselves are kept by the engine's registry primitives.
#include <windows.h>

#include "platform/windows/wini.h"

bool Wini::notifyEnvironmentChange() {
  const UINT kLimitMs = 1000;
  DWORD_PTR result = 0;
  SendMessageTimeoutA(HWND_BROADCAST, WM_SETTINGCHANGE, 0, reinterpret_cast<LPARAM>("Environment"), SMTO_ABORTIFHUNG,
                      kLimitMs, &result);
  SendMessageTimeoutW(HWND_BROADCAST, WM_SETTINGCHANGE, 0, reinterpret_cast<LPARAM>(L"Environment"), SMTO_ABORTIFHUNG,
                      kLimitMs, &result);
  return true;
}
