// wxCustomProgressBar: a rounded progress bar for pages with a colour
// theme. It draws from a picture made once for its size and colours (see
// progress_bar_image.h): an update copies at most six slices of it, and
// nothing at all when the value hasn't changed. The bar's colours are the
// window's own background and foreground; a change of either, or of the
// size, takes effect at the next drawing. GUI thread only.
#ifndef QLUX_FRONTENDS_GUI_CUSTOM_PROGRESS_BAR_H_
#define QLUX_FRONTENDS_GUI_CUSTOM_PROGRESS_BAR_H_

#include <wx/bitmap.h>
#include <wx/colour.h>
#include <wx/dc.h>
#include <wx/gdicmn.h>
#include <wx/panel.h>

class wxCustomProgressBar : public wxPanel {
 public:
  // A `range` of 0 becomes 100. A `cornerRadius` below 2 counts as 2.
  wxCustomProgressBar(wxWindow* parent, wxWindowID id, unsigned range, const wxPoint& position, const wxSize& size,
                      long style, int cornerRadius);
  ~wxCustomProgressBar() override;

  // A non-zero `newRange` replaces the range; 0 keeps it. Redraws at once.
  void SetRange(unsigned newRange);
  // Stores the smaller of `newValue` and the range and redraws at once;
  // does nothing when `newValue` is the present value and isn't 0.
  void SetValue(unsigned newValue);
  unsigned GetRange() const { return range; }
  unsigned GetValue() const { return value; }

  // Draws the bar into `dc` at (0, 0), remaking the picture first when the
  // size or the colours changed.
  virtual void render(wxDC& dc);

 private:
  void rebuildIfNeeded();
  void redrawNow();
  void onPaint(wxPaintEvent& event);

  wxRect slices[6];
  wxBitmap* bitmap;
  int barWidth;
  int barHeight;
  wxColour parentBackground;
  wxColour ownBackground;
  wxColour ownForeground;
  int radius;
  unsigned range;
  unsigned value;
};

#endif  // QLUX_FRONTENDS_GUI_CUSTOM_PROGRESS_BAR_H_
