#include "zoapi/exception.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>

#include "zoapi/logging.h"

namespace Zo {

struct Exception::Details {
  int line;
  qStatus status;
  std::string source;
  std::string function;
  std::string message;
  std::string text;
};

namespace {

std::string OrEmpty(const char* text) {
  return text != nullptr ? text : "";
}

// A log entry is one line, whatever a message contains.
std::string OneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  return text;
}

}  // namespace

Exception::Exception(int line, const char* source, qStatus status, const char* function,
                     std::string message) {
  auto made = std::make_shared<Details>(
      Details{line, status, OrEmpty(source), OrEmpty(function), std::move(message), {}});
  made->text = made->function + " failed with status " + std::to_string(status) + " (" +
               qStatus_Text(status) + ") at " + made->source + ':' + std::to_string(line);
  if (!made->message.empty()) {
    made->text += ": " + made->message;
  }
  details = std::move(made);
}

const char* Exception::what() const noexcept {
  return details->text.c_str();
}
int Exception::Line() const noexcept {
  return details->line;
}
const std::string& Exception::Source() const noexcept {
  return details->source;
}
qStatus Exception::Status() const noexcept {
  return details->status;
}
const std::string& Exception::Function() const noexcept {
  return details->function;
}
const std::string& Exception::Message() const noexcept {
  return details->message;
}

void Exception::LogException(const Exception& exception, unsigned flags) noexcept {
  const Details& details = *exception.details;
  try {
    const std::string text = flags == 0 ? OneLine(details.text) : details.text;
    Logging::Zo_Debug_Log(details.line, details.source.c_str(), flags, details.function.c_str(),
                          text.c_str());
  } catch (const std::exception&) {
    // No memory for the one-line copy: the unaltered text is better than none.
    Logging::Zo_Debug_Log(details.line, details.source.c_str(), flags, details.function.c_str(),
                          exception.what());
  }
}

void Exception::LogBackTrace(const Exception& exception) noexcept {
  const Details& details = *exception.details;
  char place[512];
  std::snprintf(place, sizeof place, "  at %s (%s:%d)", details.function.c_str(), details.source.c_str(),
                details.line);
  Logging::Zo_Debug_Log(details.line, details.source.c_str(), 0, details.function.c_str(), place);
}

}  // namespace Zo
