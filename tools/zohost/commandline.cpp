#include "tools/zohost/commandline.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>

#include "tools/zohost/text.h"
#include "tools/zohost/times.h"
#include "tools/zohost/usageerror.h"

namespace zohost {
namespace {

constexpr const char* overview =
    R"help(zohost talks to a sensor through the IO-handler plug-in, like an HMI host does.

ADDRESS is the sensor's IP address, or "simulator" for the simulator inside the plug-in.
ITEM is RESOURCE#/POINTER, for example "/motor#/speed"; a space in it is written %20.)help";

constexpr const char* overviewEnd = R"help(Examples:
  zohost watch simulator /demo#/int /demo#/float
  zohost browse 192.168.0.20
  zohost read 192.168.0.20 /motor#/speed
  zohost write 192.168.0.20 /motor#/setpoint 1500
  zohost COMMAND --help          more about a command, with examples

Exit status: 0 done, 1 refused (the reason is on standard error), 2 not understood.)help";

constexpr const char* infoEnd = R"help(Examples:
  zohost info
  zohost info --plugin ./build/release/ZoIoHandler.so)help";

constexpr const char* readEnd =
    R"help(Prints one line "ITEM = VALUE (kind)" for each item, and goes on after one that is refused.
INVALID means that the sensor answered, but refused, or its resource holds no such item (any
more), or no single value there.
The simulator answers a read with the name of the resource, so most of its items read as
INVALID; watch shows their values.

Examples:
  zohost read 192.168.0.20 /motor#/speed
  zohost read 192.168.0.20 --port 3700 /motor#/speed /motor#/state "/motor#/nominal%20load"
  zohost read 192.168.0.20 /motor#/speed --log info)help";

constexpr const char* writeEnd =
    R"help(Without --type the kind is guessed: true and false are booleans, 5 and -5 integers, 5.0 and 5e3
doubles, everything else is a string. Integers beyond 9223372036854775807 are sent as unsigned.
Done means that the write was sent; read the item to see what the sensor made of it.

Examples:
  zohost write 192.168.0.20 /motor#/setpoint 1500
  zohost write 192.168.0.20 /motor#/enabled true
  zohost write 192.168.0.20 /motor#/name 007 --type string
  zohost write 192.168.0.20 /motor#/name -- -auto-)help";

constexpr const char* watchEnd =
    R"help(On a terminal the items are shown as a table; q or Ctrl-C ends it. AGE is the time since the
plug-in's last update, which goes on with the last values while the sensor is away; TREND shows
what changes. Elsewhere, or with --format jsonl or csv, every update is a line of its own.
Durations are numbers with ms, s, min or h. The plug-in updates every 100ms at most.

Examples:
  zohost watch simulator /demo#/int /demo#/float /demo#/bool /demo#/string
  zohost watch 192.168.0.20 /motor#/speed --interval 1s --on-change
  zohost watch 192.168.0.20 /motor#/speed --for 10min --format csv > speed.csv
  zohost watch 192.168.0.20 /motor#/speed --format jsonl | jq .value)help";

constexpr const char* callEnd =
    R"help(METHOD is RunSensor, StopSensor, Read, Create, Update, Delete or Call. JSON is an object with
"uri" and, but for RunSensor, StopSensor, Read and Delete, "args": JSON text inside a string,
"null" for none. The response is printed as it comes; its "data" is JSON text inside a string,
too. Whether the sensor refused RunSensor or StopSensor is in the log alone: --log warning.

Examples:
  zohost call 192.168.0.20 RunSensor
  zohost call 192.168.0.20 Read '{"uri": "/motor"}'
  zohost call 192.168.0.20 Call '{"uri": "/motor/reset", "args": "null"}'
  zohost call 192.168.0.20 Update '{"id": 1, "uri": "/motor", "args": "{\"speed\": 5}"}')help";

constexpr const char* browseEnd =
    R"help(Prints one line "ITEM = VALUE (kind)" for each value that the sensor has, or has at and below
the resource URI. The simulator has no list: there any item name works.

Examples:
  zohost browse 192.168.0.20
  zohost browse 192.168.0.20 /motor
  zohost browse 192.168.0.20 | grep speed)help";

// What CLI11 fills in; strings where it has no words of its own for what is wrong.
struct Raw {
  bool version = false;
  std::string plugin;
  std::string address;
  std::string port = "3600";
  std::optional<std::string> log;
  std::vector<std::string> items;
  std::string item;
  std::string value;
  std::optional<std::string> type;
  std::string interval = "200ms";
  std::optional<std::string> duration;
  std::optional<std::string> count;
  bool onChange = false;
  std::optional<std::string> format;
  std::string uri;
  std::string method;
  std::string arguments = "{}";
};

const std::vector<std::string> levelNames = {"info", "notice", "warning", "error", "critical"};
const std::vector<std::string> typeNames = {"bool", "int", "uint", "double", "string"};
const std::vector<std::string> formatNames = {"table", "jsonl", "csv"};

