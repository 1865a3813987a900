// Fitting a label into a box: the words of the text are wrapped onto lines
// no wider than the box, and when the lines don't all fit its height, the
// last line that fits ends with an ellipsis ("…"), so that a reader sees
// the text goes on (the caller shows the whole text as a tool tip). A line
// break is only made between words; a single word wider than the box is
// broken between characters, as nothing else can show it.
//
// The measuring is the caller's: a TextMeasure gives the width of one line
// and the height of a number of lines in the font that will draw them.
// Texts are UTF-8; nothing here touches a window.
#ifndef QLUX_FRONTENDS_GUI_TEXT_FIT_H_
#define QLUX_FRONTENDS_GUI_TEXT_FIT_H_

#include <string>

class TextMeasure {
 public:
  virtual ~TextMeasure() {}
  // The width of `line` in pixels.
  virtual int width(const std::string& line) = 0;
  // The height in pixels of a block of `lines` lines.
  virtual int height(int lines) = 0;
};

// `text` with line breaks (LF) added so that no line is wider than `width`,
// cut after the last line that fits `height` with "…" at its end. A width
// below 1 leaves the lines as they are, a height below 1 keeps them all.
// Blanks at a break are dropped; the text's own line breaks stay. Sets
// `*cut` when something was left out. At least one line is always kept.
std::string fitText(const std::string& text, int width, int height, TextMeasure& measure, bool* cut);

#endif  // QLUX_FRONTENDS_GUI_TEXT_FIT_H_
