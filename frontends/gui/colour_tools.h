// Colour arithmetic for the self-drawn controls: mixing, scaling and
// shifting of colours, a soft blur over a small matrix of colours, and the
// field of squared distances from which rounded corners are cut.
//
// All of it works on 8-bit red, green and blue in single precision and
// truncates at the end; every result has an alpha of 255. The functions are
// pure and need no display.
#ifndef QLUX_FRONTENDS_GUI_COLOUR_TOOLS_H_
#define QLUX_FRONTENDS_GUI_COLOUR_TOOLS_H_

#include <wx/colour.h>

#include <cstdint>
#include <vector>

// A colour from a number of the form 0x00BBGGRR; the top byte is ignored.
wxColour colourFromNumber(uint32_t value);

// Each channel is a * t + b * (1 - t), truncated and kept within 0..255.
wxColour mixColour(const wxColour& a, const wxColour& b, float t);
// Each channel is c * factor, truncated and kept within 0..255.
wxColour scaleColour(const wxColour& c, float factor);
// Each channel is c + delta, kept within 0..255.
wxColour shiftColour(const wxColour& c, int delta);

// Softens `matrix`, `width` by `height` colours stored row by row: every
// cell becomes `centre` times itself plus (1 - centre) / 4 times each of its
// four neighbours (right, below, left, above), read from a copy of the
// matrix. A neighbour past the border is the border cell itself. A `centre`
// outside 0..1 counts as 0.2. A matrix whose size doesn't match is left
// alone.
void blurMatrix(std::vector<wxColour>& matrix, int width, int height, float centre);

// An `n` by `n` table, row by row, for an even `n`: with a and b the
// distances of the row and the column from the nearer middle row and
// column, each cell holds a*a + b*b - rr*rr. The table is symmetrical in
// its four quadrants. Empty for an `n` below 1.
std::vector<float> circleField(int n, int rr);

#endif  // QLUX_FRONTENDS_GUI_COLOUR_TOOLS_H_
