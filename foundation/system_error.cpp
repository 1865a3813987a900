// What both systems share of the error texts.
#include "foundation/system_error.h"

#include <cstring>

#include "foundation/text.h"

namespace QUtils {

void appendSystemError(char* message, int size, int code) {
  if (!message || size < 1 || code == 0) return;
  char reason[512];
  describeSystemError(code, reason, sizeof reason);
  size_t used = std::strlen(message);
  if (!reason[0] || used + 2 + std::strlen(reason) >= static_cast<size_t>(size)) return;
  appendText(message, ": ", size);
  appendText(message, reason, size);
}

}  // namespace QUtils
