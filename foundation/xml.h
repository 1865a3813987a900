// PXML: the system's own small XML reader and writer.
//
// A document is a flat array of elements in document order; each element
// knows its own index and its parent's, so a parent always stands before its
// children and an index never changes once made. -1 means "no element".
//
// The reader is deliberately tolerant and never fails: a closing tag closes
// the innermost open element whatever name it carries, text is kept only on
// an element without children (mixed content is lost), an unclosed document
// keeps what was made, and reading stops at the close of the first top-level
// element. Only the five predefined entities are decoded. Bytes pass through
// unchanged; encodings are never looked at.
//
// The writer puts each element on its own line, indented one space per
// level, with no declaration and no self-closing tags.
//
// Texts returned by the accessors belong to the document. One thread at a
// time on a document.
#ifndef QLUX_FOUNDATION_XML_H_
#define QLUX_FOUNDATION_XML_H_

#include <cstdint>

#include "foundation/lists.h"
#include "foundation/string_pool.h"
#include "foundation/stream.h"

namespace QUtils {

// One attribute: a name and a value, both texts in `pool`.
struct PXMLAttribute {
  char* name;
  char* value;
  PStringPool* pool;
};

// The attributes of one element in source order, with the pool that owns
// their texts. Names are matched without regard to ASCII case, searching
// from the last entry to the first, so a later attribute hides an earlier
// one of the same name.
class PXMLAttributes {
 public:
  PXMLAttributes() : list(20) {}
  PXMLAttributes(const PXMLAttributes&) = delete;
  PXMLAttributes& operator=(const PXMLAttributes&) = delete;

  // Appends an entry; a null value is kept as null.
  void add(const char* name, const char* value);
  // Appends an entry whose value is copied from `length` bytes at `value`
  // with entity references decoded.
  void addDecoded(const char* name, int nameLength, const char* value, int length);
  // Replaces the value of the entry find() gives, or appends one.
  void set(const char* name, const char* value);
  // The place of the last entry of that name, or -1.
  int find(const char* name) const;

  int getCount() const { return list.getCount(); }
  const char* getName(int n) const;
  const char* getValue(int n) const;

 private:
  PList<PXMLAttribute> list;
  PStringPool pool;
};

// One element. Plain data: the document owns and frees all of it.
struct PXMLElement {
  PXMLAttributes* attributes = nullptr;  // made for every element
  char* value = nullptr;  // null after children, or while unclosed
  char* name = nullptr;
  int32_t index = -1;
  int32_t parent = -1;
  int32_t valueLength = 0;
};

class PXML {
 public:
  PXML();
  PXML(const PXML&) = delete;
  PXML& operator=(const PXML&) = delete;
  virtual ~PXML();
  // A hook for walkers; the document itself never calls it.
  virtual int visitElement(int index) { return 0; }

  // Opens the stream unless it is open, reads the rest of it, parses it and
  // closes it. Gives 0; 1 if it can't be opened; the stream's code if the
  // read fails; -3 if fewer bytes came than the stream holds.
  int load(PStream* stream);
  // Reads a file by its UTF-8 name, shared for reading. Gives the file
  // layer's code if it can't be opened, otherwise as load(stream).
  int load(const char* fileName);
  // Parses text up to its first NUL, adding to the elements already there.
  // Always 0: malformed text yields what was read before the fault.
  int parse(const char* text);

  // Writes the document. Gives 0; -1 if the file can't be made; 1 if a
  // write fails. The file is closed in any case.
  int save(const char* fileName);

  // Searches compare names with case. The first element of exactly that
  // name with an index above `after` (-1 for the start), at any depth.
  int findNext(const char* name, int after) const;
  // The same among the direct children of `parent` (-1: top level).
  int findNextChild(int parent, const char* name, int after) const;
  // A forgiving path search. The path's segments are split at '/', a
  // leading '/' skipped. Starting from the parent of `start` (or the top
  // level for a negative start), each segment takes the first child of the
  // current element above `start` whose name begins with the segment; an
  // unmatched segment is passed over. Gives the last segment's match or -1.
  // An empty segment, as behind a trailing '/', matches any name. Each match
  // is appended to `trail` if one is given.
  int findPath(const char* path, int start, PList<int>* trail = nullptr) const;
  // A strict path search below `parent` (-1: top level): every segment must
  // equal a child's whole name, the first such child wins; -1 on a miss.
  int findPathFrom(const char* path, int parent) const;
  // Appends the direct children of `parent` in document order; gives how
  // many were appended.
  int getChildren(int parent, PList<int>* list) const;

  // Accessors: null, 0 or -1 for an index out of range.
  int getCount() const { return elements.getCount(); }
  const char* getName(int index) const;
  const char* getValue(int index) const;
  int getValueLength(int index) const;
  int getParent(int index) const;
  // The attribute's value or null; names are matched without ASCII case,
  // and of two of one name the later wins.
  const char* getAttribute(int index, const char* name) const;
  int getAttributeCount(int index) const;
  const char* getAttributeName(int index, int n) const;
  const char* getAttributeValue(int index, int n) const;

  // Sets an attribute, replacing what getAttribute would find. -1 for an
  // index out of range, else 0.
  int setAttribute(int index, const char* name, const char* value);
  // Makes sure `path` exists below `parent` and gives its last element a
  // copy of `value` (null stays null). Existing children of a segment's
  // exact name are reused, except that with `always` set the last segment
  // always makes a new element. Elements made on the way get an empty
  // value. Empty segments are passed over. Gives the last element's index,
  // or -1 for a bad parent or a path without segments.
  int setPath(int parent, const char* path, const char* value, int always);

 private:
  bool valid(int index) const { return index >= 0 && index < elements.getCount(); }
  int addElement(const char* name, int nameLength, int parent);
  void setValue(int index, const char* value, int length);
  void parseTag(int index, const char* tag, int length);
  int childNamed(int parent, const char* name, int length) const;
  int readStream(PStream* stream);

  Table<PXMLElement> elements;
};

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_XML_H_
