// The body of the self-drawn buttons (custom_button.h): the state machine of
// focus, hover and press, and the drawing of each kind of button.
#include "frontends/gui/custom_button.h"

#include <wx/dcbuffer.h>
#include <wx/settings.h>

#include <algorithm>

#include "frontends/gui/colour_tools.h"

bool wxCustomButton::altDown = false;

AcceleratorLabel splitAcceleratorLabel(const wxString& text) {
  AcceleratorLabel parts;
  int mark = text.Find('&');
  if (mark == wxNOT_FOUND) {
    parts.label = text;
    return parts;
  }
  parts.hasAccelerator = true;
  parts.before = text.Left(mark);
  parts.letter = text.Mid(mark + 1, 1);
  parts.after = text.Mid(mark + 2);
  parts.label = parts.before + parts.letter + parts.after;
  return parts;
}

wxCustomButton::wxCustomButton(wxWindow* parentWindow, wxWindowID windowId, const wxString& labelText,
                               const wxPoint& buttonPosition, const wxSize& buttonSize, uint32_t disabled,
                               const uint32_t* activeColours, long style)
    : wxPanel(parentWindow, windowId, buttonPosition, buttonSize, style, "panel"),
      hasFocus(false),
      hovered(false),
      pressed(false),
      position(buttonPosition),
      size(buttonSize),
      parts(splitAcceleratorLabel(labelText)),
      enabled(true),
      disabledColour(colourFromNumber(disabled)),
      parent(parentWindow),
      id(GetId()) {
  hasAccelerator = parts.hasAccelerator;
  if (activeColours) {
    activeBackground = colourFromNumber(activeColours[0]);
    activeForeground = colourFromNumber(activeColours[1]);
  }
  altDown = false;
  // Painting is buffered and erasing off, so a state change doesn't flicker.
  SetBackgroundStyle(wxBG_STYLE_PAINT);
  Bind(wxEVT_PAINT, &wxCustomButton::onPaint, this);
  Bind(wxEVT_SET_FOCUS, &wxCustomButton::onFocus, this);
  Bind(wxEVT_KILL_FOCUS, &wxCustomButton::onKillFocus, this);
  Bind(wxEVT_ENTER_WINDOW, &wxCustomButton::onEnter, this);
  Bind(wxEVT_LEAVE_WINDOW, &wxCustomButton::onLeave, this);
  Bind(wxEVT_LEFT_DOWN, &wxCustomButton::onLeftDown, this);
  Bind(wxEVT_LEFT_UP, &wxCustomButton::onLeftUp, this);
  Bind(wxEVT_KEY_DOWN, &wxCustomButton::onKeyDown, this);
  Bind(wxEVT_KEY_UP, &wxCustomButton::onKeyUp, this);
}

bool wxCustomButton::Enable(bool enable) {
  enabled = enable;
  wxPanel::Enable(enable);
  redraw();
  return enabled;
}

void wxCustomButton::SetLabel(const wxString& text) {
  bool kept = hasAccelerator;
  parts = splitAcceleratorLabel(text);
  hasAccelerator = kept;
  redraw();
}

void wxCustomButton::render(wxDC&) {}

wxColour wxCustomButton::activeBackgroundOr(const wxColour& fallback) const {
  return activeBackground.IsOk() ? activeBackground : fallback;
}

wxColour wxCustomButton::activeForegroundOr(const wxColour& fallback) const {
  return activeForeground.IsOk() ? activeForeground : fallback;
}

wxFont wxCustomButton::labelFont() const {
  if (parent) return parent->GetFont();
  return wxSystemSettings::GetFont(wxSYS_DEFAULT_GUI_FONT);
}

void wxCustomButton::drawCentred(wxDC& dc, const wxString& text) {
  wxCoord textWidth = 0;
  wxCoord textHeight = 0;
  dc.GetTextExtent(text, &textWidth, &textHeight);
  dc.DrawText(text, (size.GetWidth() - textWidth) / 2, (size.GetHeight() - textHeight) / 2);
}

void wxCustomButton::redraw() {
  Refresh(true);
  Update();
}

void wxCustomButton::fireClick() {
  if (!parent) return;
  wxCommandEvent click(wxEVT_BUTTON, id);
  click.SetEventObject(this);
  parent->GetEventHandler()->ProcessEvent(click);
}

void wxCustomButton::onPaint(wxPaintEvent&) {
  wxAutoBufferedPaintDC dc(this);
  render(dc);
}

void wxCustomButton::onFocus(wxFocusEvent& event) {
  hasFocus = true;
  redraw();
  event.Skip();
}

void wxCustomButton::onKillFocus(wxFocusEvent& event) {
  hasFocus = false;
  redraw();
  event.Skip();
}

void wxCustomButton::onEnter(wxMouseEvent& event) {
  hovered = true;
  pressed = event.LeftIsDown();
  redraw();
}

void wxCustomButton::onLeave(wxMouseEvent&) {
  hovered = false;
  pressed = false;
  redraw();
}

