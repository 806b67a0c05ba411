#include "tests/model/simulatormodel.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace ZoModel::Simulator {

namespace {

constexpr long long millisecond = 1000;  // µs

// Numbers that do not fit 32 bits are the nearest ones that do.
long long AsInt(double value) {
  using Limits = std::numeric_limits<int>;
  return static_cast<long long>(
      std::clamp(std::trunc(value), static_cast<double>(Limits::min()), static_cast<double>(Limits::max())));
}

long long AsInt(long long value) {
  using Limits = std::numeric_limits<int>;
  return std::clamp<long long>(value, Limits::min(), Limits::max());
}

double AsFloat(double value) {
  constexpr double most = std::numeric_limits<float>::max();
  return static_cast<double>(static_cast<float>(std::clamp(value, -most, most)));
}

std::string Flicker(std::string text, Draws& draws) {
  for (char& letter : text) {
    const bool upper = (draws.Next() % 99) % 2 == 1;
    if (upper && letter >= 'a' && letter <= 'z') {
      letter = static_cast<char>(letter - 'a' + 'A');
    } else if (!upper && letter >= 'A' && letter <= 'Z') {
      letter = static_cast<char>(letter - 'A' + 'a');
    }
  }
  return text;
}

Document FirstValue(const std::string& itemName) {
  const auto contains = [&](const char* part) { return itemName.find(part) != std::string::npos; };
  if (contains("int")) {  // "uint", too
    return Document(0LL);
  }
  if (contains("float")) {
    return Document(0.0);
  }
  if (contains("bool")) {
    return Document(false);
  }
  if (contains("string")) {
    return Document(std::string("Hello World"));
  }
  return Document(0LL);
}

// What follows a value. Every letter of a text costs a number.
Document NextValue(const Document& old, const std::string& itemName, Draws& draws) {
  const auto upTo100 = [](long long value) { return Document(value > 100 ? 0LL : value); };
  if (const auto* integer = std::get_if<long long>(&old.content)) {
    return upTo100(AsInt(*integer) + 1);
  }
  if (std::holds_alternative<unsigned long long>(old.content)) {
    return Document(0LL);  // whatever is only unsigned is more than 100
  }
  if (const auto* real = std::get_if<double>(&old.content)) {
    const double next = AsFloat(*real) + 0.1;
    return AsInt(next) > 100 ? Document(0LL) : Document(next);
  }
  if (const auto* boolean = std::get_if<bool>(&old.content)) {
    return Document(!*boolean);
  }
  if (const auto* text = std::get_if<std::string>(&old.content)) {
    return Document(Flicker(*text, draws));
  }
  return FirstValue(itemName);
}

// The empty URI names a member like any other.
Path PlaceOf(const std::string& uri) {
  return uri.empty() ? Path{""} : ParsePointer(uri);
}

// A place below another.
Path operator+(Path above, const Path& below) {
  above.insert(above.end(), below.begin(), below.end());
  return above;
}

std::size_t SizeOf(const Document& array) {
  return std::get<Document::Elements>(array.content).size();
}

// Puts value at a place. What is missing on the way is made as objects, in place of scalars, too; to an array only its
// next element can be added.
void Put(Document& document, const Path& place, const Document& value) {
  Document* here = &document;
  for (auto name = place.begin(); name != place.end(); ++name) {
    if (here->Find({*name}) != nullptr) {
      here = const_cast<Document*>(here->Find({*name}));
      continue;
    }
    const Document below = Nest(Path(name + 1, place.end()), value);
    if (auto* members = std::get_if<Document::Members>(&here->content)) {
      members->emplace_back(*name, below);
    } else if (auto* elements = std::get_if<Document::Elements>(&here->content)) {
      if (*name != "-" && *name != std::to_string(elements->size())) {
        throw std::runtime_error("JSON value: cannot set " + Quote(PointerText(place)) + ": " + Quote(*name) +
                                 " is no index of an array of " + std::to_string(elements->size()));
      }
      elements->push_back(below);
    } else {
      *here = Nest({*name}, below);
    }
    return;
  }
  *here = value;
}

// Raises when there is nothing.
Document Take(const Document& document, const Path& place) {
  Path above;
  for (const std::string& name : place) {
    const Document& here = *document.Find(above);
    if (here.Find({name}) == nullptr) {
      // Everywhere else what was put is there.
      throw std::runtime_error("JSON value: nothing at " + Quote(PointerText(place)) + ": no element " +
                               Quote(name) + " in an array of " + std::to_string(SizeOf(here)));
    }
    above.push_back(name);
  }
  return *document.Find(place);
}

// Makes a place that is missing, and raises when it is not there even so.
void Make(Document& document, const Path& place) {
  if (document.Find(place) == nullptr) {
    Document made = document;
    Put(made, place, {});
    Take(made, place);
    document = made;
  }
}

void Remove(Document& document, const Path& place) {
  if (document.Find(place) == nullptr) {
    return;
  }
  const Path above(place.begin(), place.end() - 1);
  auto* container = const_cast<Document*>(document.Find(above));
  if (auto* members = std::get_if<Document::Members>(&container->content)) {
    std::erase_if(*members, [&](const auto& member) { return member.first == place.back(); });
  } else {
    auto& elements = std::get<Document::Elements>(container->content);
    elements.erase(elements.begin() + std::stol(place.back()));
  }
}

}  // namespace