std::string Joined(const std::vector<std::string>& names, std::string_view separator) {
  return fmt::format("{}", fmt::join(names, separator));
}

// Usage first, then what it is for, then the options; required is what the usage line shows without brackets.
class HelpFormat : public CLI::Formatter {
 public:
  HelpFormat() { column_width(26); }
  std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override {
    std::string help = fmt::format("{}\n{}\n{}{}{}\n{}\n", make_usage(app, name), app->get_description(),
                                   make_positionals(app), make_groups(app, mode), make_subcommands(app, mode),
                                   app->get_footer());
    for (auto gap = help.find("\n\n\n"); gap != std::string::npos; gap = help.find("\n\n\n")) {
      help.erase(gap, 1);
    }
    return help;
  }
  std::string make_option_opts(const CLI::Option* option) const override {
    return option->get_positional() || option->get_type_name().empty() ? "" : " " + option->get_type_name();
  }
};

void AddHelp(CLI::App& app) {
  app.set_help_flag("-h,--help", "Print this help")->group("Common options");
}

void AddPluginOptions(CLI::App& app, Raw& raw) {
  app.add_option("--plugin", raw.plugin,
                 "The plug-in's file; by default ZoIoHandler.so beside zohost,\n"
                 "then wherever the system finds libraries")
      ->type_name("FILE")
      ->group("Common options");
  app.add_option("--log", raw.log,
                 "Show the plug-in's log from this level up, on standard error:\n" + Joined(levelNames, ", "))
      ->type_name("LEVEL")
      ->group("Common options");
  AddHelp(app);
}

void AddCommonOptions(CLI::App& app, Raw& raw) {
  app.add_option("--port", raw.port, "The sensor's control port (default 3600)")
      ->type_name("PORT")
      ->group("Common options");
  AddPluginOptions(app, raw);
}

CLI::App& AddCommand(CLI::App& app, const char* name, const char* description, const char* end) {
  CLI::App& command = *app.add_subcommand(name, description);
  command.footer(end);
  return command;
}

void AddAddress(CLI::App& command, Raw& raw) {
  command.add_option("ADDRESS", raw.address, "The sensor's IP address, or simulator")
      ->required()
      ->type_name("");
}

void AddItems(CLI::App& command, Raw& raw) {
  command.add_option("ITEM", raw.items, "Items: RESOURCE#/POINTER")->required()->type_name("");
}

void Declare(CLI::App& app, Raw& raw) {
  app.description(overview);
  app.footer(overviewEnd);
  app.require_subcommand(1);
  app.formatter(std::make_shared<HelpFormat>());
  app.add_flag("--version", raw.version, "Print the version")->group("Common options");
  AddCommonOptions(app, raw);

  CLI::App& info = AddCommand(app, "info", "Show how the plug-in describes itself", infoEnd);
  AddPluginOptions(info, raw);

  CLI::App& read = AddCommand(app, "read", "Read items once", readEnd);
  AddAddress(read, raw);
  AddItems(read, raw);
  AddCommonOptions(read, raw);

  CLI::App& write = AddCommand(app, "write", "Write an item", writeEnd);
  AddAddress(write, raw);
  write.add_option("ITEM", raw.item, "The item: RESOURCE#/POINTER")->required()->type_name("");
  write.add_option("VALUE", raw.value, "The value")->required()->type_name("");
  write.add_option("--type", raw.type, "The kind to send: " + Joined(typeNames, ", "))->type_name("KIND");
  AddCommonOptions(write, raw);

  CLI::App& watch = AddCommand(app, "watch", "Subscribe items and show their updates", watchEnd);
  AddAddress(watch, raw);
  AddItems(watch, raw);
  watch.add_option("--interval", raw.interval, "The time between updates (default 200ms)")->type_name("TIME");
  watch.add_option("--for", raw.duration, "End after this time")->type_name("TIME");
  watch.add_option("--count", raw.count, "End after this many updates in total")->type_name("N");
  watch.add_flag("--on-change", raw.onChange, "Show and count an update only if the value has changed");
  watch
      .add_option("--format", raw.format,
                  Joined(formatNames, ", ") +
                      "; by default a table on a terminal\n"
                      "and plain lines elsewhere")
      ->type_name("FORMAT");
  AddCommonOptions(watch, raw);

  CLI::App& call = AddCommand(app, "call", "Call a method of the sensor", callEnd);
  AddAddress(call, raw);
  call.add_option("METHOD", raw.method, "The method")->required()->type_name("");
  call.add_option("JSON", raw.arguments, "Its argument (default {})")->type_name("");
  AddCommonOptions(call, raw);

  CLI::App& browse = AddCommand(app, "browse", "List the tags of a sensor", browseEnd);
  AddAddress(browse, raw);
  browse.add_option("URI", raw.uri, "The resource to list; all without it")->type_name("");
  AddCommonOptions(browse, raw);
}

