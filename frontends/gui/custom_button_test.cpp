// Tests of the self-drawn buttons: accelerators, colours by state, and
// clicks by key and mouse.
#include "frontends/gui/custom_button.h"

#include <gtest/gtest.h>

#include <cstring>

#include "frontends/gui/gui_test_display.h"

namespace {

TEST(AcceleratorLabelTest, SplitsAtTheFirstAmpersand) {
  AcceleratorLabel plain = splitAcceleratorLabel("Next");
  EXPECT_FALSE(plain.hasAccelerator);
  EXPECT_EQ("Next", plain.label);
  EXPECT_TRUE(plain.before.empty() && plain.letter.empty() && plain.after.empty());

  AcceleratorLabel inner = splitAcceleratorLabel("Sa&ve && go");
  EXPECT_TRUE(inner.hasAccelerator);
  EXPECT_EQ("Sa", inner.before);
  EXPECT_EQ("v", inner.letter);
  EXPECT_EQ("e && go", inner.after);
  EXPECT_EQ("Save && go", inner.label);

  AcceleratorLabel trailing = splitAcceleratorLabel("End&");
  EXPECT_TRUE(trailing.hasAccelerator);
  EXPECT_EQ("End", trailing.label);
  EXPECT_EQ("", trailing.letter);
}

class CustomButtonTest : public GuiWindowTest {
 protected:
  void SetUp() override {
    GuiWindowTest::SetUp();
    if (IsSkipped()) return;
    panel->SetFont(wxFont(wxFontInfo(16).Bold()));
    panel->Bind(wxEVT_BUTTON, [this](wxCommandEvent& event) {
      clicks++;
      clickedId = event.GetId();
    });
    panel->Bind(wxEVT_KEY_DOWN, [this](wxKeyEvent& event) { keysAtPage++; });
  }

  wxDialogButton* makeButton(const wxString& label) {
    const uint32_t active[2] = {0x00FF0000u, 0x0000FFFFu};  // blue background, yellow text
    wxDialogButton* button =
        new wxDialogButton(panel, 77, label, wxPoint(10, 10), wxSize(120, 40), 0x0000FF00u, active, wxTAB_TRAVERSAL);
    button->SetBackgroundColour(*wxWHITE);
    button->SetForegroundColour(*wxRED);
    return button;
  }

  void press(wxWindow* window, int key, bool alt = false) {
    wxKeyEvent event(wxEVT_KEY_DOWN);
    event.m_keyCode = key;
    event.SetAltDown(alt);
    event.SetEventObject(window);
    window->GetEventHandler()->ProcessEvent(event);
  }

  void mouse(wxWindow* window, wxEventType type, bool leftDown = false) {
    wxMouseEvent event(type);
    event.SetLeftDown(leftDown);
    event.SetEventObject(window);
    window->GetEventHandler()->ProcessEvent(event);
  }

  wxImage picture(wxCustomButton* button) {
    return drawToImage(120, 40, [button](wxDC& dc) { button->render(dc); });
  }

