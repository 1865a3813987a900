// The front ends' common part: choosing the source of answers.
#include "frontends/console/generic_ui.h"

#include <cstring>

GenericUI::GenericUI(int isUninstall, int ignoreErrors)
    : input(nullptr),
      isUninstall(isUninstall),
      ignoreErrors(ignoreErrors),
      exchange(nullptr),
      inputStream(stdin),
      outputStream(stdout) {}

GenericUI::~GenericUI() { delete input; }

int GenericUI::initInput(const char* inputName, bool* automatic) {
  if (!inputName) inputName = "";
  delete input;
  input = nullptr;
  if (std::strcmp(inputName, "uninstall") == 0) {
    input = new User(1, inputStream, outputStream);
  } else if (std::strcmp(inputName, "autoUninstall") == 0) {
    input = new Automated(nullptr, 1, outputStream);
    if (automatic) *automatic = true;
  } else if (std::strcmp(inputName, "autoInstall") == 0) {
    input = new Automated(nullptr, 0, outputStream);
    if (automatic) *automatic = true;
  } else if (!*inputName) {
    input = new User(0, inputStream, outputStream);
  } else {
    input = new Automated(inputName, 0, outputStream);
    if (input->open()) {
      if (automatic) *automatic = true;
      return 0;
    }
    // The file said why it won't serve; the person at the terminal takes over.
    delete input;
    input = new User(0, inputStream, outputStream);
    return 1;
  }
  return input->open() ? 0 : 1;
}

void GenericUI::setStartupError(const char* message, const char* title) {
  if (!startupMessage.isNull()) return;
  startupMessage = message ? message : "";
  startupTitle = title ? title : "";
}

std::string GenericUI::labelText(const char* text) {
  if (!text) return std::string();
  if (!exchange || !std::strchr(text, '[')) return text;
  // Each reference may grow by a value of up to 1,023 bytes.
  size_t size = std::strlen(text) + 8192;
  std::string expanded(size, '\0');
  exchange->expandVariables(text, &expanded[0], static_cast<int>(size));
  expanded.resize(std::strlen(expanded.c_str()));
  return expanded;
}
