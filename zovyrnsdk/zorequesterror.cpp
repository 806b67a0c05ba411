#include "zovyrnsdk/zorequesterror.h"

#include <utility>

namespace {

std::string Describe(const ZoRequestResponse& answer) {
  const ZoJson& raw = answer.Raw();
  std::string text = "The sensor refused the request";
  if (raw.HasKey("/status") && raw.At("/status").IsInteger()) {
    text += " with status " + std::to_string(raw.At("/status").Get<long long>());
  }
  if (raw.HasKey("/error") && raw.At("/error").IsString()) {
    text += ": " + raw.At("/error").Get<std::string>();
  }
  return text;
}

}  // namespace

ZoRequestError::ZoRequestError(ZoRequestResponse answer)
    : std::runtime_error(Describe(answer)),
      response(std::make_shared<const ZoRequestResponse>(std::move(answer))) {}