Document Resources::Advance(const Item& item, Draws& draws) {
  const Path place = PlaceOf(item.uri);
  Make(data, place);
  Document resource = *data.Find(place);
  Make(resource, item.pointer);
  Put(data, place + item.pointer, NextValue(*resource.Find(item.pointer), item.name, draws));
  return *data.Find(place);
}

Document Resources::Answer(const Verb& verb) {
  const Path place = PlaceOf(verb.uri);
  const Document uri(verb.uri);
  try {
    if (verb.name == "Read") {
      Make(data, place);
      Put(data, place, uri);
    } else if (verb.name == "Create") {
      Put(data, place, {});
    } else if (verb.name == "Update") {
      Put(data, place, verb.payload);
    } else if (verb.name == "Delete") {
      Remove(data, place);
    }
  } catch (const std::runtime_error&) {
    // Nobody is told.
  }
  if (verb.name == "Start" || verb.name == "Stop") {
    running = verb.name == "Start";
  }
  if (verb.name == "Read") {
    return Nest({"payload"}, uri);
  }
  if (verb.name == "IsRunning" || verb.name == "IsConnected") {
    return Document(verb.name == "IsConnected" || running);
  }
  const bool ofPushes =
      verb.name.find("ubscribe") != std::string::npos || verb.name.find("Stream") != std::string::npos;
  return ofPushes ? Nest({"status"}, Document(1LL)) : Document();
}

Outcome Model::Perform(const Step& step, const std::vector<std::string>& walk) {
  order = walk;
  events.clear();
  const std::string result = std::visit([this](const auto& kind) { return Do(kind); }, step);
  return {result, events, State()};
}

std::string Model::Do(const NewItem& step) {
  if (items.try_emplace(step.name, step.name).second) {
    events.push_back("log 2 ZoIO::ItemManager::Item: " + step.name + " does not exist. Creating.");
    events.push_back("log 2 ZoIO::ItemManager::Item: " + step.name + " created.");
  }
  return "";
}

std::string Model::Do(const Verb& step) {
  return resources.Answer(step).Text();
}

std::string Model::Do(const Pass& step) {
  try {
    for (const std::string& name : order) {
      const Item& item = items.at(name);
      const Document resource = resources.Advance(item, draws);
      cache[item.uri].emplace(now / millisecond, resource);  // of one millisecond the first stays
      now += step.slow ? millisecond : 0;
    }
    return "";
  } catch (const std::runtime_error& e) {
    return e.what();
  }
}

std::string Model::Do(const Wait& step) {
  now += step.by;
  return "";
}

std::vector<std::string> Model::State() const {
  std::vector<std::string> lines;
  for (const auto& [name, item] : items) {
    const auto known = cache.find(item.uri);
    const Document* value =
        known == cache.end() ? nullptr : known->second.rbegin()->second.Find(item.pointer);
    lines.push_back(DescribeItem(name, item.valid, value == nullptr ? "nothing" : value->Text()));
  }
  for (const auto& [uri, versions] : cache) {
    lines.push_back(DescribeResource(uri, versions.size(), versions.rbegin()->second.Text()));
  }
  return lines;
}

std::string DescribeItem(const std::string& name, bool valid, const std::string& value) {
  return Quote(name) + (valid ? ": " : ", which is not valid: ") + value;
}

std::string DescribeResource(const std::string& uri, std::size_t versions, const std::string& newest) {
  return Quote(uri) + " is cached " + std::to_string(versions) + " times, the last time as " + newest;
}

}  // namespace ZoModel::Simulator
