// Error texts on POSIX: strerror_r.
#include <errno.h>

#include <cstring>

#include "foundation/system_error.h"
#include "foundation/text.h"

namespace QUtils {

int lastSystemError() { return errno; }

void describeSystemError(int code, char* out, int size) {
  if (!out || size < 1) return;
  out[0] = 0;
  if (code == 0) return;
  char buffer[256];
  // The GNU strerror_r gives its text, which may or may not be in `buffer`.
  const char* text = strerror_r(code, buffer, sizeof buffer);
  if (!text || !*text) {
    boundedFormat(out, size, "error %d", code);
    return;
  }
  copyText(out, text, size);
}

}  // namespace QUtils
