// MD5 after RFC 1321, with the 64 steps written out round by round as the
// RFC lists them: this is the hot loop of checksum verification.
#include "package/md5.h"

#include <cstring>

namespace {

inline uint32_t rotateLeft(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

inline uint32_t load32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
         (static_cast<uint32_t>(p[3]) << 24);
}

inline void store32(unsigned char* p, uint32_t x) {
  p[0] = static_cast<unsigned char>(x);
  p[1] = static_cast<unsigned char>(x >> 8);
  p[2] = static_cast<unsigned char>(x >> 16);
  p[3] = static_cast<unsigned char>(x >> 24);
}

}  // namespace

// The four auxiliary functions and the step of each round.
#define MD5_F(x, y, z) (((x) & (y)) | (~(x) & (z)))
#define MD5_G(x, y, z) (((x) & (z)) | ((y) & ~(z)))
#define MD5_H(x, y, z) ((x) ^ (y) ^ (z))
#define MD5_I(x, y, z) ((y) ^ ((x) | ~(z)))
#define MD5_STEP(f, a, b, c, d, k, s, t) \
  (a) = (b) + rotateLeft((a) + f((b), (c), (d)) + x[k] + (t), (s))

void MD5::reset() {
  state[0] = 0x67452301u;
  state[1] = 0xefcdab89u;
  state[2] = 0x98badcfeu;
  state[3] = 0x10325476u;
  length = 0;
}

