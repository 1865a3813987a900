/* A DLL to plant where a planted DLL would do harm (beside the installer,
 * in the temporary folder that the uninstaller's copy runs from), under
 * the name of a system DLL. It exports nothing: if the loader takes it,
 * it writes "<its own path>.ran" and nothing else, and the program that
 * loaded it fails at its first call into it. The Windows end-to-end tests
 * look for those files (tests/wine_lib.sh). */
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE self, DWORD reason, LPVOID reserved) {
  (void)reserved;
  if (reason != DLL_PROCESS_ATTACH) return TRUE;
  wchar_t path[MAX_PATH + 8];
  DWORD length = GetModuleFileNameW(self, path, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return TRUE;
  lstrcatW(path, L".ran");
  HANDLE marker = CreateFileW(path, GENERIC_WRITE, 0, NULL, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, NULL);
  if (marker != INVALID_HANDLE_VALUE) CloseHandle(marker);
  return TRUE;
}
