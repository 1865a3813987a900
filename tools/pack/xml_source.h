// XmlSource: a template's text read by a strict XML parser (expat), as a
// tree that remembers where everything stands in the text. The package
// builder checks templates with it and rewrites them through it: each
// element knows the byte range it covers, so an element can be replaced in
// the text while the rest stays byte for byte as the vendor wrote it.
//
// The installer's own reader (PXML) is lenient and never fails; this one
// fails on the first fault of the XML itself, and says where, so that no
// malformed template is packed. Where the two read a well-formed document
// differently, the tree says so: `mixedText` marks text beside child
// elements, which PXML drops.
//
// Lines and columns count from 1; a column counts characters (UTF-8
// sequences), a tab as one.
#ifndef QLUX_TOOLS_PACK_XML_SOURCE_H_
#define QLUX_TOOLS_PACK_XML_SOURCE_H_

#include <string>
#include <vector>

struct SourcePosition {
  int line = 0;
  int column = 0;
};

struct SourceAttribute {
  std::string name;
  std::string value;     // with entity references decoded
  size_t nameOffset = 0;   // byte offset of the name in the text
  size_t valueOffset = 0;  // byte offset of the value's first byte (behind the quote)
  size_t valueEnd = 0;     // byte offset of the closing quote
};

struct SourceElement {
  std::string name;
  int parent = -1;
  std::vector<int> children;
  std::vector<SourceAttribute> attributes;
  std::string text;        // the character data directly inside, decoded
  size_t begin = 0;        // offset of its '<'
  size_t end = 0;          // offset just behind its end tag (or "/>")
  size_t contentBegin = 0; // offset just behind its start tag
  size_t contentEnd = 0;   // offset of its end tag ('<' of "</"); = end for "<x/>"
  bool mixedText = false;  // non-blank text beside child elements
  bool hasText = false;    // character data that isn't only blanks
};

class XmlSource {
 public:
  // Parses `text`. False with `error` and `errorPosition` set when the text
  // isn't well-formed XML; the elements read up to there stay.
  bool parse(const std::string& text);

  const std::string& text() const { return source; }
  const std::vector<SourceElement>& elements() const { return nodes; }
  int root() const { return nodes.empty() ? -1 : 0; }

  // Where a byte offset of the text stands.
  SourcePosition position(size_t offset) const;
  // Where the character at `index` of an attribute's decoded value stands.
  SourcePosition valuePosition(const SourceAttribute& attribute, size_t index) const;
  // Where the character at `index` of an element's decoded text stands.
  SourcePosition textPosition(const SourceElement& element, size_t index) const;

  // The attribute of that name (without regard to ASCII case, the last of
  // two), or null.
  const SourceAttribute* attribute(int element, const char* name) const;

  std::string error;
  SourcePosition errorPosition;
  // For an error at an end tag or at the end of the text: the element that
  // is still open there (its name and place); empty otherwise.
  std::string openElement;
  SourcePosition openPosition;

 private:
  // Offset in the text of the decoded character `index` of the raw stretch
  // [begin, end), where entity and character references count as one
  // character each.
  size_t rawOffset(size_t begin, size_t end, size_t index) const;
  void readAttributes(SourceElement& element, size_t tagBegin, size_t tagLength);

  static void onStart(void* data, const char* name, const char** attributes);
  static void onEnd(void* data, const char* name);
  static void onText(void* data, const char* text, int length);

  std::string source;
  std::vector<SourceElement> nodes;
  std::vector<int> open;  // the elements open at the parser's position
  std::vector<size_t> lineStarts;
  void* parser = nullptr;
};

#endif  // QLUX_TOOLS_PACK_XML_SOURCE_H_
