// RichTextReader: one small pass over an RTF document that turns it into
// plain text, optionally wrapped and justified for a terminal, or drives a
// RichTextCallback that rebuilds the styles in a text control.
//
// It is not a full RTF parser. It knows nineteen keywords, by prefix, and
// passes over the groups that hold data rather than text (font and colour
// tables, stylesheets, document properties, pictures, and every group
// marked as one to pass over) whole, their words included: a colour table's
// \blue0 is no bold. The text of other nested groups, which word processors
// use for runs of formatted text, is read; keywords act at every depth
// there, and no group restores the formatting of its parent.
//
// Characters beyond ASCII come out as UTF-8: a \'xx byte in the document's
// code page (\ansicpg, 1252 when the document names none), a \uN in
// Unicode, whose \ucN fallback characters (one by default) are passed over.
//
// The only failures are null input, unbalanced braces and a failed
// allocation; they give null, with no message.
//
// A document that isn't RTF (it doesn't begin with "{\rtf", after blanks and
// a byte order mark) is plain text: each of its lines is a paragraph, told
// to the callback and kept in the result as it stands, so a licence written
// as a text file keeps its line breaks.
//
// The text convert() returns belongs to the reader and lives until the next
// convert() or the reader's end. One conversion at a time.
#ifndef QLUX_FRONTENDS_CONSOLE_RICH_TEXT_H_
#define QLUX_FRONTENDS_CONSOLE_RICH_TEXT_H_

#include <cstdint>

// Receives the text and its formatting as the reader finds them.
class RichTextCallback {
 public:
  virtual ~RichTextCallback() {}
  // A stored character or piece of text, zero-terminated.
  virtual void onText(const char* text) = 0;
  virtual void endParagraph() = 0;
  // `which`: 0 bold, 1 italic, 2 underline.
  virtual void setStyle(int which, bool on) = 0;
  // Points; 0 for the control's base size.
  virtual void setFontSize(int size) = 0;
  // 0 left, 1 centre, 2 right, 3 justified.
  virtual void setAlignment(int alignment) = 0;
  // Back to a plain paragraph.
  virtual void resetFormat() = 0;
  // In tenths of a millimetre.
  virtual void setLeftIndent(int tenths) = 0;
  virtual void finishText() = 0;
};

// Modes of convert().
const int kRichTextEscapes = 0;  // styles become terminal escape sequences
const int kRichTextPlain = 1;    // styles go to the callback only
const int kRichTextConsole = 2;  // the same as kRichTextPlain

class RichTextReader {
 public:
  RichTextReader();
  RichTextReader(const RichTextReader&) = delete;
  RichTextReader& operator=(const RichTextReader&) = delete;
  ~RichTextReader();

  // Not owned; may be null.
  void setCallback(RichTextCallback* callback);
  // Converts zero-terminated RTF (or plain) text. With `wrapWidth` of 1 or
  // more every line is wrapped at that many columns and justified, except a
  // paragraph's last line. Null for null input or a damaged document.
  const char* convert(const char* data, int mode, int wrapWidth);

  // True if the text is an RTF document.
  static bool isRichText(const char* data);

 private:
  // The plain-text form of convert(), from `data` on.
  bool convertPlain(const char* data);
  // Appends `length` bytes under the depth rule; `notify` passes them to
  // onText. False only when `out` can't grow.
  bool store(const char* text, int length, bool notify);
  bool grow(int needed);
  // Acts on one control word. False only when storing failed.
  bool keyword(const char* word, bool useEscapes);
  // Stores the UTF-8 form of a character of the text; U+FFFD for a code
  // point that isn't one.
  bool storeCharacter(uint32_t codePoint);
  // The \uN of a word "uN": its character, then the fallback to pass over.
  bool unicodeCharacter(const char* number);
  // Wraps and justifies `out` into a new buffer at `width` columns.
  bool wrap(int width);
  bool wrapLine(const char* line, int length, int width);

  int inputLength;
  int outLength;
  int outCapacity;
  int groupDepth;
  int skipDepth;  // depth of the data group being passed over; 0 for none
  int codePage;   // of the \'xx bytes: \ansicpg, 1252 by default
  int fallbackLength;   // characters behind a \uN that stand in for it (\ucN)
  int fallbackLeft;     // of those, still to pass over
  uint32_t highSurrogate;  // the first half of a character beyond U+FFFF, or 0
  char* out;
  RichTextCallback* callback;
};

#endif  // QLUX_FRONTENDS_CONSOLE_RICH_TEXT_H_
