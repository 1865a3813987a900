// The system's own words for its error numbers, so that a message can say
// why something failed and not only that it did: "FAILED to create X:
// Permission denied". One body per system (system_error_posix.cpp,
// system_error_windows.cpp).
//
// An error number is taken right after the call that failed: any later
// call may replace it.
#ifndef QLUX_FOUNDATION_SYSTEM_ERROR_H_
#define QLUX_FOUNDATION_SYSTEM_ERROR_H_

namespace QUtils {

// The error number of the calling thread's last failed system call: errno
// on POSIX, GetLastError on Windows.
int lastSystemError();

// The system's text for `code` (strerror, FormatMessageW), in UTF-8 without
// a line end or a closing full stop, cut to `size` - 1 bytes; "error N" for
// a number that the system has no text for. An empty text for 0.
void describeSystemError(int code, char* out, int size);

// Appends ": " and the text of `code` to `message` (of `size` bytes), when
// `code` isn't 0 and the whole of it fits.
void appendSystemError(char* message, int size, int code);

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_SYSTEM_ERROR_H_
