// The system's two list kinds and its counted byte array.
//
// PList<T> holds plain values copied as raw memory (no constructors run) and
// grows by a fixed step. Table<T> holds constructed elements and grows by the
// rule of setCount(). RefArray<T> is a counted handle on an array: copies
// share the data, and the last handle frees it. None of them is thread-safe.
#ifndef QLUX_FOUNDATION_LISTS_H_
#define QLUX_FOUNDATION_LISTS_H_

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace QUtils {

template <typename T>
class PList {
 public:
  explicit PList(int growth = 5) : items(nullptr), capacity(0), count(0), growth(growth > 0 ? growth : 5) {}
  PList(const PList&) = delete;
  PList& operator=(const PList&) = delete;
  virtual ~PList() { std::free(items); }
  virtual T* getItems() { return items; }
  virtual int getCount() const { return count; }

  // Appends a raw copy of `item`; gives its index.
  int add(const T& item) {
    if (count >= capacity) setCapacity(count + growth);
    std::memcpy(static_cast<void*>(&items[count]), &item, sizeof(T));
    return count++;
  }
  // Removes the element at `index`, moving the later ones down.
  void remove(int index) {
    if (index < 0 || index >= count) return;
    std::memmove(static_cast<void*>(&items[index]), &items[index + 1], sizeof(T) * (count - index - 1));
    count--;
  }
  // A capacity of 0 frees the block and clears the count.
  void setCapacity(int newCapacity) {
    if (newCapacity <= 0) {
      std::free(items);
      items = nullptr;
      capacity = count = 0;
      return;
    }
    T* block = static_cast<T*>(std::calloc(static_cast<size_t>(newCapacity), sizeof(T)));
    if (count > newCapacity) count = newCapacity;
    if (items) std::memcpy(static_cast<void*>(block), items, sizeof(T) * count);
    std::free(items);
    items = block;
    capacity = newCapacity;
  }
  void clear() { setCapacity(0); }
  T& operator[](int index) { return items[index]; }
  const T& operator[](int index) const { return items[index]; }
  int getCapacity() const { return capacity; }

 private:
  T* items;
  int capacity;
  int count;
  int growth;
};

template <typename T>
class Table {
 public:
  explicit Table(int growth = 0) : count(0), growth(growth), capacity(0), items(nullptr) {}
  Table(const Table& other) : count(0), growth(other.growth), capacity(0), items(nullptr) { *this = other; }
  Table& operator=(const Table& other) {
    if (this == &other) return *this;
    setCount(0, 1);
    setCount(other.count, 1);
    for (int i = 0; i < other.count; i++) items[i] = other.items[i];
    return *this;
  }
  virtual ~Table() { delete[] items; }

  // Sets the element count; a count above the capacity grows the block:
  // exactly with `exact`, else to the next multiple of a positive growth step
  // above newCount, else by doubling.
  void setCount(int newCount, int exact) {
    if (newCount < 0) newCount = 0;
    if (newCount <= capacity) {
      count = newCount;
      return;
    }
    int newCapacity;
    if (exact) {
      newCapacity = newCount;
    } else if (growth > 0) {
      newCapacity = newCount + growth - (newCount % growth);
    } else if (capacity < 1) {
      newCapacity = newCount;
    } else {
      newCapacity = capacity;
      while (newCapacity < newCount) newCapacity *= 2;
    }
    T* block = new T[newCapacity];
    for (int i = 0; items && i < count && i < newCapacity; i++) block[i] = items[i];
    delete[] items;
    items = block;
    capacity = newCapacity;
    count = newCount;
  }
  // Appends a copy of `item`; gives its index.
  int add(const T& item) {
    setCount(count + 1, 0);
    items[count - 1] = item;
    return count - 1;
  }
  void clear() { count = 0; }
  int getCount() const { return count; }
  int getCapacity() const { return capacity; }
  T* getItems() { return items; }
  T& operator[](int index) { return items[index]; }
  const T& operator[](int index) const { return items[index]; }

 private:
  int count;
  int growth;
  int capacity;
  T* items;
};

// The counter behind a RefArray: owns the data block and the count.
template <typename T>
class RefCounter {
 public:
  RefCounter() : references(1), data(nullptr) {}
  virtual ~RefCounter() {}
  virtual T* allocate(uint32_t size) {
    data = static_cast<T*>(std::calloc(size ? size : 1, sizeof(T)));
    return data;
  }
  virtual void release(T* block) { std::free(block); }
  virtual void destroy() {
    release(data);
    data = nullptr;
    delete this;
  }
  int32_t references;
  T* data;
};

template <typename T>
class RefArray {
 public:
  RefArray() : data(nullptr), size(0) {}
  explicit RefArray(uint32_t length) : data(new RefCounter<T>()), size(length) { data->allocate(length); }
  RefArray(const RefArray& other) : data(other.data), size(other.size) {
    if (data) data->references++;
  }
  RefArray& operator=(const RefArray& other) {
    if (this == &other) return *this;
    if (other.data) other.data->references++;
    reset();
    data = other.data;
    size = other.size;
    return *this;
  }
  ~RefArray() { reset(); }

  // Drops this handle's share; the last handle frees the data.
  void reset() {
    RefCounter<T>* old = data;
    data = nullptr;
    size = 0;
    if (old && --old->references < 1) old->destroy();
  }
  T* get() const { return data ? data->data : nullptr; }
  uint32_t getSize() const { return size; }
  bool isNull() const { return data == nullptr; }
  int32_t getReferences() const { return data ? data->references : 0; }

 private:
  RefCounter<T>* data;
  uint32_t size;
};

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_LISTS_H_
