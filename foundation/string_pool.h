// PStringPool: owns many small NUL-terminated texts in a few heap blocks.
//
// Texts go one behind another into blocks of kBlockSize bytes. A text that
// doesn't fit the room left in the last block opens a new block; a text too
// long for any block gets a block of its own, which is put before the last
// block so that the last one stays the block being filled. Nothing is freed
// singly: every text lives until the pool goes. Not thread-safe.
#ifndef QLUX_FOUNDATION_STRING_POOL_H_
#define QLUX_FOUNDATION_STRING_POOL_H_

#include "foundation/lists.h"

namespace QUtils {

class PStringPool {
 public:
  static const int kBlockSize = 256;

  PStringPool();
  PStringPool(const PStringPool&) = delete;
  PStringPool& operator=(const PStringPool&) = delete;
  ~PStringPool();

  // A copy of `text`, owned by the pool; null for a null text.
  char* add(const char* text);
  // A copy of the first `length` bytes of `text`, terminated.
  char* add(const char* text, int length);
  // Room for `length` bytes and a NUL, owned by the pool and zeroed.
  char* allocate(int length);

  int getBlockCount() const { return blocks.getCount(); }

 private:
  PList<char*> blocks;
  int used;  // bytes taken in the last block
};

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_STRING_POOL_H_
