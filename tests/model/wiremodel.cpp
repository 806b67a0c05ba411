#include "tests/model/wiremodel.h"

#include <algorithm>
#include <stdexcept>

namespace ZoModel {

namespace {

constexpr int info = 2;
constexpr int notice = 3;
constexpr int error = 5;

const std::string manager = "ZoIO::SensorManager::";

// The sensor manager's verbs on the wire.
const std::map<std::string, std::string> methods = {
    {"Read", "read"},         {"Create", "create"},      {"Update", "update"},
    {"Delete", "delete"},     {"Call", "call"},          {"Subscribe", "sub"},
    {"Unsubscribe", "unsub"}, {"Stream", "startStream"}, {"StopStream", "stopStream"}};

// None for a status that is no number.
std::optional<long long> StatusOf(const Answer& answer) {
  const Document* status = answer.Part("status");
  const auto* number = status == nullptr ? nullptr : std::get_if<long long>(&status->content);
  return number == nullptr ? std::nullopt : std::optional<long long>(*number);
}

constexpr long long probeInterval = 5'000'000;  // µs
constexpr long long blamedPause = 60'000'000;   // µs
constexpr int sessionsEnough = 2;

// What the link itself says of a resource that has never answered, and of one whose answers end their sessions.
const std::string isMute = "The sensor has not answered about this resource; it is being asked.";
const std::string endsSessions =
    "The sensor's answers about this resource end the session; it is asked ever more rarely.";

Answer BrakedAnswer(const std::string& uri, const std::string& why) {
  return {Document(Document::Members{{"status", Document(-599LL)},
                                     {"uri", Document(uri)},
                                     {"payload", Document()},
                                     {"error", Document(why)}})};
}

std::string WithoutSlash(const std::string& uri) {
  return uri.starts_with('/') ? uri.substr(1) : uri;
}

}  // namespace

WireModel::WireModel(long long now, const std::string& address, unsigned port, int mostBreaks)
    : ReferenceModel(now), address(address), port(port), sensor(mostBreaks) {}

Outcome WireModel::Begin() {
  const std::string constructor = "ZoIO::ZoVyrnClient::ZoVyrnClient";
  const std::string update = manager + "UpdateSensorState";
  events.clear();
  Log(info, constructor, "Creating ZoIoHandler instance.");
  Log(info, constructor, "Creating sensor manager.");
  Log(info, update, "System is not connected. Connecting...");
  Log(info, update, "System connected successfully.");
  Log(info, update, "Updating sensor status.");
  Log(info, update, "Sensor status updated successfully");
  Log(info, update, "Recreating subscriptions.");
  Log(info, update, "Subscriptions recreated.");
  Log(info, constructor, "Sensor manager created.");
  Log(notice, constructor, "ZoIoHandler instance created.");
  Log(notice, constructor, "Sensor  IP address: " + address);
  Log(notice, constructor, "Sensor  control port: " + std::to_string(port));
  return {"", events, {}};
}

Outcome WireModel::Perform(const WireStep& step) {
  events.clear();
  handedOn.clear();
  mayEnd = MayEnd::AtNothing;
  const std::string result = std::visit([this](const auto& kind) { return Do(kind); }, step);
  if (std::exchange(lost, false)) {
    Restore();
  }
  ReceiveLate();
  HandOnAll();
  Outcome outcome{result, std::exchange(apart, false) ? RequestsLast(events) : events, State()};
  const std::vector<std::string> session = sensor.State();
  outcome.state.insert(outcome.state.end(), session.begin(), session.end());
  std::sort(handedOn.begin(), handedOn.end());
  for (const std::string& push : handedOn) {
    outcome.state.push_back("handed on " + push);
  }
  return outcome;
}

Expected WireModel::Expects() const {
  const auto requests = std::count_if(events.begin(), events.end(),
                                      [](const auto& event) { return event.starts_with("request "); });
  return {static_cast<std::size_t>(requests), mayEnd};
}

void WireModel::EndSensor() {
  if (connected) {
    Log(info, manager + "~SensorManager", "Disconnecting system...");
    Log(info, manager + "~SensorManager", "System disconnected.");
  }
}

// Requests.

Answer WireModel::Ask(const std::string& verb, const std::string& uri, const std::string& body,
                      bool /*patient*/) {
  const std::string& method = methods.at(verb);
  const bool stream = method == "startStream" || method == "stopStream";
  const Wish wish(stream, uri);
  bool ends = false;
  if (method == "stopStream" || method == "unsub") {
    interest.erase(wish);
    const auto known = Find(wish);
    const bool waits = known != wanted.end() && !known->active;
    ends = known != wanted.end() && known->active;
    if (known != wanted.end()) {
      wanted.erase(known);
    }
    if (waits) {
      // The sensor does not have it, and is not bothered.
      return Done(uri);
    }
  }
  const bool withoutArguments = method == "call" && body == "null";
  const Exchange exchange = Send(method, uri, withoutArguments ? "" : body);
  if (IsStart(method) && (exchange.unanswered || exchange.broken)) {
    interest.insert(wish);
  } else if (IsStart(method)) {
    NoteStart(wish, exchange.answer);
  }
  if (IsStart(method) && exchange.broken && !exchange.unusable) {
    NoteLostStart(wish);
  }
  const bool hadEnded = exchange.failure.empty() && exchange.answer.document.IsEmpty();
  if (ends && (exchange.unanswered || exchange.broken || hadEnded)) {
    // It has ended here, and there by itself, or with the session if not before.
    return Done(uri);
  }
  if (!exchange.failure.empty()) {
    LogFailure(method, uri, exchange.failure);
    return {};
  }
  return exchange.answer;
}

Answer WireModel::Done(const std::string& uri) {
  return {Document(Document::Members{{"status", Document(1LL)}, {"uri", Document(uri)}})};
}

WireModel::Exchange WireModel::Send(const std::string& method, const std::string& uri,
                                    const std::string& body) {
  if (const std::optional<Exchange> local = method == "read" ? Brake(uri) : std::nullopt) {
    return *local;
  }
  events.push_back("request " + method + " " + uri + " " + body);
  if (const std::optional<Ending> by = sensor.Ends(ending, method, uri)) {
    return EndSession(*by, method, uri);
  }
  Exchange exchange{sensor.Ask(method, uri), ""};
  if (silencing && uri != "/system") {
    return LeaveSilent(method, uri, exchange.answer);
  }
  Receive(method, uri, exchange.answer);
  if (!exchange.answer.document.IsEmpty() && !StatusOf(exchange.answer)) {
    exchange.failure = "The sensor's answer carries no status.";
  }
  return exchange;
}

// A resource that has never answered is not asked; one whose answers have ended two sessions in a row, ever more rarely,
// and of all those one at a time.
std::optional<WireModel::Exchange> WireModel::Brake(const std::string& uri) {
  const auto suspect = suspects.find(uri);
  if (suspect != suspects.end() && suspect->second.sessions >= sessionsEnough) {
    const bool isDue = now >= suspect->second.due && now >= nextSuspect;
    if (isDue) {
      suspect->second.due = nextSuspect = now + probeInterval;
    }
    if (isDue && !braked.contains(uri)) {
      return std::nullopt;
    }
    // What has been heard of it stays its last value.
    return heard.contains(uri) ? Exchange{{}, endsSessions} : Exchange{BrakedAnswer(uri, endsSessions), ""};
  }
  return braked.contains(uri) ? std::optional(Exchange{BrakedAnswer(uri, isMute), ""}) : std::nullopt;
}

WireModel::Exchange WireModel::EndSession(const Ending& by, const std::string& method,
                                          const std::string& uri) {
  Exchange exchange;
  exchange.failure = "The link to the sensor broke before the answer came: " +
                     (by.message ? FaultOf(*by.message) : "the sensor ended the connection") + ".";
  exchange.broken = true;
  exchange.unusable = by.message.has_value();
  if (exchange.unusable) {
    method == "read" ? NoteUnusableRead(uri) : Blame(uri);
  }
  ending = MayEnd::AtNothing;
  lost = true;
  apart = mayEnd == MayEnd::AtStarts;
  LoseSession();
  return exchange;
}

WireModel::Exchange WireModel::LeaveSilent(const std::string& method, const std::string& uri,
                                           const Answer& answer) {
  if (ComesLate(method, *silence)) {
    late.push_back({method, uri, answer});
  }
  silence.reset();
  silencing = false;
  apart = true;
  if (method == "read" && !heard.contains(uri)) {
    braked.insert(uri);
  }
  if (++unanswered >= 2) {
    // The sensor is asked about itself.
    events.push_back("request read /system ");
    Receive("read", "/system", sensor.Ask("read", "/system"));
  }
  return {{}, "The sensor did not answer within 3 s.", true};
}

void WireModel::Receive(const std::string& method, const std::string& uri, const Answer& answer) {
  const Document* payload = answer.Part("payload");
  unanswered = 0;
  if (method == "read") {
    suspects.erase(uri);
  }
  if ((method == "read" || method == "startStream") && payload != nullptr && !payload->IsNull()) {
    heard.insert(uri);
  }
  braked.erase(uri);
}

// A start that is granted late counts. Of other answers nobody wants to know any more.
void WireModel::ReceiveLate() {
  for (const Late& each : std::exchange(late, {})) {
    if (IsStart(each.method)) {
      NoteStart(Wish(each.method == "startStream", each.uri), each.answer);
      Receive(each.method, each.uri, each.answer);
    } else {
      unanswered = 0;
      if (each.answer.Part("uri") != nullptr) {  // else it does not say of what it is
        braked.erase(each.uri);
        suspects.erase(each.uri);
      }
    }
  }
}

void WireModel::NoteStart(const Wish& wish, const Answer& answer) {
  const auto known = Find(wish);
  const std::optional<long long> status = StatusOf(answer);
  const Document* payload = answer.Part("payload");
  const bool granted = status && (*status == 1 || (wish.first && payload != nullptr && !payload->IsEmpty()));
  if (granted) {
    interest.insert(wish);
    if (known == wanted.end()) {
      wanted.push_back({wish, true, true, 0});
    } else {
      known->active = true;
    }
  } else {
    interest.erase(wish);
    if (known != wanted.end()) {
      wanted.erase(known);
    }
  }
}

// Its caller was told of a failure and may not ask again.
void WireModel::NoteLostStart(const Wish& wish) {
  if (Find(wish) == wanted.end()) {
    wanted.push_back({wish, false, false, 0});
  }
}

std::vector<WireModel::Wanted>::iterator WireModel::Find(const Wish& wish) {
  return std::find_if(wanted.begin(), wanted.end(), [&](const Wanted& each) { return each.wish == wish; });
}

void WireModel::LogFailure(const std::string& method, const std::string& uri, const std::string& failure) {
  Log(error, manager + "ResponseToZoJson", uri + "[" + std::to_string(NumberOf(method)) + "]: " + failure);
}

std::string WireModel::FailureOf(const Exchange& exchange) {
  const std::optional<long long> status = StatusOf(exchange.answer);
  if (exchange.failure.empty() && status && *status < 0) {
    return "The sensor refused the request with status " + std::to_string(*status);
  }
  return exchange.failure;
}

bool WireModel::IsRunning() {
  const Exchange exchange = Send("read", "/system", "");
  const std::string failure = FailureOf(exchange);
  const Document* state = exchange.answer.document.Find({"payload", "state"});
  if (failure.empty() && state != nullptr) {
    return *state == Document(1LL);
  }
  Log(error, manager + "IsRunning",
      failure.empty() ? "JSON value: nothing at \"/state\": no container where \"state\" is looked for"
                      : failure);
  return false;
}

void WireModel::Command(const std::string& uri, const std::string& function) {
  const std::string failure = FailureOf(Send("call", uri, ""));
  if (!failure.empty()) {
    Log(error, manager + function, failure);
  }
}

// The worker asks for what its last pass looked for and is still missing all at once, and once for all who wait for the
// same resource.
void WireModel::Retry() {
  std::map<std::string, Exchange> answers;
  for (const std::string& uri : std::exchange(sought, {})) {
    if (connected && Newest(uri) == nullptr) {
      answers.emplace(uri, Send("read", uri, ""));
    }
  }
  for (auto name = waiting.begin(); name != waiting.end();) {
    Item& item = items.at(*name);
    const Document* document = Newest(item.uri);
    if (document == nullptr) {
      if (!connected) {
        throw std::runtime_error("The link to the sensor is down.");
      }
      if (!answers.contains(item.uri)) {
        answers.emplace(item.uri, Send("read", item.uri, ""));
      }
      Exchange& exchange = answers.at(item.uri);
      if (!std::exchange(exchange.known, true)) {
        sought.push_back(item.uri);
        if (!exchange.failure.empty()) {
          LogFailure("read", item.uri, exchange.failure);
        }
      }
      const Document* payload = exchange.failure.empty() ? exchange.answer.Part("payload") : nullptr;
      if (payload != nullptr && item.IsIn(*payload)) {
        Add(item.uri, *payload);
        document = Newest(item.uri);
      }
    }
    item.valid = document != nullptr && item.IsIn(*document);
    name = item.valid ? waiting.erase(name) : name + 1;
  }
}

// What the host does.

template <typename HostStep>
std::string WireModel::Hosted(const HostStep& step, MayEnd at) {
  mayEnd = at;
  ending = at;
  silencing = mayEnd == MayEnd::AtNothing && silence.has_value();
  std::string result = ReferenceModel::Do(step);
  ending = MayEnd::AtNothing;
  silencing = false;
  return result;
}

MayEnd WireModel::MayEndAt(const std::string& uri) const {
  return sensor.IsToLose(Loss::Any) || sensor.IsSpoilt(uri) ? MayEnd::AtAnything : MayEnd::AtNothing;
}

// Of several names the later ones would be asked for while others come back, in an order of luck. And so would be the
// pattern that takes a lost stream's place, were it one of those.
MayEnd WireModel::MayEndAt(const Subscribe& step) {
  if (step.names.size() != 1 || !step.names.front()) {
    return MayEnd::AtNothing;
  }
  const Item item(*step.names.front());
  const bool asksTwice = subscriptions[item.pattern] == 0 && Find(Wish(false, item.pattern)) != wanted.end();
  const bool mayLose = sensor.IsToLose(Loss::StreamStart) || sensor.IsSpoilt(item.uri)
                           ? !asksTwice
                           : sensor.IsToLose(Loss::SubscriptionStart);
  return mayLose ? MayEnd::AtStarts : MayEnd::AtNothing;
}

std::string WireModel::Do(const Subscribe& step) {
  return Hosted(step, MayEndAt(step));
}

std::string WireModel::Do(const Unsubscribe& step) {
  return Hosted(step);
}

std::string WireModel::Do(const Read& step) {
  return Hosted(step, MayEndAt(Item(step.name).uri));
}

std::string WireModel::Do(const Write& step) {
  return Hosted(step, MayEndAt(Item(step.name).uri));
}

std::string WireModel::Do(const Call& step) {
  return Hosted(step, IsOneRequest(step) ? MayEndAt(step.uri.value_or("")) : MayEnd::AtNothing);
}

std::string WireModel::Do(const LoseAnswer& /*step*/) {
  sensor.Lose(Loss::Any);
  return "";
}

std::string WireModel::Do(const LoseStart& step) {
  sensor.Lose(step.stream ? Loss::StreamStart : Loss::SubscriptionStart);
  return "";
}

std::string WireModel::Do(const LeaveUnanswered& step) {
  silence = step;
  return "";
}

// What the sensor does.

std::string WireModel::Do(const Hold& step) {
  sensor.Change(step.uri, step.payload);
  return "";
}

std::string WireModel::Do(const Answers& step) {
  sensor.SetMood(step.verb, step.mood);
  return "";
}

std::string WireModel::Do(const StrayPush& step) {
  HandOn({step.stream, step.uri, step.payload});
  return "";
}

std::string WireModel::Do(const Spoil& step) {
  sensor.Spoil(step.uri, step.how);
  return "";
}

std::string WireModel::Do(const UnusablePush& step) {
  if (connected && sensor.MayBreak()) {
    Blame(step.uri);
    LoseSession();
    lost = true;
  }
  return "";
}

std::string WireModel::Do(const Cut& /*step*/) {
  if (connected && sensor.MayBreak()) {
    LoseSession();
    lost = true;
  }
  return "";
}

std::string WireModel::Do(const Restart& /*step*/) {
  if (!connected || sensor.MayBreak()) {
    sensor.Forget();
    Do(Cut());
  }
  return "";
}

std::string WireModel::Do(const Connection& step) {
  if (connected && !step.up && sensor.MayBreak()) {
    connected = false;
    LoseSession();
  } else if (!connected && step.up) {
    connected = true;
    lost = true;
  }
  return "";
}

// What the link does.

void WireModel::NoteUnusableRead(const std::string& uri) {
  Suspect& suspect = suspects[uri];
  suspect.sessions = now < suspect.due + blamedPause ? suspect.sessions + 1 : 1;
  long long pause = probeInterval;
  for (int i = sessionsEnough; i < suspect.sessions; ++i) {
    pause = std::min(2 * pause, blamedPause);
  }
  suspect.due = now + pause;
}

// Whatever the session had that this resource may have come of.
void WireModel::Blame(const std::string& uri) {
  for (Wanted& each : wanted) {
    const auto& [stream, asked] = each.wish;
    const bool concerns = stream ? asked == uri : asked == "//*" || IsBelow(asked, uri);
    each.sessionsEnded += each.active && concerns ? 1 : 0;
  }
}

void WireModel::LoseSession() {
  unanswered = 0;
  sensor.EndSession();
  for (Wanted& each : wanted) {
    each.active = false;
  }
}

// All that was granted is asked for again, in the order in which it was; what is refused waits for the next session. What
// was asked for without an answer comes behind, and is forgotten when it is refused. What ended two sessions would come back
// after a minute, which no history lasts.
void WireModel::Restore() {
  std::vector<Wanted> behind;
  for (Wanted& each : wanted) {
    if (each.active || each.sessionsEnded >= sessionsEnough) {
      continue;
    }
    const auto& [stream, uri] = each.wish;
    const Answer answer = Send(stream ? "startStream" : "sub", uri, "").answer;
    const std::optional<long long> status = StatusOf(answer);
    each.active = status && *status == 1;
    const Document* payload = answer.Part("payload");
    if (stream && each.active && payload != nullptr) {
      HandOn({true, uri, *payload});
    }
    if (!each.granted) {
      each.active ? behind.push_back({each.wish, true, true, 0}) : void(interest.erase(each.wish));
    }
  }
  std::erase_if(wanted, [](const Wanted& each) { return !each.granted; });
  wanted.insert(wanted.end(), behind.begin(), behind.end());
}

bool WireModel::IsAskedFor(const std::string& uri) const {
  const std::string name = WithoutSlash(uri);
  return std::any_of(interest.begin(), interest.end(), [&](const Wish& wish) {
    const auto& [stream, asked] = wish;
    return stream ? WithoutSlash(asked) == name : IsBelow(WithoutSlash(asked), name);
  });
}

void WireModel::HandOn(const WirePush& push) {
  if (!connected) {
    return;
  }
  braked.erase(push.uri);
  if (IsAskedFor(push.uri)) {
    if (!push.payload.IsNull()) {
      heard.insert(push.uri);
    }
    handedOn.push_back(push.Summary());
    Add(push.uri, push.payload);
  }
}

void WireModel::HandOnAll() {
  for (const WirePush& push : sensor.TakePushes()) {
    HandOn(push);
  }
}

}  // namespace ZoModel
