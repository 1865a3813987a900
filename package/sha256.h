// SHA-256 message digest (FIPS 180-4): the digest by which an installer
// proves the package files it carries beside itself, so that a signature on
// the installer covers them too. Feed bytes with update() in pieces of any
// size; finish() gives the 32 raw digest bytes and leaves the object to be
// reset() before it is used again.
//
// Where the processor has the SHA extensions (most x86-64 processors since
// 2017) the blocks are hashed with them, several times as fast as the
// portable code, which serves everywhere else; both give the same digest.
#ifndef QLUX_PACKAGE_SHA256_H_
#define QLUX_PACKAGE_SHA256_H_

#include <cstddef>
#include <cstdint>

const int kSHA256DigestSize = 32;

class SHA256 {
 public:
  SHA256() { reset(); }
  void reset();
  void update(const void* data, size_t size);
  void finish(unsigned char digest[kSHA256DigestSize]);

  // The digest of one buffer.
  static void digest(const void* data, size_t size, unsigned char out[kSHA256DigestSize]);
  // True if the processor's SHA extensions are used. For tests and logs.
  static bool usesProcessorExtensions();
  // Makes every object hash with the portable code (true) or with what the
  // processor offers (false). For the tests, which compare the two.
  static void usePortableCode(bool portable);

 private:
  // Hashes `count` whole 64-byte blocks into the state.
  void transform(const unsigned char* blocks, size_t count);

  uint32_t state[8];
  uint64_t length;  // bytes fed so far
  unsigned char pending[64];
};

#endif  // QLUX_PACKAGE_SHA256_H_
