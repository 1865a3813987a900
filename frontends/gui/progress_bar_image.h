// The picture behind wxCustomProgressBar, made once for a size, a corner
// radius and a pair of colours: twice the bar's height, the empty trough
// above and the full bar below. A progress update then only copies six
// slices of it, so no pixel is touched one by one while work runs.
//
// The trough is the bar's background with a dark rim on the upper left, a
// light lower edge and corners cut round into the parent's background. The
// fill is the bar's foreground darkening from top to bottom, with rounded
// caps at both ends. Pure functions; no display is needed.
#ifndef QLUX_FRONTENDS_GUI_PROGRESS_BAR_IMAGE_H_
#define QLUX_FRONTENDS_GUI_PROGRESS_BAR_IMAGE_H_

#include <wx/colour.h>
#include <wx/gdicmn.h>
#include <wx/image.h>

// The six source rectangles in the picture of a bar `width` by `height`
// with corner `radius`: 0 to 2 the left end, middle and right end of the
// trough; 3 to 5 the left cap, middle and right cap of the fill.
void progressBarSlices(int width, int height, int radius, wxRect slices[6]);

// How far the fill reaches into slice 4: value * sliceWidth / range, in
// unsigned 32-bit arithmetic. 0 for a range of 0 or a slice without width.
unsigned progressBarFill(unsigned value, unsigned range, int sliceWidth);

// The six target rectangles, at y 0 and `height` high, for a `fill`
// above 1, in the order of the slices. A rectangle may have no width.
void progressBarTargets(int width, int height, int radius, unsigned fill, wxRect targets[6]);

// The picture, `width` by 2 * `height`. Invalid for a size below 1.
wxImage makeProgressBarImage(int width, int height, int radius, const wxColour& ownBackground,
                             const wxColour& ownForeground, const wxColour& parentBackground);

#endif  // QLUX_FRONTENDS_GUI_PROGRESS_BAR_IMAGE_H_
