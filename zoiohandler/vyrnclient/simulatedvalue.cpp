#include "zoiohandler/vyrnclient/simulatedvalue.h"

#include <cctype>
#include <cstdlib>

namespace ZoIO {

namespace {

constexpr int highest = 100;

ZoJson NextInteger(const ZoJson& old) {
  const long long next = static_cast<long long>(old.Get<int>()) + 1;
  return ZoJson::Of(next > highest ? 0LL : next);
}

// A float that passes the highest value becomes the integer 0 and counts as an integer from then on.
ZoJson NextFloat(const ZoJson& old) {
  const ZoJson next = ZoJson::Of(static_cast<double>(old.Get<float>()) + 0.1);
  return next.Get<int>() > highest ? ZoJson::Of(0) : next;
}

ZoJson NextText(const ZoJson& old) {
  auto text = old.Get<std::string>();
  for (char& character : text) {
    const auto code = static_cast<unsigned char>(character);
    character = static_cast<char>(std::rand() % 99 % 2 != 0 ? std::toupper(code) : std::tolower(code));
  }
  return ZoJson::Of(text);
}

ZoJson FirstValue(const std::string& itemName) {
  const auto contains = [&](const char* part) { return itemName.find(part) != std::string::npos; };
  if (contains("int")) {
    return ZoJson::Of(0);
  }
  if (contains("uint")) {
    // Never reached, as every "uint" holds an "int": unsigned items start as signed ones.
    return ZoJson::Of(0U);
  }
  if (contains("float")) {
    return ZoJson::Of(0.0);
  }
  if (contains("bool")) {
    return ZoJson::Of(false);
  }
  if (contains("string")) {
    return ZoJson::Of("Hello World");
  }
  return ZoJson::Of(0);
}

}  // namespace

ZoJson NextSimulatedValue(const ZoJson& old, const std::string& itemName) {
  if (old.IsInteger() || old.IsUnsigned()) {
    return NextInteger(old);
  }
  if (old.IsFloat()) {
    return NextFloat(old);
  }
  if (old.IsBoolean()) {
    return ZoJson::Of(!old.Get<bool>());
  }
  if (old.IsString()) {
    return NextText(old);
  }
  return FirstValue(itemName);
}

}  // namespace ZoIO
