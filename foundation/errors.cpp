// ErrorChain records and the exception types.
#include "foundation/errors.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "foundation/text.h"

namespace QUtils {

struct ErrorRecord {
  const char* source;
  char message[512];
  int32_t code;
  ErrorRecord* next;
  int32_t references;
};

namespace {

ErrorRecord* makeRecord(const char* source, int32_t code, const char* format, va_list args) {
  ErrorRecord* record = new ErrorRecord();
  record->source = source;
  record->code = code;
  record->next = nullptr;
  record->references = 1;
  record->message[0] = 0;
  if (format) std::vsnprintf(record->message, sizeof(record->message), format, args);
  return record;
}

void releaseChain(ErrorRecord* record) {
  while (record && --record->references < 1) {
    ErrorRecord* next = record->next;
    delete record;
    record = next;
  }
}

}  // namespace

ErrorChain::ErrorChain(const ErrorChain& other) : head(other.head) {
  if (head) head->references++;
}

ErrorChain& ErrorChain::operator=(const ErrorChain& other) {
  if (other.head) other.head->references++;
  releaseChain(head);
  head = other.head;
  return *this;
}

ErrorChain::~ErrorChain() { releaseChain(head); }

void ErrorChain::clear() {
  releaseChain(head);
  head = nullptr;
}

void ErrorChain::setError(const char* source, int32_t code, const char* format, ...) {
  va_list args;
  va_start(args, format);
  ErrorRecord* record = makeRecord(source, code, format, args);
  va_end(args);
  clear();
  head = record;
}

void ErrorChain::wrapError(ErrorChain& inner, const char* source, int32_t code, const char* format, ...) {
  va_list args;
  va_start(args, format);
  ErrorRecord* record = makeRecord(source, code, format, args);
  va_end(args);
  record->next = inner.head;  // takes over inner's reference
  inner.head = nullptr;
  clear();
  head = record;
}

void ErrorChain::addError(const char* source, int32_t code, const char* format, ...) {
  va_list args;
  va_start(args, format);
  ErrorRecord* record = makeRecord(source, code, format, args);
  va_end(args);
  record->next = head;
  head = record;
}

const char* ErrorChain::fileCodeText(int32_t code) {
  static const char* const kTexts[] = {"no error",           "cannot open file",        "error reading file",
                                       "error in file format", "cannot allocate memory", "format is not supported",
                                       "internal error",     "error writing file"};
  if (code < 0 || code > 7) return "unknown error";
  return kTexts[code];
}

ErrorChain ErrorChain::fromFileCode(int32_t code) {
  ErrorChain chain;
  if (code != 0) chain.setError(nullptr, code, "%s", fileCodeText(code));
  return chain;
}

int32_t ErrorChain::getCode(int index) const {
  ErrorRecord* record = head;
  for (int i = 0; record && i < index; i++) record = record->next;
  return record ? record->code : 0;
}

void ErrorChain::toText(char* out, int size) const {
  if (!out || size < 1) return;
  if (!head) {
    copyText(out, "No error", size);
    return;
  }
  out[0] = 0;
  for (ErrorRecord* record = head; record; record = record->next) {
    if (record != head) appendText(out, " | ", size);
    if (record->source) {
      appendText(out, "[", size);
      appendText(out, record->source, size);
      appendText(out, "] ", size);
    }
    appendText(out, record->message, size);
  }
}

ExceptionMsg::ExceptionMsg(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::vsnprintf(message, sizeof(message), format, args);
  va_end(args);
}

GenericError::GenericError(const char* text) { copyText(message, text, sizeof(message)); }

InstallerError::InstallerError(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::vsnprintf(message, sizeof(message), format, args);
  va_end(args);
}

}  // namespace QUtils
