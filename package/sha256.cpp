// SHA-256 after FIPS 180-4: a portable block function, and one on the x86
// SHA extensions, chosen once by what the processor reports.
#include "package/sha256.h"

#include <cstring>

#if defined(__x86_64__) && defined(__GNUC__)
#include <cpuid.h>
#include <immintrin.h>
#define QLUX_SHA256_X86 1
#endif

namespace {

const uint32_t kRoundConstants[64] = {
    0x428a2f98u, 0x71374491u, 0xb5c0fbcfu, 0xe9b5dba5u, 0x3956c25bu, 0x59f111f1u, 0x923f82a4u, 0xab1c5ed5u,
    0xd807aa98u, 0x12835b01u, 0x243185beu, 0x550c7dc3u, 0x72be5d74u, 0x80deb1feu, 0x9bdc06a7u, 0xc19bf174u,
    0xe49b69c1u, 0xefbe4786u, 0x0fc19dc6u, 0x240ca1ccu, 0x2de92c6fu, 0x4a7484aau, 0x5cb0a9dcu, 0x76f988dau,
    0x983e5152u, 0xa831c66du, 0xb00327c8u, 0xbf597fc7u, 0xc6e00bf3u, 0xd5a79147u, 0x06ca6351u, 0x14292967u,
    0x27b70a85u, 0x2e1b2138u, 0x4d2c6dfcu, 0x53380d13u, 0x650a7354u, 0x766a0abbu, 0x81c2c92eu, 0x92722c85u,
    0xa2bfe8a1u, 0xa81a664bu, 0xc24b8b70u, 0xc76c51a3u, 0xd192e819u, 0xd6990624u, 0xf40e3585u, 0x106aa070u,
    0x19a4c116u, 0x1e376c08u, 0x2748774cu, 0x34b0bcb5u, 0x391c0cb3u, 0x4ed8aa4au, 0x5b9cca4fu, 0x682e6ff3u,
    0x748f82eeu, 0x78a5636fu, 0x84c87814u, 0x8cc70208u, 0x90befffau, 0xa4506cebu, 0xbef9a3f7u, 0xc67178f2u};

inline uint32_t rotateRight(uint32_t x, int n) { return (x >> n) | (x << (32 - n)); }

inline uint32_t loadBigEndian(const unsigned char* p) {
  return (static_cast<uint32_t>(p[0]) << 24) | (static_cast<uint32_t>(p[1]) << 16) |
         (static_cast<uint32_t>(p[2]) << 8) | static_cast<uint32_t>(p[3]);
}

inline void storeBigEndian(unsigned char* p, uint32_t x) {
  p[0] = static_cast<unsigned char>(x >> 24);
  p[1] = static_cast<unsigned char>(x >> 16);
  p[2] = static_cast<unsigned char>(x >> 8);
  p[3] = static_cast<unsigned char>(x);
}

void transformPortable(uint32_t state[8], const unsigned char* blocks, size_t count) {
  for (; count > 0; count--, blocks += 64) {
    uint32_t w[64];
    for (int t = 0; t < 16; t++) w[t] = loadBigEndian(blocks + 4 * t);
    for (int t = 16; t < 64; t++) {
      uint32_t s0 = rotateRight(w[t - 15], 7) ^ rotateRight(w[t - 15], 18) ^ (w[t - 15] >> 3);
      uint32_t s1 = rotateRight(w[t - 2], 17) ^ rotateRight(w[t - 2], 19) ^ (w[t - 2] >> 10);
      w[t] = w[t - 16] + s0 + w[t - 7] + s1;
    }
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    uint32_t e = state[4], f = state[5], g = state[6], h = state[7];
    for (int t = 0; t < 64; t++) {
      uint32_t t1 = h + (rotateRight(e, 6) ^ rotateRight(e, 11) ^ rotateRight(e, 25)) + ((e & f) ^ (~e & g)) +
                    kRoundConstants[t] + w[t];
      uint32_t t2 = (rotateRight(a, 2) ^ rotateRight(a, 13) ^ rotateRight(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
      h = g;
      g = f;
      f = e;
      e = d + t1;
      d = c;
      c = b;
      b = a;
      a = t1 + t2;
    }
    state[0] += a;
    state[1] += b;
    state[2] += c;
    state[3] += d;
    state[4] += e;
    state[5] += f;
    state[6] += g;
    state[7] += h;
  }
}

#ifdef QLUX_SHA256_X86
// The instructions keep the state as two registers, ABEF and CDGH, and take
// the message four words at a time; each group of four rounds also extends
// the schedule by the group twelve rounds ahead.
__attribute__((target("sha,sse4.1,ssse3"))) void transformExtensions(uint32_t state[8], const unsigned char* blocks,
                                                                      size_t count) {
  const __m128i byteSwap = _mm_set_epi64x(0x0c0d0e0f08090a0bULL, 0x0405060700010203ULL);
  __m128i dcba = _mm_loadu_si128(reinterpret_cast<const __m128i*>(state));
  __m128i hgfe = _mm_loadu_si128(reinterpret_cast<const __m128i*>(state + 4));
  __m128i cdab = _mm_shuffle_epi32(dcba, 0xB1);
  __m128i efgh = _mm_shuffle_epi32(hgfe, 0x1B);
  __m128i abef = _mm_alignr_epi8(cdab, efgh, 8);
  __m128i cdgh = _mm_blend_epi16(efgh, cdab, 0xF0);

  for (; count > 0; count--, blocks += 64) {
    const __m128i savedAbef = abef;
    const __m128i savedCdgh = cdgh;
    __m128i message[4];
    for (int i = 0; i < 4; i++) {
      message[i] = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(blocks + 16 * i)), byteSwap);
    }
    for (int group = 0; group < 16; group++) {
      __m128i words = _mm_add_epi32(message[group & 3],
                                    _mm_loadu_si128(reinterpret_cast<const __m128i*>(kRoundConstants + 4 * group)));
      cdgh = _mm_sha256rnds2_epu32(cdgh, abef, words);
      abef = _mm_sha256rnds2_epu32(abef, cdgh, _mm_shuffle_epi32(words, 0x0E));
      if (group < 12) {
        // W[t] from W[t-16] and s0(W[t-15]), W[t-7], and s1(W[t-2]).
        __m128i next = _mm_sha256msg1_epu32(message[group & 3], message[(group + 1) & 3]);
        next = _mm_add_epi32(next, _mm_alignr_epi8(message[(group + 3) & 3], message[(group + 2) & 3], 4));
        message[group & 3] = _mm_sha256msg2_epu32(next, message[(group + 3) & 3]);
      }
    }
    abef = _mm_add_epi32(abef, savedAbef);
    cdgh = _mm_add_epi32(cdgh, savedCdgh);
  }

  __m128i feba = _mm_shuffle_epi32(abef, 0x1B);
  __m128i dchg = _mm_shuffle_epi32(cdgh, 0xB1);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(state), _mm_blend_epi16(feba, dchg, 0xF0));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(state + 4), _mm_alignr_epi8(dchg, feba, 8));
}