template <typename Number>
Number WholeNumber(const std::string& option, const std::string& text, Number least, Number most) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < least || number > most) {
    throw UsageError(fmt::format("{} takes a whole number from {} to {}, not \"{}\".", option, least, most,
                                 Printable(text)));
  }
  return number;
}

std::string OneOf(const std::string& option, const std::string& text, const std::vector<std::string>& names) {
  if (std::find(names.begin(), names.end(), text) == names.end()) {
    throw UsageError(fmt::format("{} takes {}, not \"{}\".", option, Joined(names, ", "), Printable(text)));
  }
  return text;
}

std::chrono::milliseconds Duration(const std::string& option, const std::string& text) {
  try {
    return ParseDuration(text);
  } catch (const UsageError& error) {
    throw UsageError(fmt::format("{}: {}", option, error.what()));
  }
}

WatchOptions MakeWatch(const Raw& raw) {
  WatchOptions options;
  options.address = raw.address;
  options.items = raw.items;
  options.interval = Duration("--interval", raw.interval);
  options.onChange = raw.onChange;
  if (raw.duration) {
    options.duration = Duration("--for", *raw.duration);
  }
  if (raw.count) {
    options.count =
        WholeNumber<std::uint64_t>("--count", *raw.count, 1, std::numeric_limits<std::uint64_t>::max());
  }
  if (raw.format) {
    const std::string format = OneOf("--format", *raw.format, formatNames);
    options.format = format == "table"   ? WatchOptions::Format::table
                     : format == "jsonl" ? WatchOptions::Format::jsonl
                                         : WatchOptions::Format::csv;
  }
  return options;
}

WriteCommand MakeWrite(const Raw& raw) {
  std::optional<enumtype> kind;
  if (raw.type) {
    kind = KindFromName(OneOf("--type", *raw.type, typeNames));
  }
  return {raw.item, Value::Parse(raw.value, kind)};
}

CommandLine Understand(const CLI::App& app, const Raw& raw) {
  CommandLine line;
  line.plugin = raw.plugin;
  line.address = raw.address;
  line.port = WholeNumber<std::uint16_t>("--port", raw.port, 1, 65535);
  if (raw.log) {
    line.log = LogLevelFromName(OneOf("--log", *raw.log, levelNames));
  }
  if (app.got_subcommand("info")) {
    line.command = InfoCommand{};
  } else if (app.got_subcommand("read")) {
    line.command = ReadCommand{raw.items};
  } else if (app.got_subcommand("write")) {
    line.command = MakeWrite(raw);
  } else if (app.got_subcommand("watch")) {
    line.command = WatchCommand{MakeWatch(raw)};
  } else if (app.got_subcommand("browse")) {
    line.command = BrowseCommand{raw.uri};
  } else {
    line.command = CallCommand{raw.method, raw.arguments};
  }
  return line;
}

// CLI11 would split a word in brackets at its commas. It does not see the bracket behind this character.
constexpr char guard = '\x01';

std::vector<std::string> Guarded(int argc, const char* const* argv) {
  std::vector<std::string> words;
  for (int index = argc - 1; index > 0; --index) {  // the parser takes them from the end
    const std::string word = argv[index];
    words.push_back(word.starts_with('[') ? guard + word : word);
  }
  return words;
}

void Unguard(std::string& word) {
  if (word.size() > 1 && word[0] == guard && word[1] == '[') {
    word.erase(0, 1);
  }
}

std::string Sentence(const CLI::App& app, const CLI::ParseError& error) {
  if (!app.get_subcommands().empty()) {
    const std::string text = Printable(error.what());
    return text.ends_with('.') ? text : text + ".";
  }
  const std::vector<std::string> rest = app.remaining();
  const std::string what =
      rest.empty() ? "say what to do" : fmt::format("there is no \"{}\"", Printable(rest.front()));
  return what + "; the commands are info, read, write, watch, call and browse.";
}

}  // namespace

std::variant<CommandLine, HelpText> ParseCommandLine(int argc, const char* const* argv) {
  Raw raw;
  CLI::App app("", "zohost");
  Declare(app, raw);
  try {
    app.parse(Guarded(argc, argv));
  } catch (const CLI::CallForHelp&) {
    return HelpText{app.get_subcommands().empty() ? app.help()
                                                  : app.get_subcommands().front()->help("zohost")};
  } catch (const CLI::ParseError& error) {
    if (raw.version) {
      return HelpText{"zohost " ZOHOST_VERSION "\n"};
    }
    throw UsageError(Sentence(app, error));
  }
  if (raw.version) {
    return HelpText{"zohost " ZOHOST_VERSION "\n"};
  }
  for (std::string* word : {&raw.address, &raw.uri, &raw.item, &raw.value, &raw.method, &raw.arguments}) {
    Unguard(*word);
  }
  std::for_each(raw.items.begin(), raw.items.end(), Unguard);
  return Understand(app, raw);
}

}  // namespace zohost
