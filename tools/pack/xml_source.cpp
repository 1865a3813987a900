// XmlSource (xml_source.h): expat's events turned into a tree that keeps
// each element's line, column and byte range in the template's text.
#include "tools/pack/xml_source.h"

#include <expat.h>

#include <algorithm>
#include <cstring>

#include "tools/pack/text_helpers.h"

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }


// The number of bytes the UTF-8 form of a character reference takes.
size_t referenceLength(const std::string& text, size_t at, size_t end) {
  // at: the '&'. Predefined entities are one byte; a character reference
  // is as long as its code point's UTF-8 form.
  if (at + 1 >= end || text[at + 1] != '#') return 1;
  unsigned long code = 0;
  bool hex = at + 2 < end && (text[at + 2] == 'x' || text[at + 2] == 'X');
  for (size_t i = at + (hex ? 3 : 2); i < end && text[i] != ';'; i++) {
    char c = text[i];
    int digit = c >= '0' && c <= '9' ? c - '0' : hex && c >= 'a' && c <= 'f' ? c - 'a' + 10
                                                 : hex && c >= 'A' && c <= 'F' ? c - 'A' + 10 : 0;
    code = code * (hex ? 16 : 10) + static_cast<unsigned long>(digit);
    if (code > 0x10FFFF) break;
  }
  return code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
}

}  // namespace

bool XmlSource::parse(const std::string& text) {
  source = text;
  nodes.clear();
  open.clear();
  error.clear();
  lineStarts.assign(1, 0);
  for (size_t i = 0; i < source.size(); i++) {
    if (source[i] == '\n') lineStarts.push_back(i + 1);
  }
  XML_Parser xml = XML_ParserCreate(nullptr);
  if (!xml) {
    error = "out of memory";
    return false;
  }
  parser = xml;
  XML_SetUserData(xml, this);
  XML_SetElementHandler(xml, onStart, onEnd);
  XML_SetCharacterDataHandler(xml, onText);
  bool ok = XML_Parse(xml, source.data(), static_cast<int>(source.size()), 1) == XML_STATUS_OK;
  if (!ok) {
    XML_Error code = XML_GetErrorCode(xml);
    error = XML_ErrorString(code);
    XML_Index at = XML_GetCurrentByteIndex(xml);
    errorPosition = position(at < 0 ? source.size() : static_cast<size_t>(at));
    if ((code == XML_ERROR_TAG_MISMATCH || code == XML_ERROR_NO_ELEMENTS) && !open.empty()) {
      const SourceElement& unclosed = nodes[static_cast<size_t>(open.back())];
      openElement = unclosed.name;
      openPosition = position(unclosed.begin);
    }
  }
  XML_ParserFree(xml);
  parser = nullptr;
  return ok;
}

void XmlSource::onStart(void* data, const char* name, const char** attributes) {
  XmlSource* self = static_cast<XmlSource*>(data);
  XML_Parser xml = static_cast<XML_Parser>(self->parser);
  SourceElement element;
  element.name = name;
  element.parent = self->open.empty() ? -1 : self->open.back();
  element.begin = static_cast<size_t>(XML_GetCurrentByteIndex(xml));
  size_t length = static_cast<size_t>(XML_GetCurrentByteCount(xml));
  element.contentBegin = element.begin + length;
  for (int i = 0; attributes[i]; i += 2) {
    SourceAttribute attribute;
    attribute.name = attributes[i];
    attribute.value = attributes[i + 1];
    element.attributes.push_back(attribute);
  }
  self->readAttributes(element, element.begin, length);
  int index = static_cast<int>(self->nodes.size());
  if (element.parent >= 0) {
    SourceElement& parent = self->nodes[static_cast<size_t>(element.parent)];
    parent.children.push_back(index);
    if (parent.hasText) parent.mixedText = true;
  }
  self->nodes.push_back(element);
  self->open.push_back(index);
}

