// PStringPool.
#include "foundation/string_pool.h"

#include <cstdlib>
#include <cstring>

namespace QUtils {

PStringPool::PStringPool() : blocks(8), used(kBlockSize) {}

PStringPool::~PStringPool() {
  for (int i = 0; i < blocks.getCount(); i++) std::free(blocks[i]);
}

char* PStringPool::allocate(int length) {
  if (length < 0) length = 0;
  int needed = length + 1;
  if (needed > kBlockSize) {
    char* block = static_cast<char*>(std::calloc(static_cast<size_t>(needed), 1));
    if (!block) return nullptr;
    int count = blocks.add(block);
    if (count > 0) {
      // Keep the block being filled last.
      blocks[count] = blocks[count - 1];
      blocks[count - 1] = block;
    } else {
      used = kBlockSize;  // no block being filled yet
    }
    return block;
  }
  if (kBlockSize - used < needed) {
    char* block = static_cast<char*>(std::calloc(kBlockSize, 1));
    if (!block) return nullptr;
    blocks.add(block);
    used = 0;
  }
  char* text = blocks[blocks.getCount() - 1] + used;
  used += needed;
  return text;
}

char* PStringPool::add(const char* text, int length) {
  if (!text) return nullptr;
  char* copy = allocate(length);
  if (!copy) return nullptr;
  if (length > 0) std::memcpy(copy, text, static_cast<size_t>(length));
  copy[length > 0 ? length : 0] = 0;
  return copy;
}

char* PStringPool::add(const char* text) {
  if (!text) return nullptr;
  return add(text, static_cast<int>(std::strlen(text)));
}

}  // namespace QUtils
