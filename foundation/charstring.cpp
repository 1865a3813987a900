// CharString and StringBuilder.
#include "foundation/charstring.h"

#include <cstdlib>
#include <cstring>

namespace QUtils {

void CharStringBuf::resize(int size) {
  if (size <= 0) {
    std::free(data);
    data = nullptr;
    return;
  }
  char* block = static_cast<char*>(std::realloc(data, static_cast<size_t>(size)));
  if (block) data = block;
}

void CharStringBuf::destroy() {
  resize(0);
  delete this;
}

CharString::CharString(const char* text) : buffer(nullptr) { assign(text); }

CharString::CharString(const CharString& other) : buffer(other.buffer) {
  if (buffer) buffer->references++;
}

CharString& CharString::operator=(const CharString& other) {
  if (other.buffer) other.buffer->references++;
  release();
  buffer = other.buffer;
  return *this;
}

CharString& CharString::operator=(const char* text) {
  assign(text);
  return *this;
}

CharString::~CharString() { release(); }

void CharString::release() {
  if (buffer && --buffer->references < 1) buffer->destroy();
  buffer = nullptr;
}

void CharString::setLength(int length, int keep) {
  if (length < 0) length = 0;
  if (!buffer) {
    buffer = new CharStringBuf();
    buffer->resize(length + 1);
    buffer->data[0] = 0;
    return;
  }
  if (buffer->references < 2) {
    buffer->resize(length + 1);
    buffer->data[length] = 0;
    return;
  }
  CharStringBuf* fresh = new CharStringBuf();
  fresh->resize(length + 1);
  fresh->data[0] = 0;
  if (keep && buffer->data) {
    int old = static_cast<int>(std::strlen(buffer->data));
    int n = old < length ? old : length;
    std::memcpy(fresh->data, buffer->data, static_cast<size_t>(n));
    fresh->data[n] = 0;
  }
  release();
  buffer = fresh;
}

void CharString::assign(const char* text) {
  if (!text) {
    release();
    return;
  }
  if (buffer && buffer->data && text >= buffer->data && text <= buffer->data + std::strlen(buffer->data)) {
    // Assigning part of our own text: copy it out first.
    size_t n = std::strlen(text);
    char* copy = static_cast<char*>(std::malloc(n + 1));
    std::memcpy(copy, text, n + 1);
    assign(copy);
    std::free(copy);
    return;
  }
  int length = static_cast<int>(std::strlen(text));
  setLength(length, 0);
  std::memcpy(buffer->data, text, static_cast<size_t>(length) + 1);
}

void CharString::append(const char* text) {
  if (!text) return;
  if (!buffer) {
    assign(text);
    return;
  }
  // `text` may point into our own buffer, which setLength may move.
  int old = getLength();
  int extra = static_cast<int>(std::strlen(text));
  char* copy = static_cast<char*>(std::malloc(static_cast<size_t>(extra) + 1));
  std::memcpy(copy, text, static_cast<size_t>(extra) + 1);
  setLength(old + extra, 1);
  std::memcpy(buffer->data + old, copy, static_cast<size_t>(extra) + 1);
  std::free(copy);
}

void CharString::makeUnique() {
  if (!buffer || buffer->references < 2) return;
  setLength(getLength(), 1);
}

int CharString::getLength() const {
  return (buffer && buffer->data) ? static_cast<int>(std::strlen(buffer->data)) : 0;
}

void CharString::resize(int length, char fill) {
  if (length < 1) {
    release();
    return;
  }
  int old = getLength();
  if (length != old || !buffer) {
    setLength(length, 1);
    if (length > old) std::memset(buffer->data + old, fill ? fill : ' ', static_cast<size_t>(length - old));
  } else {
    makeUnique();
  }
  buffer->data[length] = 0;
}

void CharString::assignRange(const char* text, int count) {
  if (!text || count <= 0) {
    release();
    return;
  }
  char* copy = static_cast<char*>(std::malloc(static_cast<size_t>(count) + 1));
  std::memcpy(copy, text, static_cast<size_t>(count));
  copy[count] = 0;
  setLength(count, 0);
  std::memcpy(buffer->data, copy, static_cast<size_t>(count) + 1);
  std::free(copy);
}

StringBuilder::StringBuilder(int step) : step(step > 0 ? step : 32), capacity(0), length(0), data(nullptr) {
  int first = step > 0 ? step : 32;
  data = static_cast<char*>(std::malloc(static_cast<size_t>(first)));
  data[0] = 0;
  capacity = first;
}

StringBuilder::~StringBuilder() { std::free(data); }

void StringBuilder::reserve(int needed) {
  if (needed <= capacity) return;
  int grown = capacity;
  while (grown < needed) grown += step;
  char* block = static_cast<char*>(std::malloc(static_cast<size_t>(grown)));
  std::memcpy(block, data, static_cast<size_t>(length) + 1);
  std::free(data);
  data = block;
  capacity = grown;
}

void StringBuilder::append(const char* text, int count) {
  if (!text || count <= 0) return;
  reserve(length + count + 1);
  std::memcpy(data + length, text, static_cast<size_t>(count));
  length += count;
  data[length] = 0;
}

void StringBuilder::append(const char* text) {
  if (text) append(text, static_cast<int>(std::strlen(text)));
}

void StringBuilder::append(const CharString& text) { append(text.getText()); }

void StringBuilder::append(char character) { append(&character, 1); }

void StringBuilder::clear() {
  length = 0;
  data[0] = 0;
}

}  // namespace QUtils
