// InstallerApp: the toolkit's application object of a graphical run. On
// start it shows a start-up error and stops, or measures the system font to
// find the page scale, makes the one MainFrame, shows it and focuses its
// first control. The event loop it runs is the whole wizard; it ends when
// the frame is destroyed.
//
// Two process-wide values belong here: uiScale, the factor that turns the
// template's units into pixels (1.0 until the font was measured), and
// uiReady, which becomes true once the first page is on the screen.
#ifndef QLUX_FRONTENDS_GUI_INSTALLER_APP_H_
#define QLUX_FRONTENDS_GUI_INSTALLER_APP_H_

#include <wx/app.h>

class WxGUI;

extern double uiScale;
extern bool uiReady;

// The reference width, in pixels, of the test string in a font that needs
// no scaling.
const int kReferenceTextWidth = 237;
extern const char kFontTestString[];

// The page scale for a test string `width` pixels wide: width / 237 above
// 237, else 1.0 (a small font never shrinks the page).
double scaleForTextWidth(int width);
// Measures the test string in the system's default GUI font. Needs a
// running toolkit.
int measureSystemTextWidth();
// The page scale at which a page of `unitsWidth` by `unitsHeight` template
// units fits into `availableWidth` by `availableHeight` pixels: `preferred`
// (the font's scale), or less where the page would not fit on the screen
// with it, so that no button lies out of reach. Never below 0.25.
double scaleToFit(double preferred, int unitsWidth, int unitsHeight, int availableWidth, int availableHeight);

class InstallerApp : public wxApp {
 public:
  explicit InstallerApp(WxGUI* ui) : ui(ui) {}
  bool OnInit() override;

 private:
  WxGUI* ui;
};

#endif  // QLUX_FRONTENDS_GUI_INSTALLER_APP_H_
