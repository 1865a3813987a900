// The parts of the thread pool that don't touch the system: the sequences,
// the message list, the dealing of threads over nodes, and the default
// thread count.
#include "foundation/thread_manager.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "foundation/errors.h"

namespace QUtils {

// A block header; its items follow it, at the item size's natural spacing.
struct Sequence::_SequenceBlock {
  _SequenceBlock* previous;
  _SequenceBlock* next;
  int used;
};

namespace {

// A block header's size rounded up so that the items behind it stay aligned
// for any type.
size_t alignedHeader(size_t size) {
  const size_t align = alignof(std::max_align_t);
  return (size + align - 1) / align * align;
}

}  // namespace

Sequence::Sequence(size_t itemSize, int blockItems)
    : itemSize(itemSize ? itemSize : 1), blockItems(blockItems > 0 ? blockItems : 1), count(0), first(nullptr),
      last(nullptr) {}

Sequence::~Sequence() { clear(); }

void* Sequence::append() {
  if (!last || last->used >= blockItems) {
    size_t header = alignedHeader(sizeof(_SequenceBlock));
    void* memory = nullptr;
    if (itemSize <= (SIZE_MAX - header) / static_cast<size_t>(blockItems)) {
      memory = std::calloc(1, header + itemSize * static_cast<size_t>(blockItems));
    }
    if (!memory) throw ExceptionMsg("[_SequenceBlock] Could not allocate memory");
    _SequenceBlock* block = static_cast<_SequenceBlock*>(memory);
    block->previous = last;
    if (last) {
      last->next = block;
    } else {
      first = block;
    }
    last = block;
  }
  unsigned char* items = reinterpret_cast<unsigned char*>(last) + alignedHeader(sizeof(_SequenceBlock));
  void* item = items + itemSize * static_cast<size_t>(last->used);
  last->used++;
  count++;
  return item;
}

void* Sequence::get(int index) const {
  if (index < 0 || index >= count) return nullptr;
  _SequenceBlock* block = first;
  while (index >= blockItems) {
    block = block->next;
    index -= blockItems;
  }
  unsigned char* items = reinterpret_cast<unsigned char*>(block) + alignedHeader(sizeof(_SequenceBlock));
  return items + itemSize * static_cast<size_t>(index);
}

void Sequence::clear() {
  while (first) {
    _SequenceBlock* next = first->next;
    std::free(first);
    first = next;
  }
  last = nullptr;
  count = 0;
}

MessageList::MessageList() : items(sizeof(Item), 100), head(nullptr), tail(nullptr), freeItems(nullptr), count(0) {}

void MessageList::push(int32_t message) {
  Item* item = freeItems;
  if (item) {
    freeItems = item->next;
  } else {
    item = static_cast<Item*>(items.append());
  }
  item->next = nullptr;
  item->message = message;
  if (tail) {
    tail->next = item;
  } else {
    head = item;
  }
  tail = item;
  count++;
}

bool MessageList::pop(int32_t* message) {
  Item* item = head;
  if (!item) return false;
  head = item->next;
  if (!head) tail = nullptr;
  *message = item->message;
  item->next = freeItems;
  freeItems = item;
  count--;
  return true;
}

void NodeDealer::addNode(int processors) {
  int32_t total = nodeTotals.getCount() > 0 ? nodeTotals[nodeTotals.getCount() - 1] : 0;
  nodeTotals.add(total + (processors > 0 ? processors : 0));
}

int NodeDealer::nextNode() {
  int nodes = nodeTotals.getCount();
  if (nodes == 0 || nodeTotals[nodes - 1] <= 0) return -1;
  if (counter >= nodeTotals[nodes - 1]) counter = 0;
  int node = 0;
  while (nodeTotals[node] <= counter) node++;
  counter++;
  return node;
}

namespace {

// Reads a decimal number at `*text` and moves past it; false if there is none
// or it is out of range.
bool readCpuNumber(const char** text, long* out) {
  const char* start = *text;
  if (*start < '0' || *start > '9') return false;
  char* end = nullptr;
  errno = 0;
  long value = std::strtol(start, &end, 10);
  if (errno != 0 || value > INT_MAX) return false;
  *text = end;
  *out = value;
  return true;
}

}  // namespace

int parseCpuList(const char* text, unsigned char* cpus, int limit) {
  if (!text) return -1;
  int listed = 0;
  const char* p = text;
  while (*p == ' ' || *p == '\t') p++;
  while (*p && *p != '\n') {
    long low = 0;
    long high = 0;
    if (!readCpuNumber(&p, &low)) return -1;
    high = low;
    if (*p == '-') {
      p++;
      if (!readCpuNumber(&p, &high) || high < low) return -1;
    }
    for (long cpu = low; cpu <= high; cpu++) {
      if (cpu < limit) cpus[cpu] = 1;
      listed++;
    }
    if (*p == ',') {
      p++;
      if (*p == '\0' || *p == '\n') return -1;
    } else if (*p != '\0' && *p != '\n') {
      return -1;
    }
  }
  return listed;
}

namespace {

// A whole decimal number, with blanks allowed around it; false otherwise.
bool parseWholeNumber(const char* text, long* out) {
  if (!text) return false;
  char* end = nullptr;
  errno = 0;
  long value = std::strtol(text, &end, 10);
  if (end == text || errno != 0) return false;
  while (*end == ' ' || *end == '\t' || *end == '\r' || *end == '\n') end++;
  if (*end != '\0') return false;
  *out = value;
  return true;
}

}  // namespace

int chooseThreadCount(const char* setting, int processorCount) {
  long value = 0;
  if (parseWholeNumber(setting, &value) && value > 0 && value <= INT_MAX) return static_cast<int>(value);
  return processorCount > 0 ? processorCount : 1;
}

int getDefaultThreadCount() {
  static const int count = chooseThreadCount(std::getenv("QLUX_NUM_THREADS"), getProcessorCount());
  return count;
}

bool threadAffinityWanted() {
  long value = 0;
  return parseWholeNumber(std::getenv("QLUX_USE_THREAD_AFFINITY"), &value) && value != 0;
}

void deleteThreadManager(ThreadManager* manager) { delete manager; }

}  // namespace QUtils
