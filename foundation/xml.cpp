// PXML: reading, searching, changing and writing a flat element array.
#include "foundation/xml.h"

#include <cstdlib>
#include <cstring>

#include "foundation/file_stream.h"
#include "foundation/text.h"

namespace QUtils {

namespace {

// The five characters that a value may not hold as they stand, in the order
// in which references are tried when reading.
struct Entity {
  char character;
  const char* reference;
  int length;
};
const Entity kEntities[] = {
    {'&', "&amp;", 5}, {'<', "&lt;", 4}, {'\'', "&apos;", 6}, {'"', "&quot;", 6}, {'>', "&gt;", 4},
};
const int kEntityCount = 5;

#ifdef _WIN32
const char kLineEnd[] = "\r\n";
#else
const char kLineEnd[] = "\n";
#endif

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// Narrows [*start, *end) to leave out white space at both ends.
void trim(const char** start, const char** end) {
  while (*start < *end && isSpace(**start)) (*start)++;
  while (*end > *start && isSpace((*end)[-1])) (*end)--;
}

// Copies `length` bytes of `in` to `out`, turning each known reference into
// its character; an '&' that starts none is copied as it is. The result is
// never longer than the input. Gives its length; `out` is terminated.
int decodeEntities(const char* in, int length, char* out) {
  int n = 0;
  int i = 0;
  while (i < length) {
    if (in[i] == '&') {
      int k = 0;
      while (k < kEntityCount &&
             !(length - i >= kEntities[k].length && std::memcmp(in + i, kEntities[k].reference, kEntities[k].length) == 0))
        k++;
      if (k < kEntityCount) {
        out[n++] = kEntities[k].character;
        i += kEntities[k].length;
        continue;
      }
    }
    out[n++] = in[i++];
  }
  out[n] = 0;
  return n;
}

char* copyRange(const char* text, int length) {
  char* copy = static_cast<char*>(std::malloc(static_cast<size_t>(length) + 1));
  if (!copy) return nullptr;
  if (length > 0) std::memcpy(copy, text, static_cast<size_t>(length));
  copy[length] = 0;
  return copy;
}

// Behind the end of a comment whose text starts at `p`: the first '>' that
// follows exactly two '-'. A third '-' spoils the match, so "--->" doesn't
// end a comment. Null if the text ends first.
const char* skipComment(const char* p) {
  int dashes = 0;
  for (; *p; p++) {
    if (*p == '-') {
      dashes++;
    } else if (*p == '>' && dashes == 2) {
      return p + 1;
    } else {
      dashes = 0;
    }
  }
  return nullptr;
}

// Collects output in one heap block and hands it to the stream when full.
// The first failed or short write is remembered, and later output dropped.
class OutputBuffer {
 public:
  static const uint32_t kSize = 65536;

  explicit OutputBuffer(PStream* stream)
      : stream(stream), data(static_cast<char*>(std::malloc(kSize))), used(0), failed(data == nullptr) {}
  OutputBuffer(const OutputBuffer&) = delete;
  OutputBuffer& operator=(const OutputBuffer&) = delete;
  ~OutputBuffer() { std::free(data); }

  void put(const char* text, uint32_t length) {
    if (failed) return;
    if (kSize - used < length) flush();
    if (failed) return;
    if (length > kSize) {
      writeOut(text, length);
      return;
    }
    std::memcpy(data + used, text, length);
    used += length;
  }
  void put(const char* text) { put(text, static_cast<uint32_t>(std::strlen(text))); }
  void put(char c) { put(&c, 1); }
  void indent(int depth) {
    for (int i = 0; i < depth; i++) put(' ');
  }
  // Writes `text` with the five special characters as references.
  void putEncoded(const char* text) {
    if (!text) return;
    for (const char* p = text; *p && !failed; p++) {
      int k = 0;
      while (k < kEntityCount && kEntities[k].character != *p) k++;
      if (k < kEntityCount) {
        put(kEntities[k].reference, static_cast<uint32_t>(kEntities[k].length));
      } else {
        put(*p);
      }
    }
  }
  void flush() {
    if (failed || used == 0) return;
    writeOut(data, used);
    used = 0;
  }
  bool hasFailed() const { return failed; }

 private:
  void writeOut(const char* text, uint32_t length) {
    uint32_t written = 0;
    if (stream->write(text, length, &written) != 0 || written != length) failed = true;
  }

