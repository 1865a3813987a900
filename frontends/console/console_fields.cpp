// The console's field questions.
#include "frontends/console/console_fields.h"

#include <cstdint>
#include <cstring>

#include "foundation/text.h"

namespace ConsoleInterface {

namespace {

// False when the field is ruled out by its Condition.
bool isShown(const FIELDINFO* field, InstallExchangeInfo* exchange) {
  return !field->condition[0] || exchange->evaluateCondition(field->condition) != 0;
}

// The variable as a whole decimal number, or -1 when it holds none or one
// outside 0 to `limit` - 1.
int readIndex(InstallExchangeInfo* exchange, const char* variable, char* buffer, int size, int limit) {
  buffer[0] = 0;
  if (exchange->getVariable(variable, buffer, size) < 0) buffer[0] = 0;
  int32_t value = -1;
  if (!QUtils::parseInteger(&value, buffer) || value < 0 || value >= limit) return -1;
  return value;
}

void storeIndex(InstallExchangeInfo* exchange, const char* variable, int index) {
  char text[16];
  QUtils::formatNumber(index, text, 10, sizeof text);
  exchange->setVariable(variable, text);
}

}  // namespace

void DirectoryField::ask(const FIELDINFO* field, InputProvider* input, InstallExchangeInfo* exchange) {
  if (!field || !input || !exchange || input->inputEnded() || !isShown(field, exchange)) return;
  char current[QUtils::kMaxPath];
  char fallback[QUtils::kMaxPath];
  if (exchange->getVariable(field->variable, current, sizeof current) < 0) current[0] = 0;
  if (exchange->getVariableDefault(field->variable, fallback, sizeof fallback) < 0) fallback[0] = 0;
  char answer[QUtils::kMaxPath];
  // A folder that can't take the installation (relative, a root, a system
  // directory) is refused with the reason, and the question comes again.
  // An answer that stays as the variable held it is taken: that is how an
  // unattended run answers, and the installation's own check of its
  // destinations stops the run then.
  // The held value is compared as cleaned, as the answer is: the end of the
  // input answers with the held value, which must not be asked again.
  char held[QUtils::kMaxPath];
  QUtils::copyText(held, current, sizeof held);
  QUtils::cleanPath(held);
  for (;;) {
    answer[0] = 0;
    input->askText(field->label, answer, sizeof answer, current, fallback);
    if (input->inputEnded()) return;
    QUtils::cleanPath(answer);
    char reason[300];
    if (std::strcmp(answer, current) == 0 || std::strcmp(answer, held) == 0 ||
        exchange->isUsableFolder(answer, reason, sizeof reason))
      break;
    input->showNotice(reason);
  }
  exchange->setVariable(field->variable, answer);
}

void CheckboxField::ask(const FIELDINFO* field, InputProvider* input, InstallExchangeInfo* exchange) {
  if (!field || !input || !exchange || input->inputEnded() || !isShown(field, exchange)) return;
  char text[16];
  int value = readIndex(exchange, field->variable, text, sizeof text, 2);
  // "no" is answer 0 and "yes" answer 1, so the answer is the new value.
  int index = input->askTwoWay(field->label, value, "no", "yes", 0, 1);
  if (input->inputEnded()) return;
  storeIndex(exchange, field->variable, index);
}

void RadioField::ask(const FIELDINFO* field, InputProvider* input, InstallExchangeInfo* exchange) {
  if (!field || !input || !exchange || input->inputEnded() || !isShown(field, exchange)) return;
  QUtils::Table<QUtils::CharString> options(8);
  QUtils::Table<QUtils::CharString> descriptions(8);
  QUtils::Table<QUtils::CharString> conditions(8);
  QUtils::splitText(field->content, ';', options);
  QUtils::splitText(field->description, ';', descriptions);
  if (field->enable[0]) QUtils::splitText(field->enable, '|', conditions);
  int count = options.getCount();
  if (count == 0) return;  // nothing to choose from

  if (count >= descriptions.getCount()) {
    for (int i = 0; i < descriptions.getCount(); i++) {
      options[i].append(" ");
      options[i].append(descriptions[i].getText());
    }
  }
  QUtils::PList<bool> enabled(count);
  for (int i = 0; i < count; i++) {
    bool on = i >= conditions.getCount() || exchange->evaluateCondition(conditions[i].getText()) != 0;
    enabled.add(on);
  }

  char text[512];
  int preselected = readIndex(exchange, field->variable, text, sizeof text, count);
  int index = input->askChoice(field->label, preselected, options, enabled);
  if (input->inputEnded()) return;
  storeIndex(exchange, field->variable, index);
}

}  // namespace ConsoleInterface
