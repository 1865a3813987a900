// The body of wxRTFCallback (rtf_callback.h): the RTF reader's findings
// turned into styled paragraphs of a wxRichTextCtrl.
#include "frontends/gui/rtf_callback.h"

#include <wx/strconv.h>

namespace {

const int kStyleBits[3] = {1, 2, 4};  // bold, italic, underline

}  // namespace

wxRTFCallback::wxRTFCallback(wxRichTextCtrl* target)
    : hasColour(false),
      alignmentOpen(false),
      styleFlags(0),
      baseFontSize(0),
      indentOpen(false),
      pendingNewlines(0),
      control(target) {}

void wxRTFCallback::prepare() {
  alignmentOpen = false;
  styleFlags = 0;
  indentOpen = false;
  pendingNewlines = 0;
  if (!control) return;
  baseFontSize = control->GetFont().GetPointSize();
  if (hasColour) control->BeginTextColour(textColour);
}

void wxRTFCallback::setTextColour(const wxColour& colour) {
  textColour = colour;
  hasColour = true;
  if (control) control->BeginTextColour(textColour);
}

void wxRTFCallback::flush() {
  if (pendingText.empty()) return;
  if (control) {
    // The reader gives UTF-8. Bytes that aren't (a document that holds
    // raw bytes of its code page) are taken as Latin-1 rather than dropped.
    wxString text = wxString::FromUTF8(pendingText.c_str());
    if (text.empty()) text = wxString(pendingText.c_str(), wxConvISO8859_1);
    // The caret is already at the end: only this callback writes while the
    // control is hidden. Moving it would reset the style stack's default
    // style to the style found at the caret.
    control->WriteText(text);
    // The paragraph being written takes the paragraph style in force now, so
    // it ends with the style in force at its last text, before its "\par".
    styleLastParagraph();
  }
  pendingText.clear();
}

wxRichTextParagraph* wxRTFCallback::paragraphFromEnd(size_t back) const {
  wxRichTextParagraphLayoutBox* box = control->GetFocusObject();
  size_t count = box ? box->GetChildCount() : 0;
  if (back >= count) return nullptr;
  return wxDynamicCast(box->GetChild(count - 1 - back), wxRichTextParagraph);
}

void wxRTFCallback::pinParagraph(wxRichTextParagraph* paragraph, const wxRichTextAttr& style) {
  if (!paragraph) return;
  control->SetStyleEx(paragraph->GetRange(), style,
                      wxRICHTEXT_SETSTYLE_PARAGRAPHS_ONLY | wxRICHTEXT_SETSTYLE_RESET);
}

void wxRTFCallback::styleLastParagraph() {
  wxRichTextAttr paragraphStyle;
  wxRichTextAttr characterStyle;
  wxRichTextSplitParaCharStyles(control->GetDefaultStyleEx(), paragraphStyle, characterStyle);
  pinParagraph(paragraphFromEnd(0), paragraphStyle);
}

void wxRTFCallback::newParagraph() {
  // The control hands the paragraph style in force to the paragraph that a
  // new line ends, not to the one it begins; the ended one keeps its own.
  wxRichTextParagraph* ended = paragraphFromEnd(0);
  wxRichTextAttr endedStyle;
  if (ended) endedStyle = ended->GetAttributes();
  control->Newline();
  if (ended) pinParagraph(paragraphFromEnd(1), endedStyle);
  styleLastParagraph();
}

void wxRTFCallback::onText(const char* text) {
  while (pendingNewlines != 0) {
    if (control) newParagraph();
    pendingNewlines--;
  }
  pendingText += text;
}

void wxRTFCallback::endParagraph() {
  flush();
  if (pendingNewlines != 0 && control) newParagraph();
  pendingNewlines = 1;
}

void wxRTFCallback::setStyle(int which, bool on) {
  flush();
  if (which < 0 || which > 2) return;
  if (on) {
    if (control && which == 0) control->BeginBold();
    if (control && which == 1) control->BeginItalic();
    if (control && which == 2) control->BeginUnderline();
    styleFlags |= kStyleBits[which];
  } else {
    if (control) control->EndStyle();
    styleFlags &= ~kStyleBits[which];
  }
}

void wxRTFCallback::setFontSize(int size) {
  flush();
  if (!control) return;
  int points = size != 0 ? size : baseFontSize;
  if (points <= 0) return;
  wxFont font = control->GetFont();
  font.SetPointSize(points);
  control->SetFont(font);
}

void wxRTFCallback::setAlignment(int alignment) {
  flush();
  wxTextAttrAlignment value = wxTEXT_ALIGNMENT_LEFT;
  if (alignment == 1) value = wxTEXT_ALIGNMENT_CENTRE;
  if (alignment == 2) value = wxTEXT_ALIGNMENT_RIGHT;
  if (alignment == 3) value = wxTEXT_ALIGNMENT_JUSTIFIED;
  if (control) {
    if (alignmentOpen) control->EndStyle();
    control->BeginAlignment(value);
  }
  alignmentOpen = true;
}

void wxRTFCallback::setLeftIndent(int tenths) {
  indentOpen = true;
  if (control) control->BeginLeftIndent(tenths, 0);
}

void wxRTFCallback::resetFormat() {
  flush();
  setAlignment(0);
  if (indentOpen) {
    if (control) control->EndStyle();
    indentOpen = false;
  }
  for (int which = 0; which < 3; which++) {
    if (styleFlags & kStyleBits[which]) {
      if (control) control->EndStyle();
      styleFlags &= ~kStyleBits[which];
    }
  }
  if (hasColour && control) control->BeginTextColour(textColour);
  setFontSize(0);
}

void wxRTFCallback::finishText() { flush(); }
