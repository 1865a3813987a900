// CharString: a reference-counted, copy-on-write text handle in which null
// is a state of its own (getText() gives nullptr). StringBuilder: a growing
// text. Neither is thread-safe: counts are plain integers, so a CharString
// must not cross threads.
#ifndef QLUX_FOUNDATION_CHARSTRING_H_
#define QLUX_FOUNDATION_CHARSTRING_H_

#include <cstdint>

namespace QUtils {

class CharStringBuf {
 public:
  CharStringBuf() : data(nullptr), references(1) {}
  virtual ~CharStringBuf() {}
  // Makes or grows `data` to `size` bytes, keeping its content; 0 frees it.
  virtual void resize(int size);
  // Frees `data` and the object.
  virtual void destroy();

  char* data;
  int32_t references;
};

class CharString {
 public:
  CharString() : buffer(nullptr) {}
  CharString(const char* text);  // NOLINT: copies; null gives a null handle
  CharString(const CharString& other);
  CharString& operator=(const CharString& other);
  CharString& operator=(const char* text);
  ~CharString();

  void setLength(int length, int keep);
  void assign(const char* text);
  void append(const char* text);
  void makeUnique();
  const char* getText() const { return buffer ? buffer->data : nullptr; }
  // Raw, writable text; call makeUnique() before writing through it.
  char* getBuffer() { return buffer ? buffer->data : nullptr; }
  int getLength() const;
  void resize(int length, char fill);
  void assignRange(const char* text, int count);
  bool isNull() const { return buffer == nullptr; }
  bool isEmpty() const { return getLength() == 0; }
  int getReferences() const { return buffer ? buffer->references : 0; }

 private:
  void release();
  CharStringBuf* buffer;
};

class StringBuilder {
 public:
  explicit StringBuilder(int step = 32);
  StringBuilder(const StringBuilder&) = delete;
  StringBuilder& operator=(const StringBuilder&) = delete;
  ~StringBuilder();

  void append(const char* text);
  void append(const char* text, int length);
  void append(const CharString& text);
  void append(char character);
  void clear();
  const char* getText() const { return data; }
  int getLength() const { return length; }

 private:
  void reserve(int needed);
  int step;
  int capacity;
  int length;
  char* data;
};

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_CHARSTRING_H_