void wxCustomButton::onLeftDown(wxMouseEvent& event) {
  if (!pressed) {
    pressed = true;
    redraw();
  }
  // The default handling gives the button the focus.
  event.Skip();
}

void wxCustomButton::onLeftUp(wxMouseEvent&) {
  // A press that began elsewhere counts as well. The click goes last: its
  // handler may end the page and this button with it.
  pressed = false;
  redraw();
  fireClick();
}

void wxCustomButton::onKeyDown(wxKeyEvent& event) {
  if (event.AltDown() != altDown) {
    altDown = event.AltDown();
    if (parent) parent->Refresh();
  }
  switch (event.GetKeyCode()) {
    case WXK_SPACE:
      fireClick();
      return;
    case WXK_LEFT:
    case WXK_UP:
      Navigate(wxNavigationKeyEvent::IsBackward);
      return;
    case WXK_RIGHT:
    case WXK_DOWN:
      Navigate(wxNavigationKeyEvent::IsForward);
      return;
    default:
      // Enter, Escape and the rest belong to the page.
      event.Skip();
      event.ResumePropagation(wxEVENT_PROPAGATE_MAX);
      return;
  }
}

void wxCustomButton::onKeyUp(wxKeyEvent&) {}

void wxDialogButton::render(wxDC& dc) {
  wxColour background = GetBackgroundColour();
  wxColour foreground = GetForegroundColour();
  wxColour active = activeBackgroundOr(foreground);
  dc.SetBackground(wxBrush(background));
  dc.Clear();
  if (enabled && (hasFocus || pressed)) {
    dc.SetPen(wxPen(active, pressed ? 5 : 3, wxPENSTYLE_SOLID));
  } else {
    dc.SetPen(*wxTRANSPARENT_PEN);
  }
  dc.SetBrush(wxBrush(enabled && hovered && !pressed ? active : background, wxBRUSHSTYLE_SOLID));
  dc.DrawRectangle(0, 0, size.GetWidth(), size.GetHeight());

  wxFont font = labelFont();
  dc.SetFont(font);
  if (enabled) {
    dc.SetTextForeground(hovered ? activeForegroundOr(foreground) : foreground);
  } else {
    dc.SetTextForeground(disabledColour);
  }

  // A label given without an accelerator letter has nothing to underline.
  if (!(hasAccelerator && altDown && !parts.letter.empty())) {
    drawCentred(dc, parts.label);
    return;
  }
  wxCoord labelWidth = 0, beforeWidth = 0, letterWidth = 0, afterWidth = 0;
  wxCoord labelHeight = 0, beforeHeight = 0, letterHeight = 0, afterHeight = 0;
  dc.GetTextExtent(parts.label, &labelWidth, &labelHeight);
  dc.GetTextExtent(parts.before, &beforeWidth, &beforeHeight);
  dc.GetTextExtent(parts.letter, &letterWidth, &letterHeight);
  dc.GetTextExtent(parts.after, &afterWidth, &afterHeight);
  // Parts measured apart lose their kerning; the difference goes back into
  // the gaps between them.
  int gaps = !parts.before.empty() && !parts.after.empty() ? 2 : 1;
  int extra = (labelWidth - afterWidth - letterWidth - beforeWidth) / gaps;
  int gapBefore = parts.before.empty() ? 0 : extra;
  int gapAfter = parts.after.empty() ? 0 : extra;
  int tallest = std::max(beforeHeight, std::max(letterHeight, afterHeight));
  int x = (size.GetWidth() - (afterWidth + letterWidth + beforeWidth + gapBefore + gapAfter)) / 2;
  int y = (size.GetHeight() - tallest) / 2;
  dc.DrawText(parts.before, x, y);
  wxFont underlined = font;
  underlined.SetUnderlined(true);
  dc.SetFont(underlined);
  int letterX = x + beforeWidth + gapBefore;
  dc.DrawText(parts.letter, letterX, y);
  dc.SetFont(font);
  dc.DrawText(parts.after, letterX + letterWidth + gapAfter, y);
}

void wxLinkStyledButton::render(wxDC& dc) {
  wxColour background = parent ? parent->GetBackgroundColour() : GetBackgroundColour();
  dc.SetBackground(wxBrush(background));
  dc.Clear();
  dc.SetPen(*wxTRANSPARENT_PEN);
  dc.SetBrush(wxBrush(background, wxBRUSHSTYLE_SOLID));
  dc.DrawRectangle(0, 0, size.GetWidth(), size.GetHeight());
  wxFont font = labelFont();
  font.SetUnderlined(true);
  dc.SetFont(font);
  wxColour foreground = GetForegroundColour();
  if (!enabled) {
    dc.SetTextForeground(disabledColour);
  } else if (hasFocus) {
    dc.SetTextForeground(activeForegroundOr(foreground));
  } else {
    dc.SetTextForeground(foreground);
  }
  drawCentred(dc, parts.label);
}