void MD5::transform(const unsigned char block[64]) {
  uint32_t x[16];
  for (int i = 0; i < 16; i++) x[i] = load32(block + 4 * i);
  uint32_t a = state[0], b = state[1], c = state[2], d = state[3];

  MD5_STEP(MD5_F, a, b, c, d, 0, 7, 0xd76aa478u);
  MD5_STEP(MD5_F, d, a, b, c, 1, 12, 0xe8c7b756u);
  MD5_STEP(MD5_F, c, d, a, b, 2, 17, 0x242070dbu);
  MD5_STEP(MD5_F, b, c, d, a, 3, 22, 0xc1bdceeeu);
  MD5_STEP(MD5_F, a, b, c, d, 4, 7, 0xf57c0fafu);
  MD5_STEP(MD5_F, d, a, b, c, 5, 12, 0x4787c62au);
  MD5_STEP(MD5_F, c, d, a, b, 6, 17, 0xa8304613u);
  MD5_STEP(MD5_F, b, c, d, a, 7, 22, 0xfd469501u);
  MD5_STEP(MD5_F, a, b, c, d, 8, 7, 0x698098d8u);
  MD5_STEP(MD5_F, d, a, b, c, 9, 12, 0x8b44f7afu);
  MD5_STEP(MD5_F, c, d, a, b, 10, 17, 0xffff5bb1u);
  MD5_STEP(MD5_F, b, c, d, a, 11, 22, 0x895cd7beu);
  MD5_STEP(MD5_F, a, b, c, d, 12, 7, 0x6b901122u);
  MD5_STEP(MD5_F, d, a, b, c, 13, 12, 0xfd987193u);
  MD5_STEP(MD5_F, c, d, a, b, 14, 17, 0xa679438eu);
  MD5_STEP(MD5_F, b, c, d, a, 15, 22, 0x49b40821u);

  MD5_STEP(MD5_G, a, b, c, d, 1, 5, 0xf61e2562u);
  MD5_STEP(MD5_G, d, a, b, c, 6, 9, 0xc040b340u);
  MD5_STEP(MD5_G, c, d, a, b, 11, 14, 0x265e5a51u);
  MD5_STEP(MD5_G, b, c, d, a, 0, 20, 0xe9b6c7aau);
  MD5_STEP(MD5_G, a, b, c, d, 5, 5, 0xd62f105du);
  MD5_STEP(MD5_G, d, a, b, c, 10, 9, 0x02441453u);
  MD5_STEP(MD5_G, c, d, a, b, 15, 14, 0xd8a1e681u);
  MD5_STEP(MD5_G, b, c, d, a, 4, 20, 0xe7d3fbc8u);
  MD5_STEP(MD5_G, a, b, c, d, 9, 5, 0x21e1cde6u);
  MD5_STEP(MD5_G, d, a, b, c, 14, 9, 0xc33707d6u);
  MD5_STEP(MD5_G, c, d, a, b, 3, 14, 0xf4d50d87u);
  MD5_STEP(MD5_G, b, c, d, a, 8, 20, 0x455a14edu);
  MD5_STEP(MD5_G, a, b, c, d, 13, 5, 0xa9e3e905u);
  MD5_STEP(MD5_G, d, a, b, c, 2, 9, 0xfcefa3f8u);
  MD5_STEP(MD5_G, c, d, a, b, 7, 14, 0x676f02d9u);
  MD5_STEP(MD5_G, b, c, d, a, 12, 20, 0x8d2a4c8au);

  MD5_STEP(MD5_H, a, b, c, d, 5, 4, 0xfffa3942u);
  MD5_STEP(MD5_H, d, a, b, c, 8, 11, 0x8771f681u);
  MD5_STEP(MD5_H, c, d, a, b, 11, 16, 0x6d9d6122u);
  MD5_STEP(MD5_H, b, c, d, a, 14, 23, 0xfde5380cu);
  MD5_STEP(MD5_H, a, b, c, d, 1, 4, 0xa4beea44u);
  MD5_STEP(MD5_H, d, a, b, c, 4, 11, 0x4bdecfa9u);
  MD5_STEP(MD5_H, c, d, a, b, 7, 16, 0xf6bb4b60u);
  MD5_STEP(MD5_H, b, c, d, a, 10, 23, 0xbebfbc70u);
  MD5_STEP(MD5_H, a, b, c, d, 13, 4, 0x289b7ec6u);
  MD5_STEP(MD5_H, d, a, b, c, 0, 11, 0xeaa127fau);
  MD5_STEP(MD5_H, c, d, a, b, 3, 16, 0xd4ef3085u);
  MD5_STEP(MD5_H, b, c, d, a, 6, 23, 0x04881d05u);
  MD5_STEP(MD5_H, a, b, c, d, 9, 4, 0xd9d4d039u);
  MD5_STEP(MD5_H, d, a, b, c, 12, 11, 0xe6db99e5u);
  MD5_STEP(MD5_H, c, d, a, b, 15, 16, 0x1fa27cf8u);
  MD5_STEP(MD5_H, b, c, d, a, 2, 23, 0xc4ac5665u);

  MD5_STEP(MD5_I, a, b, c, d, 0, 6, 0xf4292244u);
  MD5_STEP(MD5_I, d, a, b, c, 7, 10, 0x432aff97u);
  MD5_STEP(MD5_I, c, d, a, b, 14, 15, 0xab9423a7u);
  MD5_STEP(MD5_I, b, c, d, a, 5, 21, 0xfc93a039u);
  MD5_STEP(MD5_I, a, b, c, d, 12, 6, 0x655b59c3u);
  MD5_STEP(MD5_I, d, a, b, c, 3, 10, 0x8f0ccc92u);
  MD5_STEP(MD5_I, c, d, a, b, 10, 15, 0xffeff47du);
  MD5_STEP(MD5_I, b, c, d, a, 1, 21, 0x85845dd1u);
  MD5_STEP(MD5_I, a, b, c, d, 8, 6, 0x6fa87e4fu);
  MD5_STEP(MD5_I, d, a, b, c, 15, 10, 0xfe2ce6e0u);
  MD5_STEP(MD5_I, c, d, a, b, 6, 15, 0xa3014314u);
  MD5_STEP(MD5_I, b, c, d, a, 13, 21, 0x4e0811a1u);
  MD5_STEP(MD5_I, a, b, c, d, 4, 6, 0xf7537e82u);
  MD5_STEP(MD5_I, d, a, b, c, 11, 10, 0xbd3af235u);
  MD5_STEP(MD5_I, c, d, a, b, 2, 15, 0x2ad7d2bbu);
  MD5_STEP(MD5_I, b, c, d, a, 9, 21, 0xeb86d391u);

  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
}

void MD5::update(const void* data, size_t size) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  size_t used = static_cast<size_t>(length % 64);
  length += size;
  if (used > 0) {
    size_t take = 64 - used;
    if (take > size) take = size;
    std::memcpy(pending + used, bytes, take);
    bytes += take;
    size -= take;
    if (used + take < 64) return;
    transform(pending);
  }
  for (; size >= 64; bytes += 64, size -= 64) transform(bytes);
  if (size > 0) std::memcpy(pending, bytes, size);
}

void MD5::finish(unsigned char digest[kMD5DigestSize]) {
  // Pad with a 1 bit and zeros to 56 bytes modulo 64, then append the
  // message length in bits.
  uint64_t bits = length * 8;
  static const unsigned char padding[64] = {0x80};
  size_t used = static_cast<size_t>(length % 64);
  update(padding, used < 56 ? 56 - used : 120 - used);
  unsigned char tail[8];
  store32(tail, static_cast<uint32_t>(bits));
  store32(tail + 4, static_cast<uint32_t>(bits >> 32));
  update(tail, 8);
  for (int i = 0; i < 4; i++) store32(digest + 4 * i, state[i]);
}

void MD5::digest(const void* data, size_t size, unsigned char out[kMD5DigestSize]) {
  MD5 md5;
  md5.update(data, size);
  md5.finish(out);
}
