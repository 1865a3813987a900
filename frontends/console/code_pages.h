// Single-byte code pages of RTF documents. A word processor writes the
// characters beyond ASCII as \'xx, the byte xx in the document's code page
// (\ansicpg); this turns such a byte into its Unicode character.
#ifndef QLUX_FRONTENDS_CONSOLE_CODE_PAGES_H_
#define QLUX_FRONTENDS_CONSOLE_CODE_PAGES_H_

#include <cstdint>

// The Unicode code point of `byte` in the Windows code page `codePage`
// (874, 1250 to 1258; any other is read as 1252, the RTF default). Bytes
// below 0x80 are themselves; 0 for a byte that the code page leaves
// undefined.
uint32_t codePageCharacter(int codePage, unsigned char byte);

#endif  // QLUX_FRONTENDS_CONSOLE_CODE_PAGES_H_
