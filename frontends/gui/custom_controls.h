// The self-drawn controls that replace the native ones on a page with a
// colour theme: buttons (wxDialogButton, wxLinkStyledButton), radio buttons
// with a coloured label (wxCustomRadioButton) and a rounded progress bar
// (wxCustomProgressBar), with the colour arithmetic they share. They take
// plain numbers and colours from their creator and know nothing of the
// template.
#ifndef QLUX_FRONTENDS_GUI_CUSTOM_CONTROLS_H_
#define QLUX_FRONTENDS_GUI_CUSTOM_CONTROLS_H_

#include "frontends/gui/colour_tools.h"
#include "frontends/gui/custom_button.h"
#include "frontends/gui/custom_progress_bar.h"
#include "frontends/gui/custom_radio_button.h"

#endif  // QLUX_FRONTENDS_GUI_CUSTOM_CONTROLS_H_
