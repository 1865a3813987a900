// Support for the tests of pages: an engine that has read a small wizard,
// a window front end bound to it, and the frame that enters its first
// dialog. The frame is made as the application object would, but without
// running the event loop; the page scale is 1.
#ifndef QLUX_FRONTENDS_GUI_PAGE_TEST_SUPPORT_H_
#define QLUX_FRONTENDS_GUI_PAGE_TEST_SUPPORT_H_

#include <string>

#include "engine/test_support.h"
#include "frontends/gui/dialog_fields.h"
#include "frontends/gui/gui_test_display.h"
#include "frontends/gui/installer_app.h"
#include "frontends/gui/main_frame.h"
#include "frontends/gui/wx_gui.h"

class PageTest : public ::testing::Test {
 protected:
  void SetUp() override { REQUIRE_GUI_DISPLAY(); }
  void TearDown() override {
    if (frame) frame->Destroy();
    if (wxTheApp) wxTheApp->ProcessIdle();  // deletes the destroyed frame
  }

  // Reads `dialogs` (a <Dialogs> section) with the variables in
  // `variables` set first, and builds the first page.
  // `theme`, if given, is a <ColourTheme> section, read as for a window.
  void open(const char* dialogs, std::initializer_list<std::pair<const char*, const char*>> variables = {},
            const char* theme = "") {
    std::string xml = std::string(
                          "<HalvoWorksInstallation><ProductDesc><Fullname>Page Test</Fullname>"
                          "<Title>Page Test Setup</Title></ProductDesc><InstallerControlVariables>"
                          "<InstallError>INSTALL_ERROR</InstallError><UninstallError>UNINSTALL_ERROR</UninstallError>"
                          "</InstallerControlVariables>") +
                      theme + dialogs + "</HalvoWorksInstallation>";
    engine.loadTemplate(xml.c_str());
    engine.logConsole = &log;
    ASSERT_EQ(0, engine.readControlVariables());
    if (*theme) engine.readColourTheme();
    ASSERT_EQ(0, engine.readDialogs(false));
    if (*theme) engine.applyColourTheme();
    for (auto& variable : variables) engine.setVariable(variable.first, variable.second);
    uiScale = 1.0;
    ui.exchange = &engine;
    engine.currentDialog = 0;
    frame = new MainFrame(&ui, &engine);
    frame->Show();
  }

  // The rectangle of a window as (x, y, w, h) on the panel.
  static std::string rectOf(wxWindow* window) {
    if (!window) return "no window";
    wxRect r = window->GetRect();
    return std::to_string(r.x) + "," + std::to_string(r.y) + "," + std::to_string(r.width) + "," +
           std::to_string(r.height);
  }

  PageControl* control(const char* name) { return frame->findControl(name); }

  LinesConsole log;
  TestInstaller engine;
  WxGUI ui{0};
  MainFrame* frame = nullptr;
};

#define PAGE_TEST(name) TEST_F(PageTest, name)

#endif  // QLUX_FRONTENDS_GUI_PAGE_TEST_SUPPORT_H_
