// Fuzzes the XML reader: the input is parsed as text (up to its first NUL),
// then walked with the searches the engine uses, written out and read back.
#include <cstdint>
#include <string>

#include "foundation/xml.h"
#include "fuzz/fuzz_scratch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  QUtils::PXML document;
  document.parse(text.c_str());

  int count = document.getCount();
  for (int i = 0; i < count; i++) {
    document.getName(i);
    document.getValue(i);
    document.getValueLength(i);
    document.getParent(i);
    for (int n = 0; n < document.getAttributeCount(i); n++) {
      document.getAttributeName(i, n);
      document.getAttributeValue(i, n);
    }
    document.getAttribute(i, "Name");
  }
  QUtils::PList<int> children;
  document.getChildren(-1, &children);
  document.getChildren(0, &children);
  document.findNext("File", -1);
  document.findNextChild(0, "Dialog", -1);
  QUtils::PList<int> trail;
  document.findPath("/Installer/Dialogs/", -1, &trail);
  document.findPathFrom("Installer/FileSets/FileSet", -1);
  // The element names themselves as paths, which carry whatever the input had.
  if (count > 0) {
    document.findPath(document.getName(count - 1), 0, nullptr);
    document.findPathFrom(document.getName(count - 1), -1);
  }
  document.setPath(count > 0 ? 0 : -1, "a/b//c", "value", 1);

  std::string path = fuzzScratchPath("document.xml");
  if (document.save(path.c_str()) == 0) {
    QUtils::PXML reread;
    reread.load(path.c_str());
  }
  return 0;
}