  int clicks = 0;
  int clickedId = 0;
  int keysAtPage = 0;
};

TEST_F(CustomButtonTest, ColoursFollowTheState) {
  wxDialogButton* button = makeButton("MMM");
  wxImage idle = picture(button);
  EXPECT_EQ(*wxWHITE, pixelAt(idle, 1, 1));
  EXPECT_TRUE(hasPixelNear(idle, *wxRED, 30));

  // Hovered: filled with the active background, text in the active foreground.
  mouse(button, wxEVT_ENTER_WINDOW);
  wxImage hovered = picture(button);
  EXPECT_EQ(wxColour(0, 0, 255), pixelAt(hovered, 1, 1));
  EXPECT_TRUE(hasPixelNear(hovered, wxColour(255, 255, 0), 30));
  EXPECT_FALSE(hasPixelNear(hovered, *wxRED, 30));

  // Pressed: framed in the active colour, not filled.
  mouse(button, wxEVT_LEFT_DOWN);
  wxImage pressed = picture(button);
  EXPECT_EQ(wxColour(0, 0, 255), pixelAt(pressed, 1, 1));
  EXPECT_EQ(*wxWHITE, pixelAt(pressed, 60, 6));
  mouse(button, wxEVT_LEAVE_WINDOW);

  // Disabled: no frame or fill, text in the disabled colour.
  EXPECT_FALSE(button->Enable(false));
  EXPECT_FALSE(button->isEnabled());
  mouse(button, wxEVT_ENTER_WINDOW);
  wxImage disabled = picture(button);
  EXPECT_EQ(*wxWHITE, pixelAt(disabled, 1, 1));
  EXPECT_TRUE(hasPixelNear(disabled, wxColour(0, 255, 0), 30));
  EXPECT_FALSE(hasPixelNear(disabled, *wxRED, 30));
  EXPECT_TRUE(button->Enable(true));
}

TEST_F(CustomButtonTest, KeysAndMouseFireClicksAtTheParent) {
  wxDialogButton* button = makeButton("&Next");
  press(button, WXK_SPACE);
  EXPECT_EQ(1, clicks);
  EXPECT_EQ(77, clickedId);
  EXPECT_EQ(0, keysAtPage);

  // Enter belongs to the page.
  press(button, WXK_RETURN);
  EXPECT_EQ(1, clicks);
  EXPECT_EQ(1, keysAtPage);

  // A release fires even when the press began elsewhere.
  mouse(button, wxEVT_LEFT_UP);
  EXPECT_EQ(2, clicks);
  mouse(button, wxEVT_LEFT_DOWN, true);
  mouse(button, wxEVT_LEFT_UP);
  EXPECT_EQ(3, clicks);
}

TEST_F(CustomButtonTest, AltShowsTheAcceleratorUntilTheNextButton) {
  wxDialogButton* withAccelerator = makeButton("&Next");
  wxDialogButton* without = makeButton("Next");
  wxImage plainWith = picture(withAccelerator);
  wxImage plainWithout = picture(without);

  press(withAccelerator, 'X', true);
  EXPECT_TRUE(wxCustomButton::altDown);
  EXPECT_NE(0, memcmp(plainWith.GetData(), picture(withAccelerator).GetData(), 120 * 40 * 3));
  EXPECT_EQ(0, memcmp(plainWithout.GetData(), picture(without).GetData(), 120 * 40 * 3));

  // Key-up changes nothing; a key without Alt, or a new button, does.
  wxKeyEvent up(wxEVT_KEY_UP);
  withAccelerator->GetEventHandler()->ProcessEvent(up);
  EXPECT_TRUE(wxCustomButton::altDown);
  makeButton("Other");
  EXPECT_FALSE(wxCustomButton::altDown);
  EXPECT_EQ(0, memcmp(plainWith.GetData(), picture(withAccelerator).GetData(), 120 * 40 * 3));
}

TEST_F(CustomButtonTest, SetLabelKeepsWhetherAnAcceleratorShows) {
  wxDialogButton* button = makeButton("Back");
  button->SetLabel("&Finish");
  EXPECT_EQ("Finish", button->labelParts().label);
  // Made without an accelerator, so Alt still adds no underline.
  wxImage relabelled = picture(button);
  press(button, 'X', true);
  EXPECT_EQ(0, memcmp(relabelled.GetData(), picture(button).GetData(), 120 * 40 * 3));
}

TEST_F(CustomButtonTest, LinkButtonShowsFocusInTheActiveColour) {
  const uint32_t active[2] = {0x00FF0000u, 0x0000FFFFu};
  wxLinkStyledButton* link =
      new wxLinkStyledButton(panel, 5, "More", wxPoint(10, 60), wxSize(120, 40), 0x0000FF00u, active, 0);
  panel->SetBackgroundColour(*wxWHITE);
  link->SetForegroundColour(*wxRED);
  wxImage idle = picture(link);
  EXPECT_EQ(*wxWHITE, pixelAt(idle, 1, 1));
  EXPECT_TRUE(hasPixelNear(idle, *wxRED, 30));
  wxFocusEvent focus(wxEVT_SET_FOCUS);
  link->GetEventHandler()->ProcessEvent(focus);
  EXPECT_TRUE(hasPixelNear(picture(link), wxColour(255, 255, 0), 30));
}

}  // namespace
