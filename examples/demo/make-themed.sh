#!/usr/bin/env bash
# make-themed.sh [OUTPUT]: writes the themed variant of the demo's template,
# install-themed.xml beside this script unless OUTPUT is given ("-" writes
# to standard output). It is install.xml with one ColourTheme block put in
# after ProductDesc, so that the window draws its own buttons, radio buttons
# and progress bars in the theme's colours; nothing else differs. Run it
# after each change of install.xml; tests/gui_test.sh checks that the two
# files are in step.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
out=${1:-"$here/install-themed.xml"}

theme='
  <!-- The colour theme: colours are written 0xRRGGBB. -->
  <ColourTheme>
    <DialogBackground>0xF4F7FB</DialogBackground>
    <DialogForeground>0x1C2B3A</DialogForeground>
    <ActiveText>0x1C2B3A</ActiveText>
    <InactiveText>0x8C98A4</InactiveText>
    <HighlightedText>0x1D4F91</HighlightedText>
    <ListBackground>0xFFFFFF</ListBackground>
    <InputBoxBackground>0xFFFFFF</InputBoxBackground>
    <InputBoxText>0x1C2B3A</InputBoxText>
    <LinkButtons>0x1D4F91</LinkButtons>
    <ButtonsBackground>0x1D4F91</ButtonsBackground>
    <ButtonsText>0xFFFFFF</ButtonsText>
    <!-- The focus ring and the pointed-at button: light enough to stand
         out from the blue of the buttons by more than 3:1, with dark text. -->
    <ActiveButtonsBackground>0x9CC8F5</ActiveButtonsBackground>
    <ActiveButtonsText>0x0B2545</ActiveButtonsText>
    <ProgressBarForeground>0x2F74C0</ProgressBarForeground>
    <ProgressBarBackground>0xDDE5EE</ProgressBarBackground>
    <InvalidFieldBackground>0xFBE3E1</InvalidFieldBackground>
    <InvalidFieldForeground>0xA3231C</InvalidFieldForeground>
    <StaticElements>0xB8C4D0</StaticElements>
  </ColourTheme>'

# The block goes in behind the line that closes ProductDesc.
generate() {
  THEME="$theme" awk '{ print } /<\/ProductDesc>/ && !done { print ENVIRON["THEME"]; done = 1 }' \
    "$here/install.xml"
}
if [ "$out" = - ]; then
  generate
else
  generate >"$out.new"
  mv -f -- "$out.new" "$out"
fi