bool detectExtensions() {
  unsigned int a, b, c, d;
  if (!__get_cpuid(1, &a, &b, &c, &d)) return false;
  const bool ssse3 = (c & bit_SSSE3) != 0, sse41 = (c & bit_SSE4_1) != 0;
  if (!__get_cpuid_count(7, 0, &a, &b, &c, &d)) return false;
  return ssse3 && sse41 && (b & bit_SHA) != 0;
}

const bool kHaveExtensions = detectExtensions();
#else
const bool kHaveExtensions = false;
#endif
bool portableOnly = false;

}  // namespace

void SHA256::transform(const unsigned char* blocks, size_t count) {
#ifdef QLUX_SHA256_X86
  if (kHaveExtensions && !portableOnly) return transformExtensions(state, blocks, count);
#endif
  transformPortable(state, blocks, count);
}

bool SHA256::usesProcessorExtensions() { return kHaveExtensions && !portableOnly; }

void SHA256::usePortableCode(bool portable) { portableOnly = portable; }

void SHA256::reset() {
  static const uint32_t kInitial[8] = {0x6a09e667u, 0xbb67ae85u, 0x3c6ef372u, 0xa54ff53au,
                                       0x510e527fu, 0x9b05688cu, 0x1f83d9abu, 0x5be0cd19u};
  std::memcpy(state, kInitial, sizeof state);
  length = 0;
}

void SHA256::update(const void* data, size_t size) {
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
    transform(pending, 1);
  }
  if (size >= 64) {
    transform(bytes, size / 64);
    bytes += size - size % 64;
    size %= 64;
  }
  if (size > 0) std::memcpy(pending, bytes, size);
}

void SHA256::finish(unsigned char digest[kSHA256DigestSize]) {
  // Pad with a 1 bit and zeros to 56 bytes modulo 64, then append the
  // message length in bits, big-endian.
  uint64_t bits = length * 8;
  static const unsigned char padding[64] = {0x80};
  size_t used = static_cast<size_t>(length % 64);
  update(padding, used < 56 ? 56 - used : 120 - used);
  unsigned char tail[8];
  storeBigEndian(tail, static_cast<uint32_t>(bits >> 32));
  storeBigEndian(tail + 4, static_cast<uint32_t>(bits));
  update(tail, 8);
  for (int i = 0; i < 8; i++) storeBigEndian(digest + 4 * i, state[i]);
}

void SHA256::digest(const void* data, size_t size, unsigned char out[kSHA256DigestSize]) {
  SHA256 sha;
  sha.update(data, size);
  sha.finish(out);
}
