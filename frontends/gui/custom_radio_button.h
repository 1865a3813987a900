// wxCustomRadioButton: a native radio mark whose label is a separate static
// text, so that the label can take a colour that a native radio button
// would ignore on a coloured page.
//
// The label keeps a fixed offset from the mark and follows it when the
// button is moved, resized, shown, hidden, enabled or destroyed. It sits
// beside the mark in the same parent, because this toolkit can't put a
// child window inside a native radio button. A left click on the label
// selects the button and sends a radio-selected command event, with the
// label's id, to the window named in the constructor. GUI thread only.
#ifndef QLUX_FRONTENDS_GUI_CUSTOM_RADIO_BUTTON_H_
#define QLUX_FRONTENDS_GUI_CUSTOM_RADIO_BUTTON_H_

#include <wx/colour.h>
#include <wx/radiobut.h>
#include <wx/stattext.h>

class wxCustomRadioButton : public wxRadioButton {
 public:
  // A width or height below 0 is measured from the label and the mark.
  // `labelColour` colours the label unless it is the null colour.
  wxCustomRadioButton(wxWindow* notify, wxWindow* parent, wxWindowID id, const wxString& label,
                      const wxPoint& position, const wxSize& size, long style, const wxColour& labelColour);
  ~wxCustomRadioButton() override;

  // Sets the tool tip on the label, then on the mark.
  virtual void SetToolTip(const wxString& text);
  using wxRadioButton::SetToolTip;

  bool Show(bool show = true) override;
  bool Enable(bool enable = true) override;

  wxStaticText* labelWindow() const { return labelText; }
  // The label's place relative to the button's own position.
  wxPoint labelOffset() const { return offset; }

 protected:
  void DoSetSize(int x, int y, int width, int height, int sizeFlags) override;

 private:
  void onLabelClick(wxMouseEvent& event);

  wxWindow* notifyWindow;
  wxStaticText* labelText;
  wxPoint offset;
};

#endif  // QLUX_FRONTENDS_GUI_CUSTOM_RADIO_BUTTON_H_
