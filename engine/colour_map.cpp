// The theme's group map and the lookup3 hash it is keyed by.
#include "engine/colour_map.h"

#include <cstring>
#include <string>

// ---- lookup3: hashlittle ----
//
// Bob Jenkins' lookup3 (public domain). The key is read in blocks of twelve
// bytes, each block as three little-endian 32-bit words, so the result is the
// same on every byte order and for any alignment of the key.

namespace {

inline uint32_t rotate(uint32_t x, int k) { return (x << k) | (x >> (32 - k)); }

// Mixes three words reversibly; every input bit affects every output bit.
inline void mix(uint32_t& a, uint32_t& b, uint32_t& c) {
  a -= c;  a ^= rotate(c, 4);  c += b;
  b -= a;  b ^= rotate(a, 6);  a += c;
  c -= b;  c ^= rotate(b, 8);  b += a;
  a -= c;  a ^= rotate(c, 16); c += b;
  b -= a;  b ^= rotate(a, 19); a += c;
  c -= b;  c ^= rotate(b, 4);  b += a;
}

// The last mixing, after which c is the hash.
inline void finalMix(uint32_t& a, uint32_t& b, uint32_t& c) {
  c ^= b; c -= rotate(b, 14);
  a ^= c; a -= rotate(c, 11);
  b ^= a; b -= rotate(a, 25);
  c ^= b; c -= rotate(b, 16);
  a ^= c; a -= rotate(c, 4);
  b ^= a; b -= rotate(a, 14);
  c ^= b; c -= rotate(b, 24);
}

inline uint32_t word(const unsigned char* k) {
  return static_cast<uint32_t>(k[0]) | (static_cast<uint32_t>(k[1]) << 8) | (static_cast<uint32_t>(k[2]) << 16) |
         (static_cast<uint32_t>(k[3]) << 24);
}

}  // namespace

uint32_t hashlittle(const void* key, size_t length, uint32_t initval) {
  const unsigned char* k = static_cast<const unsigned char*>(key);
  uint32_t a, b, c;
  a = b = c = 0xdeadbeefu + static_cast<uint32_t>(length) + initval;

  while (length > 12) {
    a += word(k);
    b += word(k + 4);
    c += word(k + 8);
    mix(a, b, c);
    length -= 12;
    k += 12;
  }

  // The last block of 1 to 12 bytes; the missing bytes count as zeros.
  // An empty last block (only for a key of length 0) skips the final mix.
  switch (length) {
    case 12: c += static_cast<uint32_t>(k[11]) << 24; [[fallthrough]];
    case 11: c += static_cast<uint32_t>(k[10]) << 16; [[fallthrough]];
    case 10: c += static_cast<uint32_t>(k[9]) << 8;   [[fallthrough]];
    case 9:  c += k[8];                               [[fallthrough]];
    case 8:  b += static_cast<uint32_t>(k[7]) << 24;  [[fallthrough]];
    case 7:  b += static_cast<uint32_t>(k[6]) << 16;  [[fallthrough]];
    case 6:  b += static_cast<uint32_t>(k[5]) << 8;   [[fallthrough]];
    case 5:  b += k[4];                               [[fallthrough]];
    case 4:  a += static_cast<uint32_t>(k[3]) << 24;  [[fallthrough]];
    case 3:  a += static_cast<uint32_t>(k[2]) << 16;  [[fallthrough]];
    case 2:  a += static_cast<uint32_t>(k[1]) << 8;   [[fallthrough]];
    case 1:  a += k[0]; break;
    case 0:  return c;
  }
  finalMix(a, b, c);
  return c;
}

// ---- ColourMap ----

namespace {

// Bucket counts: each the smallest prime at or above twice the one before.
const int kBucketSizes[] = {13,      29,      59,       127,      257,      521,       1049,      2099,     4201,
                            8419,    16843,   33703,    67409,    134837,   269683,    539389,    1078787,  2157587,
                            4315183, 8630387, 17260781, 34521589, 69043189, 138086407, 276172823, 552345671,
                            1104691373};
const int kBucketSizeCount = sizeof kBucketSizes / sizeof kBucketSizes[0];

// The step of `bucketCount` in the table above; 0 if it isn't one.
int stepOf(int bucketCount) {
  for (int i = 0; i < kBucketSizeCount; i++) {
    if (kBucketSizes[i] == bucketCount) return i;
  }
  return 0;
}

uint32_t hashName(const char* name) { return hashlittle(name, std::strlen(name), 0); }

}  // namespace

struct ColourMap::Entry {
  Entry* next;
  uint32_t hash;
  uint32_t colour;
  std::string name;
};

ColourMap::ColourMap() : buckets(new Entry*[kBucketSizes[0]]()), bucketCount(kBucketSizes[0]), count(0) {}

ColourMap::~ColourMap() {
  clear();
  delete[] buckets;
}

void ColourMap::set(const char* name, uint32_t colour) {
  if (!name) return;
  uint32_t hash = hashName(name);
  for (Entry* e = buckets[hash % bucketCount]; e; e = e->next) {
    if (e->hash == hash && e->name == name) {
      e->colour = colour;
      return;
    }
  }

  // A new entry: first move the table one step toward its load, up when it
  // is more than 75 percent full, down when it has left the smallest size
  // behind and is less than 20 percent full.
  int step = stepOf(bucketCount);
  if (static_cast<int64_t>(count) * 4 > static_cast<int64_t>(bucketCount) * 3) {
    if (step + 1 < kBucketSizeCount) rehash(kBucketSizes[step + 1]);
  } else if (bucketCount > kBucketSizes[0] && static_cast<int64_t>(count) * 5 < bucketCount) {
    rehash(kBucketSizes[step - 1]);
  }

  Entry* e = new Entry;
  e->hash = hash;
  e->colour = colour;
  e->name = name;
  Entry** head = &buckets[hash % bucketCount];
  e->next = *head;
  *head = e;
  count++;
}

bool ColourMap::get(const char* name, uint32_t* colour) const {
  if (!name) return false;
  uint32_t hash = hashName(name);
  for (Entry* e = buckets[hash % bucketCount]; e; e = e->next) {
    if (e->hash == hash && e->name == name) {
      if (colour) *colour = e->colour;
      return true;
    }
  }
  return false;
}

bool ColourMap::remove(const char* name) {
  if (!name) return false;
  uint32_t hash = hashName(name);
  for (Entry** link = &buckets[hash % bucketCount]; *link; link = &(*link)->next) {
    Entry* e = *link;
    if (e->hash == hash && e->name == name) {
      *link = e->next;
      delete e;
      count--;
      return true;
    }
  }
  return false;
}

void ColourMap::clear() {
  for (int i = 0; i < bucketCount; i++) {
    Entry* e = buckets[i];
    while (e) {
      Entry* next = e->next;
      delete e;
      e = next;
    }
    buckets[i] = nullptr;
  }
  count = 0;
}

void ColourMap::rehash(int newBucketCount) {
  Entry** fresh = new Entry*[newBucketCount]();
  for (int i = 0; i < bucketCount; i++) {
    Entry* e = buckets[i];
    while (e) {
      Entry* next = e->next;
      Entry** head = &fresh[e->hash % newBucketCount];
      e->next = *head;
      *head = e;
      e = next;
    }
  }
  delete[] buckets;
  buckets = fresh;
  bucketCount = newBucketCount;
}