  PStream* stream;
  char* data;
  uint32_t used;
  bool failed;
};

}  // namespace

// ---------------------------------------------------------------------------
// Attributes

void PXMLAttributes::add(const char* name, const char* value) {
  PXMLAttribute entry;
  entry.name = pool.add(name ? name : "");
  entry.value = pool.add(value);
  entry.pool = &pool;
  list.add(entry);
}

void PXMLAttributes::addDecoded(const char* name, int nameLength, const char* value, int length) {
  PXMLAttribute entry;
  entry.name = pool.add(name, nameLength);
  entry.value = pool.allocate(length);
  if (entry.value) decodeEntities(value, length, entry.value);
  entry.pool = &pool;
  list.add(entry);
}

void PXMLAttributes::set(const char* name, const char* value) {
  int n = find(name);
  if (n < 0) {
    add(name, value);
    return;
  }
  list[n].value = pool.add(value);
}

int PXMLAttributes::find(const char* name) const {
  if (!name) return -1;
  for (int n = list.getCount() - 1; n >= 0; n--) {
    if (compareNoCase(list[n].name, name) == 0) return n;
  }
  return -1;
}

const char* PXMLAttributes::getName(int n) const {
  return n >= 0 && n < list.getCount() ? list[n].name : nullptr;
}

const char* PXMLAttributes::getValue(int n) const {
  return n >= 0 && n < list.getCount() ? list[n].value : nullptr;
}

// ---------------------------------------------------------------------------
// The document

PXML::PXML() : elements(-1) {}

PXML::~PXML() {
  for (int i = 0; i < elements.getCount(); i++) {
    delete elements[i].attributes;
    std::free(elements[i].value);
    std::free(elements[i].name);
  }
}

int PXML::addElement(const char* name, int nameLength, int parent) {
  PXMLElement element;
  element.attributes = new PXMLAttributes();
  element.name = copyRange(name, nameLength);
  element.index = elements.getCount();
  element.parent = parent;
  return elements.add(element);
}

void PXML::setValue(int index, const char* value, int length) {
  PXMLElement& element = elements[index];
  std::free(element.value);
  element.value = value ? copyRange(value, length) : nullptr;
  element.valueLength = element.value ? length : 0;
}

// Reads the text of an opening tag, trimmed, into the element's name and
// attributes. An attribute without a quoted value ends the reading; what was
// read before stays.
void PXML::parseTag(int index, const char* tag, int length) {
  const char* end = tag + length;
  const char* p = tag;
  while (p < end && !isSpace(*p) && *p != '/') p++;
  int element = addElement(tag, static_cast<int>(p - tag), index);
  PXMLAttributes* attributes = elements[element].attributes;
  for (;;) {
    while (p < end && (isSpace(*p) || *p == '/')) p++;
    if (p >= end) return;
    const char* name = p;
    while (p < end && !isSpace(*p) && *p != '=') p++;
    if (p >= end) return;
    int nameLength = static_cast<int>(p - name);
    while (p < end && *p != '"' && *p != '\'') p++;
    if (p >= end) return;
    char quote = *p++;
    const char* value = p;
    while (p < end && *p != quote) p++;
    if (p >= end) return;
    attributes->addDecoded(name, nameLength, value, static_cast<int>(p - value));
    p++;
  }
}

int PXML::parse(const char* text) {
  if (!text) return 0;
  const char* p = text;
  int current = -1;     // the innermost open element
  int lastOpened = -1;  // the element made last
  for (;;) {
    const char* pending = p;
    const char* open = std::strchr(p, '<');
    if (!open) break;
    if (open[1] == '!' && open[2] == '-' && open[3] == '-') {
      p = skipComment(open + 4);
      if (!p) break;
      continue;
    }
    if (open[1] == '?') {
      // A processing instruction: passed over up to its '?' or '>'.
      p = open + 2;
      while (*p && *p != '?' && *p != '>') p++;
      continue;
    }
    const char* tag = open + 1;
    const char* close = std::strchr(tag, '>');
    if (!close) break;
    p = close + 1;
    bool selfClosing = close > tag && close[-1] == '/';
    bool closing = *tag == '/';

    if (!closing) {
      const char* start = tag;
      const char* end = close;
      trim(&start, &end);
      parseTag(current, start, static_cast<int>(end - start));
      current = lastOpened = elements.getCount() - 1;
      if (!selfClosing) continue;
    } else if (current < 0) {
      break;  // nothing is open that this could close
    }

    if (closing && !selfClosing && lastOpened >= 0 && !elements[lastOpened].value) {
      const char* start = pending;
      const char* end = open;
      trim(&start, &end);
      int length = static_cast<int>(end - start);
      char* value = static_cast<char*>(std::malloc(static_cast<size_t>(length) + 1));
      if (value) {
        elements[lastOpened].valueLength = decodeEntities(start, length, value);
        elements[lastOpened].value = value;
      }
    }
    if (selfClosing && lastOpened >= 0) setValue(lastOpened, "", 0);

    current = elements[current].parent;
    if (current < 0) break;  // the first top-level element is complete
  }
  return 0;
}

int PXML::readStream(PStream* stream) {
  int64_t remaining = stream->size() - stream->position();
  if (remaining < 0 || remaining >= 0xFFFFFFFFll) return -3;
  uint32_t size = static_cast<uint32_t>(remaining);
  char* text = static_cast<char*>(std::malloc(static_cast<size_t>(size) + 1));
  if (!text) return -3;
  uint32_t got = 0;
  int result = size > 0 ? stream->read(text, size, &got) : 0;
  if (result == 0 && got != size) result = -3;
  if (result == 0) {
    text[size] = 0;
    parse(text);
  }
  std::free(text);
  return result;
}

int PXML::load(PStream* stream) {
  if (!stream) return 1;
  if (!stream->isOpen() && stream->open() != 0) return 1;
  int result = readStream(stream);
  stream->close();
  return result;
}

int PXML::load(const char* fileName) {
  PFileStream file;
  int result = file.openFile(fileName, kGenericRead, kShareRead, kModeMustExist);
  if (result != 0) return result;
  result = readStream(&file);
  file.close();
  return result;
}

// ---------------------------------------------------------------------------
// Searching

int PXML::findNext(const char* name, int after) const {
  if (!name) return -1;
  for (int i = after < 0 ? 0 : after + 1; i < elements.getCount(); i++) {
    if (std::strcmp(elements[i].name, name) == 0) return i;
  }
  return -1;
}

int PXML::findNextChild(int parent, const char* name, int after) const {
  if (!name || (parent != -1 && !valid(parent))) return -1;
  int i = after < parent ? parent + 1 : after + 1;
  for (; i < elements.getCount(); i++) {
    if (elements[i].parent == parent && std::strcmp(elements[i].name, name) == 0) return i;
  }
  return -1;
}

// The first child of `parent` whose whole name is the `length` bytes at
// `name`.
int PXML::childNamed(int parent, const char* name, int length) const {
  for (int i = parent + 1; i < elements.getCount(); i++) {
    const PXMLElement& element = elements[i];
    if (element.parent == parent && std::strncmp(element.name, name, length) == 0 && element.name[length] == 0)
      return i;
  }
  return -1;
}

int PXML::findPath(const char* path, int start, PList<int>* trail) const {
  if (!path) return -1;
  if (*path == '/') path++;
  int parent = start < 0 ? -1 : getParent(start);
  int found = -1;
  for (const char* segment = path;;) {
    const char* end = std::strchr(segment, '/');
    int length = static_cast<int>(end ? end - segment : std::strlen(segment));
    found = -1;
    for (int i = start < parent ? parent + 1 : start + 1; i < elements.getCount(); i++) {
      if (elements[i].parent == parent && std::strncmp(elements[i].name, segment, length) == 0) {
        found = i;
        break;
      }
    }
    if (found >= 0) {
      parent = found;
      if (trail) trail->add(found);
    }
    if (!end) break;
    segment = end + 1;
  }
  return found;
}

int PXML::findPathFrom(const char* path, int parent) const {
  if (!path || (parent != -1 && !valid(parent))) return -1;
  if (*path == '/') path++;
  for (const char* segment = path;;) {
    const char* end = std::strchr(segment, '/');
    int length = static_cast<int>(end ? end - segment : std::strlen(segment));
    parent = childNamed(parent, segment, length);
    if (parent < 0 || !end) return parent;
    segment = end + 1;
  }
}

int PXML::getChildren(int parent, PList<int>* list) const {
  if (!list || (parent != -1 && !valid(parent))) return 0;
  int added = 0;
  for (int i = parent + 1; i < elements.getCount(); i++) {
    if (elements[i].parent == parent) {
      list->add(i);
      added++;
    }
  }
  return added;
}

// ---------------------------------------------------------------------------
// Reading and changing elements

const char* PXML::getName(int index) const { return valid(index) ? elements[index].name : nullptr; }

const char* PXML::getValue(int index) const { return valid(index) ? elements[index].value : nullptr; }

int PXML::getValueLength(int index) const { return valid(index) ? elements[index].valueLength : 0; }

int PXML::getParent(int index) const { return valid(index) ? elements[index].parent : -1; }

const char* PXML::getAttribute(int index, const char* name) const {
  if (!valid(index)) return nullptr;
  const PXMLAttributes* attributes = elements[index].attributes;
  return attributes->getValue(attributes->find(name));
}

int PXML::getAttributeCount(int index) const { return valid(index) ? elements[index].attributes->getCount() : 0; }

const char* PXML::getAttributeName(int index, int n) const {
  return valid(index) ? elements[index].attributes->getName(n) : nullptr;
}

const char* PXML::getAttributeValue(int index, int n) const {
  return valid(index) ? elements[index].attributes->getValue(n) : nullptr;
}

int PXML::setAttribute(int index, const char* name, const char* value) {
  if (!valid(index) || !name) return -1;
  elements[index].attributes->set(name, value);
  return 0;
}

int PXML::setPath(int parent, const char* path, const char* value, int always) {
  if (!path || (parent != -1 && !valid(parent))) return -1;
  int result = -1;
  for (const char* segment = path; *segment;) {
    const char* end = std::strchr(segment, '/');
    int length = static_cast<int>(end ? end - segment : std::strlen(segment));
    const char* next = end ? end + 1 : segment + length;
    if (length == 0) {
      segment = next;
      continue;
    }
    const char* rest = next;
    while (*rest == '/') rest++;
    bool last = *rest == 0;

    int child = (last && always) ? -1 : childNamed(parent, segment, length);
    if (child >= 0 && last) {
      setValue(child, value, value ? static_cast<int>(std::strlen(value)) : 0);
    } else if (child < 0) {
      child = addElement(segment, length, parent);
      if (last) {
        setValue(child, value, value ? static_cast<int>(std::strlen(value)) : 0);
      } else {
        setValue(child, "", 0);
      }
    }
    parent = result = child;
    segment = next;
  }
  return result;
}

// ---------------------------------------------------------------------------
// Writing

int PXML::save(const char* fileName) {
  PFileStream file;
  if (file.openFile(fileName, kGenericWrite, kShareRead, kModeCreateAlways) != 0) return -1;

  // Child and sibling links, so that the walk below is linear and needs no
  // recursion however deep the document is.
  int count = elements.getCount();
  int* links = count > 0 ? static_cast<int*>(std::malloc(sizeof(int) * 3 * static_cast<size_t>(count))) : nullptr;
  if (count > 0 && !links) {
    file.close();
    return 1;
  }
  int* firstChild = links;
  int* nextSibling = links + count;
  int* lastChild = links + 2 * count;
  int firstTop = -1;
  int lastTop = -1;
  for (int i = 0; i < count; i++) firstChild[i] = nextSibling[i] = lastChild[i] = -1;
  for (int i = 0; i < count; i++) {
    int parent = elements[i].parent;
    int* first = parent >= 0 ? &firstChild[parent] : &firstTop;
    int* last = parent >= 0 ? &lastChild[parent] : &lastTop;
    if (*last >= 0) {
      nextSibling[*last] = i;
    } else {
      *first = i;
    }
    *last = i;
  }

  OutputBuffer out(&file);
  int node = firstTop;
  int depth = 0;
  while (node >= 0) {
    const PXMLElement& element = elements[node];
    out.indent(depth);
    out.put('<');
    out.put(element.name);
    for (int n = 0; n < element.attributes->getCount(); n++) {
      out.put(' ');
      out.put(element.attributes->getName(n));
      out.put("=\"");
      out.putEncoded(element.attributes->getValue(n));
      out.put('"');
    }
    out.put('>');
    if (firstChild[node] >= 0) {
      out.put(kLineEnd);
      node = firstChild[node];
      depth++;
      continue;
    }
    out.putEncoded(element.value);
    out.put("</");
    out.put(element.name);
    out.put('>');
    out.put(kLineEnd);
    // Close every element whose last child this was.
    while (nextSibling[node] < 0 && elements[node].parent >= 0) {
      node = elements[node].parent;
      depth--;
      out.indent(depth);
      out.put("</");
      out.put(elements[node].name);
      out.put('>');
      out.put(kLineEnd);
    }
    node = nextSibling[node];
  }
  out.flush();
  std::free(links);
  int closed = file.close();
  return out.hasFailed() || closed != 0 ? 1 : 0;
}

}  // namespace QUtils
