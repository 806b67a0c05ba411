// The exception raised for a failed base-library status.
#pragma once

#include <exception>
#include <memory>
#include <string>

#include "qapi/status.h"

namespace Zo {

// Carries where it was raised (line, source, function), the status and an optional message. what() is a
// readable sentence of these. A plain value: any thread. Copies share their texts, so copying never raises;
// there is no moved-from state.
class Exception : public std::exception {
 public:
  Exception(int line, const char* source, qStatus status, const char* function, std::string message = {});
  Exception(const Exception&) noexcept = default;
  Exception& operator=(const Exception&) noexcept = default;

  const char* what() const noexcept override;

  int Line() const noexcept;
  const std::string& Source() const noexcept;
  qStatus Status() const noexcept;
  const std::string& Function() const noexcept;
  const std::string& Message() const noexcept;

  // Write the exception, or the place it came from, to the debug log. flags are handed on to the log; with
  // flags 0 the text is made one line. Never raise.
  static void LogException(const Exception& exception, unsigned flags) noexcept;
  static void LogBackTrace(const Exception& exception) noexcept;

 private:
  struct Details;

  std::shared_ptr<const Details> details;
};

// Raises an Exception unless status is success.
inline void Check(qStatus status, int line, const char* source, const char* function) {
  if (status != qStatus_Success) {
    throw Exception(line, source, status, function);
  }
}

}  // namespace Zo
