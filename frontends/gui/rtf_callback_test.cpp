// Tests of the RTF display: paragraphs, character styles, alignment, colour
// and font size.
#include "frontends/gui/rtf_callback.h"

#include <gtest/gtest.h>

#include "frontends/gui/gui_test_display.h"

namespace {

class RTFCallbackTest : public GuiWindowTest {
 protected:
  // Fills a fresh control through the reader, as the page builder does.
  wxRichTextCtrl* fill(const char* rtf, const wxColour& colour = wxNullColour) {
    wxRichTextCtrl* control = new wxRichTextCtrl(panel, wxID_ANY, "", wxPoint(0, 0), wxSize(400, 300),
                                                 wxVSCROLL | wxRE_MULTILINE | wxRE_READONLY);
    control->Hide();
    wxRTFCallback callback(control);
    if (colour.IsOk()) callback.setTextColour(colour);
    callback.prepare();
    RichTextReader reader;
    reader.setCallback(&callback);
    converted = reader.convert(rtf, kRichTextPlain, 0) != nullptr;
    control->Show();
    return control;
  }

  wxRichTextAttr styleAt(wxRichTextCtrl* control, long position) {
    wxRichTextAttr attr;
    control->GetStyle(position, attr);
    return attr;
  }

  bool converted = false;
};

TEST_F(RTFCallbackTest, ParagraphsAndCharacterStyles) {
  wxRichTextCtrl* control = fill("{\\rtf1{\\fonttbl{\\f0 Arial;}}Plain \\b bold\\b0  \\i it\\i0  \\ul u\\ulnone\\par "
                                 "\\qc Centre\\par\\pard\\li1134 Indented\\par\\par End}");
  ASSERT_TRUE(converted);
  EXPECT_EQ("Plain bold it u\nCentre\nIndented\n\nEnd", control->GetValue());
  EXPECT_EQ(5, control->GetNumberOfLines());

  wxRichTextAttr plain = styleAt(control, 2);
  EXPECT_NE(wxFONTWEIGHT_BOLD, plain.GetFontWeight());
  EXPECT_NE(wxFONTSTYLE_ITALIC, plain.GetFontStyle());
  EXPECT_FALSE(plain.GetFontUnderlined());
  EXPECT_EQ(wxFONTWEIGHT_BOLD, styleAt(control, 7).GetFontWeight());
  wxRichTextAttr italic = styleAt(control, 11);
  EXPECT_EQ(wxFONTSTYLE_ITALIC, italic.GetFontStyle());
  EXPECT_NE(wxFONTWEIGHT_BOLD, italic.GetFontWeight());
  EXPECT_TRUE(styleAt(control, 14).GetFontUnderlined());

  // Each paragraph has the alignment in force at its own text, not the
  // one of the paragraph after it.
  EXPECT_NE(wxTEXT_ALIGNMENT_CENTRE, styleAt(control, 2).GetAlignment());
  EXPECT_EQ(wxTEXT_ALIGNMENT_CENTRE, styleAt(control, 17).GetAlignment());
  wxRichTextAttr indented = styleAt(control, 24);
  EXPECT_EQ(200, indented.GetLeftIndent());  // 1134 twips in tenths of a millimetre
  EXPECT_NE(wxTEXT_ALIGNMENT_CENTRE, indented.GetAlignment());
  EXPECT_FALSE(indented.GetFontUnderlined());
  EXPECT_EQ(0, styleAt(control, 16).GetLeftIndent());
}

TEST_F(RTFCallbackTest, RightAndJustifiedParagraphs) {
  wxRichTextCtrl* control = fill("{\\rtf1\\qr Right\\par\\qj Justified\\par\\pard Left}");
  ASSERT_TRUE(converted);
  EXPECT_EQ("Right\nJustified\nLeft", control->GetValue());
  EXPECT_EQ(wxTEXT_ALIGNMENT_RIGHT, styleAt(control, 1).GetAlignment());
  EXPECT_EQ(wxTEXT_ALIGNMENT_JUSTIFIED, styleAt(control, 8).GetAlignment());
  EXPECT_EQ(wxTEXT_ALIGNMENT_LEFT, styleAt(control, 17).GetAlignment());
}

TEST_F(RTFCallbackTest, ColourAndFontSize) {
  wxRichTextCtrl* control = fill("{\\rtf1 One \\b two\\b0  \\pard three}", wxColour(0, 128, 0));
  ASSERT_TRUE(converted);
  EXPECT_EQ("One two three", control->GetValue());
  for (long position : {1L, 5L, 9L}) EXPECT_EQ(wxColour(0, 128, 0), styleAt(control, position).GetTextColour());

  wxRTFCallback callback(control);
  int base = control->GetFont().GetPointSize();
  callback.prepare();
  callback.setFontSize(base + 6);
  EXPECT_EQ(base + 6, control->GetFont().GetPointSize());
  callback.setFontSize(0);
  EXPECT_EQ(base, control->GetFont().GetPointSize());
}

}  // namespace
