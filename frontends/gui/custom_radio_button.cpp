// The body of wxCustomRadioButton (custom_radio_button.h): the native mark
// and its separate label, kept together as the button moves and changes.
#include "frontends/gui/custom_radio_button.h"

#include <wx/dcclient.h>

#include <algorithm>

wxCustomRadioButton::wxCustomRadioButton(wxWindow* notify, wxWindow* parent, wxWindowID id, const wxString& label,
                                         const wxPoint& position, const wxSize& size, long style,
                                         const wxColour& labelColour)
    : wxRadioButton(parent, id, wxEmptyString, position, wxDefaultSize, style, wxDefaultValidator, "radioButton"),
      notifyWindow(notify),
      labelText(nullptr) {
  wxCoord textWidth = 0;
  wxCoord textHeight = 0;
  {
    wxClientDC dc(parent);
    dc.SetFont(parent->GetFont());
    dc.GetTextExtent(label, &textWidth, &textHeight);
  }
  wxSize mark = GetSize();
  // Plain pixels: the caller's positions are already scaled.
  int width = size.GetWidth() < 0 ? mark.GetWidth() + 6 + textWidth : size.GetWidth();
  int height = size.GetHeight() < 0 ? std::max(mark.GetHeight(), textHeight + 4) : size.GetHeight();
  offset = wxPoint(mark.GetWidth() + 3, std::max((mark.GetHeight() - textHeight) / 2, (height - textHeight) / 2));

  wxPoint place = GetPosition();
  labelText = new wxStaticText(parent, id, label, place + offset, wxDefaultSize, 0, "staticText");
  if (labelColour.IsOk()) labelText->SetForegroundColour(labelColour);
  labelText->Bind(wxEVT_LEFT_UP, &wxCustomRadioButton::onLabelClick, this);
  SetSize(place.x, place.y, width, height);
}

wxCustomRadioButton::~wxCustomRadioButton() {
  // The label lives in the parent; it goes with the button. While the
  // parent itself is being destroyed it takes care of its children.
  if (labelText && !GetParent()->IsBeingDeleted()) labelText->Destroy();
}

void wxCustomRadioButton::SetToolTip(const wxString& text) {
  labelText->SetToolTip(text);
  wxRadioButton::SetToolTip(text);
}

bool wxCustomRadioButton::Show(bool show) {
  if (labelText) labelText->Show(show);
  return wxRadioButton::Show(show);
}

bool wxCustomRadioButton::Enable(bool enable) {
  if (labelText) labelText->Enable(enable);
  return wxRadioButton::Enable(enable);
}

void wxCustomRadioButton::DoSetSize(int x, int y, int width, int height, int sizeFlags) {
  if (!labelText) {
    wxRadioButton::DoSetSize(x, y, width, height, sizeFlags);
    return;
  }
  wxSize labelSize = labelText->GetSize();
  wxRadioButton::DoSetSize(x, y, width, height, sizeFlags);
  wxPoint place = GetPosition() + offset;
  labelText->SetSize(place.x, place.y, labelSize.GetWidth(), labelSize.GetHeight(), sizeFlags);
}

void wxCustomRadioButton::onLabelClick(wxMouseEvent& event) {
  SetValue(true);
  if (!notifyWindow) return;
  wxCommandEvent selected(wxEVT_RADIOBUTTON, event.GetId());
  selected.SetEventObject(this);
  selected.SetInt(1);
  notifyWindow->GetEventHandler()->ProcessEvent(selected);
}
