// wxRTFCallback: receives what RichTextReader finds in an RTF document and
// rebuilds it in a wxRichTextCtrl: paragraphs, bold, italic, underline,
// alignment, left indent and the base font size, optionally all in one
// text colour.
//
// Text is gathered and appended at the end of the control under the
// styles in force whenever formatting changes. Styles are begun and ended on
// the control's style stack; an end always removes the style begun last, as
// the reader's keywords expect. A paragraph's alignment and indent are
// those in force when its last text arrived; the control itself would give
// them to the paragraph that the next new line ends.
//
// Use: make the control (hidden), give it to the callback, set a text
// colour if the page has a theme, prepare(), hand the callback to the
// reader, convert, show the control. The control isn't owned and must
// outlive the conversion. GUI thread only.
#ifndef QLUX_FRONTENDS_GUI_RTF_CALLBACK_H_
#define QLUX_FRONTENDS_GUI_RTF_CALLBACK_H_

#include <wx/colour.h>
#include <wx/richtext/richtextctrl.h>

#include <string>

#include "frontends/console/rich_text.h"

class wxRTFCallback : public RichTextCallback {
 public:
  explicit wxRTFCallback(wxRichTextCtrl* target = nullptr);

  void setControl(wxRichTextCtrl* target) { control = target; }
  // Clears the open styles and the pending paragraphs, takes the base font
  // size from the control, and begins the text colour if one is set.
  void prepare();
  // The base colour of all text; begun on the control at once.
  virtual void setTextColour(const wxColour& colour);

  void onText(const char* text) override;
  void endParagraph() override;
  void setStyle(int which, bool on) override;
  void setFontSize(int size) override;
  void setAlignment(int alignment) override;
  void resetFormat() override;
  void setLeftIndent(int tenths) override;
  void finishText() override;

 private:
  // Appends the gathered text at the end of the control and empties it.
  void flush();
  // Ends the last paragraph and begins a new one.
  void newParagraph();
  // Gives the last paragraph the paragraph part of the styles in force.
  void styleLastParagraph();
  void pinParagraph(wxRichTextParagraph* paragraph, const wxRichTextAttr& style);
  // The paragraph `back` places before the last; null if there is none.
  wxRichTextParagraph* paragraphFromEnd(size_t back) const;

  // The reader passes text a byte at a time, so a multi-byte character only
  // becomes whole here; it is converted when it goes into the control.
  std::string pendingText;
  wxColour textColour;
  bool hasColour;
  bool alignmentOpen;
  int styleFlags;  // 1 bold, 2 italic, 4 underline
  int baseFontSize;
  bool indentOpen;
  int pendingNewlines;
  wxRichTextCtrl* control;
};

#endif  // QLUX_FRONTENDS_GUI_RTF_CALLBACK_H_
