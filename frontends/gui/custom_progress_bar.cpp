// The body of wxCustomProgressBar (custom_progress_bar.h): drawing from the
// bar's picture, and redrawing only when the value changed.
#include "frontends/gui/custom_progress_bar.h"

#include <wx/dcbuffer.h>
#include <wx/dcclient.h>
#include <wx/dcmemory.h>

#include "frontends/gui/progress_bar_image.h"

wxCustomProgressBar::wxCustomProgressBar(wxWindow* parent, wxWindowID id, unsigned initialRange,
                                         const wxPoint& position, const wxSize& size, long style, int cornerRadius)
    : wxPanel(parent, id, position, size, style, "panel"),
      bitmap(nullptr),
      barWidth(0),
      barHeight(0),
      radius(cornerRadius < 2 ? 2 : cornerRadius),
      range(initialRange == 0 ? 100 : initialRange),
      value(0) {
  if (parent) parentBackground = parent->GetBackgroundColour();
  // Painting is buffered and erasing off, so updates don't flicker.
  SetBackgroundStyle(wxBG_STYLE_PAINT);
  Bind(wxEVT_PAINT, &wxCustomProgressBar::onPaint, this);
  Bind(wxEVT_ERASE_BACKGROUND, [](wxEraseEvent&) {});
}

wxCustomProgressBar::~wxCustomProgressBar() { delete bitmap; }

void wxCustomProgressBar::SetRange(unsigned newRange) {
  if (newRange != 0) range = newRange;
  redrawNow();
}

void wxCustomProgressBar::SetValue(unsigned newValue) {
  if (newValue == value && newValue != 0) return;
  value = newValue < range ? newValue : range;
  redrawNow();
}

void wxCustomProgressBar::rebuildIfNeeded() {
  wxColour background = GetBackgroundColour();
  wxColour foreground = GetForegroundColour();
  wxSize size = GetSize();
  if (bitmap && background == ownBackground && foreground == ownForeground && size.GetWidth() == barWidth &&
      size.GetHeight() == barHeight) {
    return;
  }
  ownBackground = background;
  ownForeground = foreground;
  barWidth = size.GetWidth();
  barHeight = size.GetHeight();
  delete bitmap;
  bitmap = nullptr;
  progressBarSlices(barWidth, barHeight, radius, slices);
  wxColour parentColour = parentBackground.IsOk() ? parentBackground : background;
  wxImage image = makeProgressBarImage(barWidth, barHeight, radius, ownBackground, ownForeground, parentColour);
  if (image.IsOk()) bitmap = new wxBitmap(image);
}

void wxCustomProgressBar::render(wxDC& dc) {
  rebuildIfNeeded();
  if (!bitmap || !bitmap->IsOk()) return;
  wxMemoryDC source;
  source.SelectObjectAsSource(*bitmap);
  unsigned fill = progressBarFill(value, range, slices[4].GetWidth());
  if (fill <= 1) {
    dc.Blit(0, 0, barWidth, barHeight, &source, 0, 0, wxCOPY, false);
    return;
  }
  wxRect targets[6];
  progressBarTargets(barWidth, barHeight, radius, fill, targets);
  for (int i = 0; i < 6; i++) {
    if (targets[i].GetWidth() <= 0 || targets[i].GetHeight() <= 0) continue;
    dc.Blit(targets[i].GetX(), 0, targets[i].GetWidth(), targets[i].GetHeight(), &source, slices[i].GetX(),
            slices[i].GetY(), wxCOPY, false);
  }
}

void wxCustomProgressBar::redrawNow() {
  // A bar not on the screen yet gets its picture with the first paint.
  if (!IsShownOnScreen()) return;
  wxClientDC dc(this);
  render(dc);
}

void wxCustomProgressBar::onPaint(wxPaintEvent&) {
  wxAutoBufferedPaintDC dc(this);
  render(dc);
}
