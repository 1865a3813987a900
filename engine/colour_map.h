// ColourMap: the colour theme's map from a group's name to a colour, a
// chained hash table keyed by Bob Jenkins' lookup3 hash of the name's bytes.
// The bucket count steps along the primes 13, 29, 59, 127, 257, 521, 1049,
// 2099, ... (each about twice the last): an insert into a table more than
// 75 percent full moves one step up, and one into a table of more than 13
// buckets that is less than 20 percent full moves one step down.
#ifndef QLUX_ENGINE_COLOUR_MAP_H_
#define QLUX_ENGINE_COLOUR_MAP_H_

#include <cstddef>
#include <cstdint>

// lookup3's hashlittle over `length` bytes.
uint32_t hashlittle(const void* key, size_t length, uint32_t initval);

class ColourMap {
 public:
  ColourMap();
  ColourMap(const ColourMap&) = delete;
  ColourMap& operator=(const ColourMap&) = delete;
  ~ColourMap();

  // Sets the colour of `name`, adding the entry if it is new.
  void set(const char* name, uint32_t colour);
  // True and the colour if `name` is there.
  bool get(const char* name, uint32_t* colour) const;
  // Removes `name`; true if it was there.
  bool remove(const char* name);
  void clear();
  int getCount() const { return count; }
  int getBucketCount() const { return bucketCount; }

 private:
  struct Entry;
  void rehash(int newBucketCount);
  Entry** buckets;
  int bucketCount;
  int count;
};

#endif  // QLUX_ENGINE_COLOUR_MAP_H_
