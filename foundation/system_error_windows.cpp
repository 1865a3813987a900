// Error texts on Windows: FormatMessageW in the user's language, as UTF-8.
#include <windows.h>

#include <cstring>

#include "foundation/convert.h"
#include "foundation/system_error.h"
#include "foundation/text.h"

namespace QUtils {

int lastSystemError() { return static_cast<int>(GetLastError()); }

void describeSystemError(int code, char* out, int size) {
  if (!out || size < 1) return;
  out[0] = 0;
  if (code == 0) return;
  wchar_t text[512];
  DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                static_cast<DWORD>(code), 0, text, sizeof text / sizeof text[0], nullptr);
  // The system's texts end in a full stop and CR LF; a message goes on
  // behind them.
  while (length > 0 && (text[length - 1] == L'\r' || text[length - 1] == L'\n' || text[length - 1] == L' ' ||
                        text[length - 1] == L'.'))
    length--;
  if (length == 0) {
    boundedFormat(out, size, "error %d", code);
    return;
  }
  text[length] = 0;
  wideToUtf8(text, out, size);
  out[size - 1] = 0;
}

}  // namespace QUtils
