#include "tools/zosensor/resourcefile.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "tools/zosensor/faults.h"
#include "tools/zosensor/jsonlocator.h"
#include "tools/zosensor/memberreader.h"
#include "zovyrnsdk/json/zojsoniterator.h"

namespace ZoSensor {
namespace {

constexpr double HighestRate = 1000;
constexpr double LowestRate = 0.001;
constexpr double LongestTime = 1e6;  // seconds
constexpr std::uint64_t MostCopies = 100000;

// "/r{001..300}" is three hundred paths; anything else is one.
struct PathRange {
  std::string head, tail;
  std::uint64_t first = 0, last = 0;
  std::size_t width = 0;
  bool many = false;

  std::string Path(std::uint64_t number) const {
    return many ? fmt::format("{}{:0{}}{}", head, number, width, tail) : head;
  }
};

std::optional<std::uint64_t> WholeNumber(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

PathRange ParsePathRange(std::string_view text, const ZoJsonPointer& where) {
  const auto open = text.find('{');
  PathRange range;
  if (open == std::string_view::npos) {
    range.head = Uri::Parse(text).path;
    return range;
  }
  const auto close = text.find('}', open);
  if (close == std::string_view::npos) {
    throw DescriptionError(where, "a { in a URI begins a range, and there is no } to end it");
  }
  if (text.find('{', open + 1) != std::string_view::npos) {
    throw DescriptionError(where, "a URI holds one range at most");
  }
  const std::string_view body = text.substr(open + 1, close - open - 1);
  const auto dots = std::min(body.find(".."), body.size());
  const std::string_view firstText = body.substr(0, dots);
  const std::string_view lastText = body.substr(std::min(dots + 2, body.size()));
  const auto first = WholeNumber(firstText);
  const auto last = WholeNumber(lastText);
  if (!first || !last || *last < *first || *last - *first >= MostCopies) {
    throw DescriptionError(where, fmt::format("a range is {{first..last}}, at most {} numbers", MostCopies));
  }
  range = {Uri::Parse(text.substr(0, open)).path,
           std::string(text.substr(close + 1)),
           *first,
           *last,
           firstText.size(),
           true};
  return range;
}

void ReadWritable(MemberReader& reader, Resource& resource) {
  const ZoJson writable = reader.Any("writable");
  if (writable.IsBoolean()) {
    resource.rules.everything = writable.Get<bool>();
  } else {
    resource.rules.writable = reader.Pointers("writable", resource.Content());
  }
}

void ReadWaves(MemberReader& reader, Resource& resource) {
  const ZoJson waves = reader.Any("waves");
  if (!waves.IsNull() && !waves.IsObject()) {
    reader.Fail("waves", "\"waves\" must be an object of pointers and their waveforms");
  }
  for (ZoJsonIterator it(waves); it.Valid(); it.Next()) {
    const ZoJsonPointer place =
        ZoJsonPointer::Combine(reader.Place("waves"), ZoJsonPointer::Member(it.Key()));
    ZoJsonPointer member{it.Key()};
    if (!resource.Content().HasKey(member)) {
      throw DescriptionError(place, fmt::format("the content has nothing at \"{}\"", member.ToString()));
    }
    for (const Drive& drive : resource.Drives()) {
      if (drive.member == member) {
        throw DescriptionError(place, fmt::format("\"{}\" has a waveform already", member.ToString()));
      }
    }
    resource.AddDrive(std::move(member), MakeWaveform(it.Value(), place));
  }
}

bool HoldsFraction(const ZoJson& value) {
  bool found = value.IsFloat();
  for (ZoJsonIterator it(value); it.Valid() && !found; it.Next()) {
    found = HoldsFraction(it.Value());
  }
  return found;
}

void ReadIntegers(MemberReader& reader, Resource& resource) {
  resource.rules.integers = reader.Pointers("integers", resource.Content());
  std::size_t index = 0;
  for (const ZoJsonPointer& pointer : resource.rules.integers) {
    const ZoJson value = resource.Content().At(pointer);
    if (value.IsString() || value.IsBoolean() || HoldsFraction(value)) {
      throw DescriptionError(
          ZoJsonPointer::Combine(reader.Place("integers"), ZoJsonPointer::Member(std::to_string(index))),
          fmt::format("what is at \"{}\" is no integer, or holds a number that is none", pointer.ToString()));
    }
    ++index;
  }
}

// Whether a waveform may follow what is at a place of a content: a number or a boolean, or what may become one.
bool CanBeFollowed(const Resource& source, const ZoJsonPointer& at) {
  const std::string text = at.ToString() + "/";
  for (const Drive& drive : source.Drives()) {
    if (text.starts_with(drive.member.ToString() + "/")) {
      return true;
    }
  }
  const ZoJson* const value = source.Content().Find(at);
  return value != nullptr && (value->IsNumber() || value->IsBoolean() || value->IsNull());
}

// The resources that every sensor has beside those of the file, for what may be said of them.
std::shared_ptr<Resource> OwnResource(const std::string& path) {
  if (path == "/faults") {
    return std::make_shared<Resource>(path, FaultSettings().ToJson());
  }
  if (path == "/system") {
    return std::make_shared<Resource>(path, ZoJson::ParseString(R"({"state": 1, "uptime_ms": 0})"));
  }
  return nullptr;
}

// A wave may not make the member of another one vanish.
void RefuseNestedWaves(const MemberReader& reader, const Resource& resource) {
  std::set<std::string> members;
  for (const Drive& drive : resource.Drives()) {
    members.insert(drive.member.ToString() + "/");
  }
  const std::string* previous = nullptr;
  for (const std::string& member : members) {
    if (previous != nullptr && member.starts_with(*previous)) {
      reader.Fail("waves", fmt::format("a waveform drives \"{}\", another one what lies in it",
                                       previous->substr(0, previous->size() - 1)));
    }
    previous = &member;
  }
}

CallBehaviour ReadCall(const ZoJson& description, const ZoJsonPointer& where) {
  MemberReader reader(description, where, "\"call\"");
  CallBehaviour call;
  call.result = reader.Any("result");
  call.echo = reader.Flag("echo", false);
  call.delay = SecondsToDuration(reader.Number("delay_ms", 0, 0, LongestTime) / 1000);
  if (const std::string target = reader.Text("merge_into", ""); !target.empty()) {
    call.mergeInto = Uri::Parse(target).path;
  }
  const ZoJson set = reader.Any("set");
  if (!set.IsNull() && !set.IsObject()) {
    reader.Fail("set", "\"set\" must be an object of URIs and what updates them");
  }
  for (ZoJsonIterator it(set); it.Valid(); it.Next()) {
    call.set.emplace_back(Uri::Parse(it.Key()).path, it.Value());
  }
  reader.Finish();
  return call;
}

class DescriptionReader {
 public:
  SensorDescription Read(const ZoJson& document) {
    MemberReader reader(document, ZoJsonPointer(), "a resource file");
    SensorDescription description;
    reader.Any("comment");
    description.name = reader.Text("name", description.name);
    description.running = reader.Flag("running", true);
    defaultRate = reader.Number("rate_hz", 10, LowestRate, HighestRate);
    const ZoJson resources = reader.Any("resources");
    if (!resources.IsObject()) {
      if (resources.IsNull()) {
        throw DescriptionError(ZoJsonPointer(), "\"resources\" is missing");
      }
      reader.Fail("resources", "\"resources\" must be an object of URIs and their resources");
    }
    reader.Finish();
    for (ZoJsonIterator it(resources); it.Valid(); it.Next()) {
      ReadRange(it.Key(), it.Value(),
                ZoJsonPointer::Combine(reader.Place("resources"), ZoJsonPointer::Member(it.Key())));
    }
    CheckReferences();
    description.resources = std::move(planned);
    return description;
  }

 private:
  void ReadRange(std::string_view key, const ZoJson& value, const ZoJsonPointer& where) {
    const PathRange range = ParsePathRange(key, where);
    for (std::uint64_t offset = 0; offset <= range.last - range.first;
         ++offset) {  // the last may be the highest number
      if (range.many && ++copies > MostCopies) {
        throw DescriptionError(where,
                               fmt::format("all ranges together make at most {} resources", MostCopies));
      }
      const std::string path = range.Path(range.first + offset);
      if (!IsPlainPath(path)) {
        throw DescriptionError(where, "the URI of a resource holds no *");
      }
      if (path == "/" || Pattern{"/system", true, true}.Matches(path) ||
          Pattern{"/faults", true, true}.Matches(path)) {
        throw DescriptionError(where, fmt::format("{} belongs to every sensor", path));
      }
      if (byPath.contains(path)) {
        throw DescriptionError(where, fmt::format("{} is there already", path));
      }
      planned.push_back(ReadOne(path, value, where));
      byPath[path] = planned.back().resource;
    }
    CollectReferences(value, where);
  }

  // Of a resource that has been read, so that everything in it is of its kind.
  void CollectReferences(const ZoJson& resource, const ZoJsonPointer& where) {
    const auto below = [](const ZoJsonPointer& top, std::string_view name) {
      return ZoJsonPointer::Combine(top, ZoJsonPointer::Member(name));
    };
    if (resource.HasKey("waves")) {
      for (ZoJsonIterator it(resource.At("waves")); it.Valid(); it.Next()) {
        if (it.Value().HasKey("source")) {
          const ZoJsonPointer wave = below(below(where, "waves"), it.Key());
          const std::string at =
              it.Value().HasKey("at") ? it.Value().At("at").Get<std::string>() : FollowedByDefault;
          references.push_back({Uri::Parse(it.Value().At("source").Get<std::string>()).path,
                                below(wave, "source"), false, ZoJsonPointer(at), below(wave, "at")});
        }
      }
    }
    const ZoJson call = resource.HasKey("call") ? resource.At("call") : ZoJson();
    const ZoJsonPointer callPlace = below(where, "call");
    if (call.HasKey("merge_into") && call.At("merge_into").ToString() != "\"\"") {
      references.push_back({Uri::Parse(call.At("merge_into").Get<std::string>()).path,
                            below(callPlace, "merge_into"),
                            true,
                            {},
                            {}});
    }
    if (call.HasKey("set")) {
      for (ZoJsonIterator it(call.At("set")); it.Valid(); it.Next()) {
        references.push_back(
            {Uri::Parse(it.Key()).path, below(below(callPlace, "set"), it.Key()), true, {}, {}});
      }
    }
  }

  // Once everything is read: a resource may be named before the place that defines it.
  void CheckReferences() const {
    for (const Reference& reference : references) {
      const auto found = byPath.find(reference.path);
      const auto named = found != byPath.end() ? found->second
                         : reference.updates   ? nullptr
                                               : OwnResource(reference.path);
      if (named == nullptr) {
        throw DescriptionError(reference.place, fmt::format("there is no resource {}", reference.path));
      }
      if (!named->hasContent) {
        throw DescriptionError(reference.place,
                               fmt::format("{} is a method and has no content", reference.path));
      }
      if (!reference.updates && !CanBeFollowed(*named, reference.at)) {
        throw DescriptionError(reference.atPlace, fmt::format("{} has no number at \"{}\" to be followed",
                                                              reference.path, reference.at.ToString()));
      }
    }
  }

  PlannedResource ReadOne(const std::string& path, const ZoJson& value, const ZoJsonPointer& where) const {
    MemberReader reader(value, where, "a resource");
    PlannedResource plan;
    plan.resource = std::make_shared<Resource>(path, reader.Any("content"));
    Resource& resource = *plan.resource;
    reader.Any("comment");
    resource.hasContent = reader.Has("content");
    resource.streamable = reader.Flag("stream", resource.hasContent);
    resource.period = SecondsToDuration(1 / reader.Number("rate_hz", defaultRate, LowestRate, HighestRate));
    ReadWritable(reader, resource);
    ReadIntegers(reader, resource);
    ReadWaves(reader, resource);
    RefuseNestedWaves(reader, resource);
    resource.measurement = reader.Flag("measurement", !resource.Drives().empty());
    if (reader.Has("call")) {
      resource.call = ReadCall(reader.Any("call"), reader.Place("call"));
    }
    plan.appears = SecondsToDuration(reader.Number("appears_after_s", 0, 0, LongestTime));
    if (reader.Has("vanishes_after_s")) {
      plan.vanishes = SecondsToDuration(reader.Number("vanishes_after_s", 0, 0, LongestTime));
    }
    reader.Finish();
    if (plan.vanishes && *plan.vanishes <= plan.appears) {
      reader.Fail("vanishes_after_s", "a resource cannot vanish before it appears");
    }
    if (!resource.hasContent && !resource.call) {
      throw DescriptionError(where, "a resource needs a \"content\" or a \"call\"");
    }
    return plan;
  }

  // Where one resource names another.
  struct Reference {
    std::string path;
    ZoJsonPointer place;
    bool updates;
    ZoJsonPointer at, atPlace;  // what is followed
  };

  double defaultRate = 10;
  std::uint64_t copies = 0;  // made of ranges
  std::map<std::string, std::shared_ptr<Resource>> byPath;
  std::vector<Reference> references;
  std::vector<PlannedResource> planned;
};

std::optional<std::uint64_t> NumberAfter(std::string_view text, std::string_view word) {
  const auto at = text.find(word);
  if (at == std::string_view::npos) {
    return std::nullopt;
  }
  text.remove_prefix(at + word.size());
  return WholeNumber(text.substr(0, text.find_first_not_of("0123456789")));
}

// The parser says "... (line 3, column 7): reason"; users click on "file:3:7: reason".
std::string SyntaxFault(const std::string& fileName, std::string_view fault) {
  const auto line = NumberAfter(fault, "line ");
  const auto column = NumberAfter(fault, "column ");
  const auto reason = fault.find("): ");
  if (!line || !column || reason == std::string_view::npos) {
    return fmt::format("{}: {}", fileName, fault);
  }
  return fmt::format("{}:{}:{}: {}", fileName, *line, *column, fault.substr(reason + 3));
}

}  // namespace

SensorDescription ParseResources(std::string_view text, const std::string& fileName) {
  ZoJson document;
  try {
    document = ZoJson::ParseString(text);
  } catch (const ZoJsonError& error) {
    throw ResourceFileError(SyntaxFault(fileName, error.what()));
  }
  if (const auto duplicate = FindDuplicateName(text)) {
    const TextPosition position = PositionOf(text, *duplicate);
    throw ResourceFileError(
        fmt::format("{}:{}:{}: this name is there already", fileName, position.line, position.column));
  }
  try {
    return DescriptionReader().Read(document);
  } catch (const DescriptionError& error) {
    const TextPosition position = LocateValue(text, error.Where());
    throw ResourceFileError(
        fmt::format("{}:{}:{}: {}", fileName, position.line, position.column, error.what()));
  }
}

SensorDescription LoadResources(const std::string& fileName) {
  errno = 0;
  std::ifstream file(fileName, std::ios::binary);
  if (!file) {
    throw ResourceFileError(fmt::format("{}: {}", fileName, std::generic_category().message(errno)));
  }
  std::string text;
  try {
    text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  } catch (const std::ios_base::failure&) {  // a directory opens, and fails here
    throw ResourceFileError(fmt::format("{}: it cannot be read", fileName));
  }
  return ParseResources(text, fileName);
}

}  // namespace ZoSensor
