// Self-drawn buttons for pages with a colour theme.
//
// wxCustomButton holds the state of a button (focus, hover, press, enabled)
// and turns mouse and keyboard input into a button-clicked command event,
// with the button's id, sent to the event handler of its parent. It draws
// nothing itself: each derived class fills render(). wxDialogButton draws a
// framed button, wxLinkStyledButton underlined text without a frame.
//
// All colours come from the creator; nothing is taken from the system's
// theme. Every drawing uses the size given to the constructor. A label may
// mark an accelerator with "&"; its letter is shown underlined only while
// the Alt key was last seen held on a key press in any custom button.
// GUI thread only.
#ifndef QLUX_FRONTENDS_GUI_CUSTOM_BUTTON_H_
#define QLUX_FRONTENDS_GUI_CUSTOM_BUTTON_H_

#include <wx/colour.h>
#include <wx/dc.h>
#include <wx/event.h>
#include <wx/panel.h>
#include <wx/string.h>

#include <cstdint>

// A label cut at its first "&". Without one, `label` is the whole text and
// the three parts are empty.
struct AcceleratorLabel {
  bool hasAccelerator = false;
  wxString label;   // the whole label without the "&"
  wxString before;  // before the "&"
  wxString letter;  // the one character behind it
  wxString after;   // the rest
};

AcceleratorLabel splitAcceleratorLabel(const wxString& text);

class wxCustomButton : public wxPanel {
 public:
  // `activeColours` points to two numbers 0x00BBGGRR, the active background
  // and then the active foreground; null for none.
  wxCustomButton(wxWindow* parent, wxWindowID id, const wxString& label, const wxPoint& position,
                 const wxSize& size, uint32_t disabledColour, const uint32_t* activeColours, long style);

  // Stores the state, refreshes and redraws at once. Returns the new state.
  bool Enable(bool enable = true) override;
  // Splits the new text at its "&"; whether an accelerator is shown keeps
  // following the label given to the constructor.
  void SetLabel(const wxString& text) override;

  // Draws the button into `dc` at (0, 0), `size` large.
  virtual void render(wxDC& dc);

  bool isEnabled() const { return enabled; }
  const AcceleratorLabel& labelParts() const { return parts; }

  // The Alt key was seen held on the last key press in a custom button.
  // Shared by all custom buttons; every new button clears it.
  static bool altDown;

 protected:
  // The colours for the present state; the active ones fall back to the
  // window's own colours when none were given.
  wxColour activeBackgroundOr(const wxColour& fallback) const;
  wxColour activeForegroundOr(const wxColour& fallback) const;
  // The parent's font, or the default GUI font without a parent.
  wxFont labelFont() const;
  // Draws `label` centred in `size`.
  void drawCentred(wxDC& dc, const wxString& text);

  bool hasFocus;
  bool hovered;
  bool pressed;
  wxPoint position;
  wxSize size;
  bool hasAccelerator;
  AcceleratorLabel parts;
  bool enabled;
  wxColour disabledColour;
  wxColour activeBackground;
  wxColour activeForeground;
  wxWindow* parent;
  wxWindowID id;

 private:
  void redraw();
  void fireClick();
  void onPaint(wxPaintEvent& event);
  void onFocus(wxFocusEvent& event);
  void onKillFocus(wxFocusEvent& event);
  void onEnter(wxMouseEvent& event);
  void onLeave(wxMouseEvent& event);
  void onLeftDown(wxMouseEvent& event);
  void onLeftUp(wxMouseEvent& event);
  void onKeyDown(wxKeyEvent& event);
  void onKeyUp(wxKeyEvent& event);
};

// A framed button: a frame in the active background while focused or
// pressed, filled with it while hovered.
class wxDialogButton : public wxCustomButton {
 public:
  using wxCustomButton::wxCustomButton;
  void render(wxDC& dc) override;
};

// Underlined text without a frame, as a link.
class wxLinkStyledButton : public wxCustomButton {
 public:
  using wxCustomButton::wxCustomButton;
  void render(wxDC& dc) override;
};

#endif  // QLUX_FRONTENDS_GUI_CUSTOM_BUTTON_H_
