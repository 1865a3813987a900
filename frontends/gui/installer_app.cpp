// The body of InstallerApp (installer_app.h): start-up, the page scale from
// the system font, and the one frame.
#include "frontends/gui/installer_app.h"

#include <wx/bitmap.h>
#include <wx/dcmemory.h>
#include <wx/msgdlg.h>
#include <wx/settings.h>

#include "frontends/gui/main_frame.h"
#include "frontends/gui/wx_gui.h"

double uiScale = 1.0;
bool uiReady = false;

const char kFontTestString[] = "The quick brown fox jumps over the lazy dog";

double scaleForTextWidth(int width) {
  if (width > kReferenceTextWidth) return width * 0.004219409282700422;
  return 1.0;
}

int measureSystemTextWidth() {
  wxBitmap bitmap(512, 512);
  wxMemoryDC dc(bitmap);
  dc.SetFont(wxSystemSettings::GetFont(wxSYS_DEFAULT_GUI_FONT));
  wxCoord width = 0;
  wxCoord height = 0;
  dc.GetTextExtent(kFontTestString, &width, &height);
  return width;
}

double scaleToFit(double preferred, int unitsWidth, int unitsHeight, int availableWidth, int availableHeight) {
  const double kSmallest = 0.25;
  double scale = preferred;
  if (unitsWidth > 0 && availableWidth > 0 && unitsWidth * scale > availableWidth) {
    scale = static_cast<double>(availableWidth) / unitsWidth;
  }
  if (unitsHeight > 0 && availableHeight > 0 && unitsHeight * scale > availableHeight) {
    scale = static_cast<double>(availableHeight) / unitsHeight;
  }
  return scale < kSmallest ? kSmallest : scale;
}

bool InstallerApp::OnInit() {
  if (!ui->startupErrorText().empty()) {
    wxMessageBox(wxString::FromUTF8(ui->startupErrorText().c_str()),
                 wxString::FromUTF8(ui->startupErrorTitle().c_str()), wxOK | wxICON_ERROR);
    return false;
  }
  uiScale = scaleForTextWidth(measureSystemTextWidth());
  MainFrame* frame = new MainFrame(ui, ui->exchange);
  frame->Show(true);
  frame->SetFocus();
  wxCommandEvent start(wxEVT_MENU, kStartCommandId);
  frame->GetEventHandler()->ProcessEvent(start);
  return true;
}
