// Support for the tests of windows: starts the toolkit once on the X
// display named by DISPLAY (on Windows, on the desktop), and lets a test
// skip cleanly when there is none. A failed assertion of the toolkit fails
// the running test (on Linux: the Windows toolkit is built for size, without
// its assertions). tests/with_display.sh provides a private display under
// ctest.
#ifndef QLUX_FRONTENDS_GUI_GUI_TEST_DISPLAY_H_
#define QLUX_FRONTENDS_GUI_GUI_TEST_DISPLAY_H_

#include <gtest/gtest.h>
#include <wx/app.h>
#include <wx/bitmap.h>
#include <wx/dcmemory.h>
#include <wx/debug.h>
#include <wx/frame.h>
#include <wx/image.h>
#include <wx/init.h>
#include <wx/panel.h>

#include <cstdlib>
#include <functional>

// A failed assertion inside the toolkit fails the running test with its
// message, instead of stopping the process in a debugger trap or waiting
// for an answer to a dialog.
inline void failOnToolkitAssert(const wxString& file, int line, const wxString& function, const wxString& condition,
                                const wxString& message) {
  ADD_FAILURE_AT(file.utf8_str().data(), line)
      << "toolkit assertion \"" << condition.utf8_str().data() << "\" in " << function.utf8_str().data() << ": "
      << message.utf8_str().data();
}

// True once the toolkit runs on a display; tried once per process.
inline bool guiDisplayAvailable() {
  static int state = -1;
  if (state < 0) {
    state = 0;
#ifdef _WIN32
    const char* display = "desktop";  // Windows (and Wine) always has one
#else
    const char* display = std::getenv("DISPLAY");
#endif
    if (display && *display) {
      static int argc = 1;
      static char name[] = "gui_tests";
      static char* argv[] = {name, nullptr};
      wxApp::SetInstance(new wxApp);
      wxSetAssertHandler(failOnToolkitAssert);
      if (wxEntryStart(argc, argv) && wxTheApp->CallOnInit()) state = 1;
    }
  }
  return state == 1;
}

#define REQUIRE_GUI_DISPLAY()                                                                       \
  do {                                                                                              \
    if (!guiDisplayAvailable()) GTEST_SKIP() << "no X display; run under tests/with_display.sh"; \
  } while (0)

// A shown frame with a panel to put controls on; destroyed with the test.
class GuiWindowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    REQUIRE_GUI_DISPLAY();
    frame = new wxFrame(nullptr, wxID_ANY, "test", wxPoint(0, 0), wxSize(480, 360));
    panel = new wxPanel(frame, wxID_ANY, wxPoint(0, 0), wxSize(480, 360));
    frame->Show();
  }
  void TearDown() override {
    if (frame) frame->Destroy();
    if (wxTheApp) wxTheApp->ProcessIdle();  // deletes the destroyed frame
  }

  wxFrame* frame = nullptr;
  wxPanel* panel = nullptr;
};

// Draws with `draw(dc)` into a fresh bitmap, `width` by `height`, and returns
// the pixels.
inline wxImage drawToImage(int width, int height, const std::function<void(wxDC&)>& draw) {
  wxBitmap bitmap(width, height, 24);
  {
    wxMemoryDC dc(bitmap);
    dc.SetBackground(*wxBLACK_BRUSH);
    dc.Clear();
    draw(dc);
  }
  return bitmap.ConvertToImage();
}

inline wxColour pixelAt(const wxImage& image, int x, int y) {
  return wxColour(image.GetRed(x, y), image.GetGreen(x, y), image.GetBlue(x, y));
}

// Any pixel in the picture within `tolerance` of `colour`, per channel.
inline bool hasPixelNear(const wxImage& image, const wxColour& colour, int tolerance) {
  for (int y = 0; y < image.GetHeight(); y++) {
    for (int x = 0; x < image.GetWidth(); x++) {
      if (std::abs(image.GetRed(x, y) - colour.Red()) <= tolerance &&
          std::abs(image.GetGreen(x, y) - colour.Green()) <= tolerance &&
          std::abs(image.GetBlue(x, y) - colour.Blue()) <= tolerance) {
        return true;
      }
    }
  }
  return false;
}

#endif  // QLUX_FRONTENDS_GUI_GUI_TEST_DISPLAY_H_
