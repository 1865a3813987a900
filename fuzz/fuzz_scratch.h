// FuzzScratch: the one directory a fuzz target may write in.
//
// The first call makes a fresh directory with mkdtemp under $TMPDIR (or
// /tmp when that is unset) and aborts if it can't. Files are only ever made
// there, under plain names without separators, and only those are removed:
// fuzzScratchRemove() unlinks one such name, and at exit every name handed
// out is unlinked and the directory removed with rmdir, which leaves it
// alone if anything else is still in it. Nothing here walks a tree or
// follows a link.
#ifndef QLUX_FUZZ_FUZZ_SCRATCH_H_
#define QLUX_FUZZ_FUZZ_SCRATCH_H_

#include <cstddef>
#include <cstdint>
#include <string>

// The absolute path of the scratch directory, without a trailing '/'.
const std::string& fuzzScratchDir();

// The absolute path of `name` (letters, digits, '.', '_' and '-' only) in
// the scratch directory; the name is remembered for the clean-up.
std::string fuzzScratchPath(const char* name);

// Writes `size` bytes to the scratch file `name`, replacing it. Gives its
// path; aborts if the write fails.
std::string fuzzScratchWrite(const char* name, const uint8_t* data, size_t size);

// Unlinks the scratch file `name` if it is there.
void fuzzScratchRemove(const char* name);

#endif  // QLUX_FUZZ_FUZZ_SCRATCH_H_
