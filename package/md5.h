// MD5 message digest (RFC 1321): the digest of file records and of the
// installer file's checksum record. Feed bytes with update() in pieces of
// any size; finish() gives the 16 raw digest bytes and leaves the object to
// be reset() before it is used again.
#ifndef QLUX_PACKAGE_MD5_H_
#define QLUX_PACKAGE_MD5_H_

#include <cstddef>
#include <cstdint>

const int kMD5DigestSize = 16;

class MD5 {
 public:
  MD5() { reset(); }
  void reset();
  void update(const void* data, size_t size);
  void finish(unsigned char digest[kMD5DigestSize]);

  // The digest of one buffer.
  static void digest(const void* data, size_t size, unsigned char out[kMD5DigestSize]);

 private:
  void transform(const unsigned char block[64]);

  uint32_t state[4];
  uint64_t length;  // bytes fed so far
  unsigned char pending[64];
};

#endif  // QLUX_PACKAGE_MD5_H_
