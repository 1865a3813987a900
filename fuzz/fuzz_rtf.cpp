// Fuzzes the RTF reader in both modes, unwrapped and wrapped, with a
// callback that takes every event. The first byte picks the wrap width.
#include <cstdint>
#include <string>

#include "frontends/console/rich_text.h"

namespace {

class CountingCallback : public RichTextCallback {
 public:
  void onText(const char* text) { events += text[0] != 0; }
  void endParagraph() { events++; }
  void setStyle(int, bool) { events++; }
  void setFontSize(int) { events++; }
  void setAlignment(int) { events++; }
  void resetFormat() { events++; }
  void setLeftIndent(int) { events++; }
  void finishText() { events++; }
  long events = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  int width = 1 + data[0] % 100;
  std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  RichTextReader reader;
  CountingCallback callback;
  reader.convert(text.c_str(), kRichTextEscapes, 0);
  reader.convert(text.c_str(), kRichTextEscapes, width);
  reader.setCallback(&callback);
  reader.convert(text.c_str(), kRichTextPlain, 0);
  reader.convert(text.c_str(), kRichTextConsole, width);
  return 0;
}
