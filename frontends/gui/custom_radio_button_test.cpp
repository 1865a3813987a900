// Tests of the self-drawn radio button: its label's colour and place, and a
// click on the label.
#include "frontends/gui/custom_radio_button.h"

#include <gtest/gtest.h>

#include "frontends/gui/gui_test_display.h"

namespace {

class CustomRadioButtonTest : public GuiWindowTest {};

TEST_F(CustomRadioButtonTest, LabelIsColouredAndFollowsTheMark) {
  wxCustomRadioButton* button = new wxCustomRadioButton(frame, panel, 41, "An option with a long label",
                                                        wxPoint(10, 20), wxDefaultSize, wxRB_GROUP, *wxRED);
  wxStaticText* label = button->labelWindow();
  ASSERT_NE(nullptr, label);
  EXPECT_EQ("An option with a long label", label->GetLabel());
  EXPECT_EQ("", button->GetLabel());
  EXPECT_EQ(*wxRED, label->GetForegroundColour());
  // Measured: wide enough for the mark, a gap and the text.
  EXPECT_GT(button->GetSize().GetWidth(), label->GetSize().GetWidth());
  EXPECT_EQ(wxPoint(10, 20) + button->labelOffset(), label->GetPosition());

  button->Move(100, 150);
  EXPECT_EQ(wxPoint(100, 150) + button->labelOffset(), label->GetPosition());

  button->SetToolTip("Explains it");
  ASSERT_NE(nullptr, label->GetToolTip());
  EXPECT_EQ("Explains it", label->GetToolTipText());
  EXPECT_EQ("Explains it", button->GetToolTipText());

  button->Hide();
  EXPECT_FALSE(label->IsShown());
}

TEST_F(CustomRadioButtonTest, ClickOnTheLabelSelectsAndTellsTheNamedWindow) {
  wxCustomRadioButton* first =
      new wxCustomRadioButton(frame, panel, 41, "First", wxPoint(10, 20), wxDefaultSize, wxRB_GROUP, wxNullColour);
  wxCustomRadioButton* second =
      new wxCustomRadioButton(frame, panel, 42, "Second", wxPoint(10, 50), wxDefaultSize, 0, wxNullColour);
  first->SetValue(true);
  int selected = 0;
  frame->Bind(wxEVT_RADIOBUTTON, [&selected](wxCommandEvent& event) { selected = event.GetId(); });

  wxMouseEvent click(wxEVT_LEFT_UP);
  click.SetId(42);
  click.SetEventObject(second->labelWindow());
  second->labelWindow()->GetEventHandler()->ProcessEvent(click);
  EXPECT_TRUE(second->GetValue());
  EXPECT_FALSE(first->GetValue());
  EXPECT_EQ(42, selected);

  // Destroying the button takes its label along.
  int children = static_cast<int>(panel->GetChildren().GetCount());
  second->Destroy();
  EXPECT_EQ(children - 2, static_cast<int>(panel->GetChildren().GetCount()));
}

}  // namespace
