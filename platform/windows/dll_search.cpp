// The Windows program's first act: DLLs are looked for in the system folder
// only.
//
// An installer runs elevated, often from a Downloads folder, and the
// uninstaller's copy runs from the temporary folder: both are folders where
// anybody may have left a DLL named like a system one. The import table
// holds only KnownDLLs, which the loader always takes from the system; every
// other system DLL is delay-loaded (cmake/delay_load.cmake), and so is
// looked for only when it is first called. Before that can happen, and
// before any static constructor runs (the toolkit's included), the loader
// calls this file's TLS callback, which restricts every later search to the
// system folder. The callback is linked into the program itself, not into a
// library, so that nothing can drop it.
//
// The image's load configuration carries the same restriction for the
// loader's own resolution of static imports (DependentLoadFlags, Windows 10
// 1607 and later). The linker doesn't fill in the directory entry for it:
// cmake/pe_load_config.py does that after linking, from the symbol below.
#include <windows.h>

namespace {

void NTAPI restrictDllSearch(PVOID, DWORD reason, PVOID) {
  if (reason != DLL_PROCESS_ATTACH) return;
  // Ignoring the result on purpose: every supported Windows has the call,
  // and a program that can't restrict its search has no better way left.
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
}

}  // namespace

extern "C" {

// The C runtime's TLS directory calls the callbacks that lie between its
// markers in the sections .CRT$XLA to .CRT$XLZ, in the order of the
// sections' names: .CRT$XLB comes before the runtime's own.
extern const PIMAGE_TLS_CALLBACK qluxRestrictDllSearch;
__attribute__((section(".CRT$XLB"), used)) const PIMAGE_TLS_CALLBACK qluxRestrictDllSearch = restrictDllSearch;

// The load configuration: only its size and DependentLoadFlags (the field
// that older headers call Reserved1) are set. Constant data, so that it is
// in the image when the loader reads it, before any code has run.
// Every other field is zero on purpose: no security cookie, no handler
// tables, the system's defaults.
extern const IMAGE_LOAD_CONFIG_DIRECTORY64 _load_config_used;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
__attribute__((used)) const IMAGE_LOAD_CONFIG_DIRECTORY64 _load_config_used = {
    .Size = sizeof(IMAGE_LOAD_CONFIG_DIRECTORY64),
    .Reserved1 = LOAD_LIBRARY_SEARCH_SYSTEM32,
};
#pragma GCC diagnostic pop

}  // extern "C"