void XmlSource::onEnd(void* data, const char*) {
  XmlSource* self = static_cast<XmlSource*>(data);
  XML_Parser xml = static_cast<XML_Parser>(self->parser);
  if (self->open.empty()) return;
  SourceElement& element = self->nodes[static_cast<size_t>(self->open.back())];
  self->open.pop_back();
  size_t at = static_cast<size_t>(XML_GetCurrentByteIndex(xml));
  size_t length = static_cast<size_t>(XML_GetCurrentByteCount(xml));
  if (length == 0) {
    // "<x/>": the start tag was the whole element.
    element.contentEnd = element.end = element.contentBegin;
  } else {
    element.contentEnd = at;
    element.end = at + length;
  }
}

void XmlSource::onText(void* data, const char* text, int length) {
  XmlSource* self = static_cast<XmlSource*>(data);
  if (self->open.empty()) return;
  SourceElement& element = self->nodes[static_cast<size_t>(self->open.back())];
  element.text.append(text, static_cast<size_t>(length));
  bool blank = true;
  for (int i = 0; i < length; i++) {
    if (!isBlank(text[i])) blank = false;
  }
  if (!blank) {
    element.hasText = true;
    if (!element.children.empty()) element.mixedText = true;
  }
}

// The start tag is "<name", then for each attribute blanks, the name, '=',
// blanks allowed around it, and a quoted value. Expat gives the attributes
// in the order they stand, so the offsets are zipped onto them in turn.
void XmlSource::readAttributes(SourceElement& element, size_t tagBegin, size_t tagLength) {
  size_t end = std::min(source.size(), tagBegin + tagLength);
  size_t i = tagBegin + 1;
  while (i < end && !isBlank(source[i]) && source[i] != '>' && source[i] != '/') i++;
  for (SourceAttribute& attribute : element.attributes) {
    while (i < end && isBlank(source[i])) i++;
    attribute.nameOffset = i;
    while (i < end && source[i] != '=') i++;
    i++;
    while (i < end && isBlank(source[i])) i++;
    char quote = i < end ? source[i] : '"';
    attribute.valueOffset = ++i;
    while (i < end && source[i] != quote) i++;
    attribute.valueEnd = i;
    i++;
  }
}

SourcePosition XmlSource::position(size_t offset) const {
  if (offset > source.size()) offset = source.size();
  auto next = std::upper_bound(lineStarts.begin(), lineStarts.end(), offset);
  size_t line = static_cast<size_t>(next - lineStarts.begin());  // from 1
  size_t start = lineStarts[line - 1];
  int column = 1;
  for (size_t i = start; i < offset; i++) {
    if ((static_cast<unsigned char>(source[i]) & 0xC0) != 0x80) column++;
  }
  SourcePosition where;
  where.line = static_cast<int>(line);
  where.column = column;
  return where;
}

size_t XmlSource::rawOffset(size_t begin, size_t end, size_t index) const {
  size_t decoded = 0;
  size_t i = begin;
  while (i < end && decoded < index) {
    if (source[i] == '&') {
      size_t semicolon = source.find(';', i);
      if (semicolon == std::string::npos || semicolon >= end) semicolon = end - 1;
      decoded += referenceLength(source, i, semicolon);
      i = semicolon + 1;
    } else if (source[i] == '\r' && i + 1 < end && source[i + 1] == '\n') {
      decoded++;
      i += 2;
    } else {
      decoded++;
      i++;
    }
  }
  return i;
}

SourcePosition XmlSource::valuePosition(const SourceAttribute& attribute, size_t index) const {
  return position(rawOffset(attribute.valueOffset, attribute.valueEnd, index));
}

SourcePosition XmlSource::textPosition(const SourceElement& element, size_t index) const {
  // Text that stands before the first child, or all of it in a leaf: the
  // raw stretch starts right behind the start tag.
  size_t end = element.children.empty() ? element.contentEnd : nodes[static_cast<size_t>(element.children[0])].begin;
  return position(rawOffset(element.contentBegin, end, index));
}

const SourceAttribute* XmlSource::attribute(int element, const char* name) const {
  if (element < 0 || element >= static_cast<int>(nodes.size())) return nullptr;
  const std::vector<SourceAttribute>& list = nodes[static_cast<size_t>(element)].attributes;
  for (size_t i = list.size(); i-- > 0;) {
    if (packtext::sameNoCase(list[i].name, name)) return &list[i];
  }
  return nullptr;
}
