// Error values and exceptions.
//
// ErrorChain is a linked list of (source, code, message) records, empty for
// success, handed back by foundation operations whose failures need words.
// GenericError / InstallerError are what the engine throws inside an
// operation; ExceptionMsg is thrown only by the thread sequences.
#ifndef QLUX_FOUNDATION_ERRORS_H_
#define QLUX_FOUNDATION_ERRORS_H_

#include <cstdint>

namespace QUtils {

struct ErrorRecord;

class ErrorChain {
 public:
  ErrorChain() : head(nullptr) {}
  ErrorChain(const ErrorChain& other);
  ErrorChain& operator=(const ErrorChain& other);
  ~ErrorChain();

  void setError(const char* source, int32_t code, const char* format, ...)
      __attribute__((format(printf, 4, 5)));
  void wrapError(ErrorChain& inner, const char* source, int32_t code, const char* format, ...)
      __attribute__((format(printf, 5, 6)));
  void addError(const char* source, int32_t code, const char* format, ...)
      __attribute__((format(printf, 4, 5)));
  static ErrorChain fromFileCode(int32_t code);
  static const char* fileCodeText(int32_t code);

  int32_t getCode(int index) const;
  void toText(char* out, int size) const;
  bool isEmpty() const { return head == nullptr; }
  void clear();

 private:
  ErrorRecord* head;
};

class ExceptionMsg {
 public:
  explicit ExceptionMsg(const char* format, ...) __attribute__((format(printf, 2, 3)));
  virtual ~ExceptionMsg() {}
  virtual const char* getMessage() const { return message; }

 private:
  char message[1024];
};

class GenericError {
 public:
  GenericError() { message[0] = 0; }
  explicit GenericError(const char* text);
  virtual ~GenericError() {}
  virtual const char* getMessage() const { return message; }

 protected:
  char message[4096];
};

class InstallerError : public GenericError {
 public:
  explicit InstallerError(const char* format, ...) __attribute__((format(printf, 2, 3)));
};

}  // namespace QUtils

#endif  // QLUX_FOUNDATION_ERRORS_H_
