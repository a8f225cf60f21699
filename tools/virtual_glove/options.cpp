// Strict parsing: a value is taken whole or not at all, and numbers do not depend on the locale.
#include "tools/virtual_glove/options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <system_error>
#include <utility>

namespace tarsil::virtual_glove {

const std::string_view kHelp =
    R"(Usage: tarsil-virtual-glove [options]

A glove without hardware: speaks the glove's wire protocol on a pseudo-terminal. Prints "port PATH" at once, runs until
it is interrupted or has sent its frames, and then prints an account of what it did.

  --link PATH             make PATH a symbolic link to the port, and remove it at the end
  --serial TEXT           serial number, 0 to 255 bytes (default TSL-VG000001)
  --side left|right       which hand (default right)
  --firmware MAJOR.MINOR  firmware version, each 0 to 255 (default 1.4)
  --hz RATE               cycles per second, 0.01 to 20000 (default 200)
  --seed N                seed of motion and faults (default 1)
  --counter N             cycle counter of the first packet, 0 to 65535 (default 0)
  --announce              repeat the identity unasked, every 200 ms until started
  --frames N              fall silent after N cycles, and end when the host has closed the port
  --overrun               lose the cycles for which the line has no room because the host does not read, instead of
                          sending them late
  --replug SECONDS[:AWAY[:TIMES]]
                          vanish that long after streaming began, come back after AWAY seconds (default 1) on
                          a new pseudo-terminal; use it with --link, which then leads there; stay for good
                          after that many TIMES (default 0: never)
  --defect KIND:JOINT[:DEGREES]
                          a worn sensor of joint 0 to 19; may be given several times
                            stuck     always reads DEGREES (default 20)
                            noisy     is off by at most DEGREES (default 2)
                            backlash  rattles through DEGREES where the joint turns (default 5)
  --fault KIND=RATE       something goes wrong with this probability per cycle, above 0 up to 1
  --fault KIND@SECONDS    or once, that long after streaming began; may be given several times
                            lost-cycles       the counter advances over one to three cycles, nothing is sent
                            lost-bytes        up to 100 bytes of the packet are missing
                            flipped-bits      one to three bits of the packet are inverted
                            garbage           up to 600 random bytes come before the packet
                            splits            the packet comes in pieces, with pauses
                            silence           a pause after the packet, 1 second long; other lengths as
                                              silence=RATE+DURATION and silence@SECONDS+DURATION
                            hang              no more bytes and no answers until replugged
                            truncated-blocks  the payload ends inside its last block
                            unknown-types     a packet of another type comes before the packet
                            unknown-blocks    the packet ends with a block of an unknown kind
  --help                  print this text
)";

namespace {

constexpr double kDefaultStuckDegrees = 20;
constexpr double kDefaultNoiseDegrees = 2;
constexpr double kDefaultBacklashDegrees = 5;
constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();

// One option as it was given; every complaint names both words.
struct Given {
  std::string_view option;
  std::string_view value;

  [[noreturn]] void refuse(const std::string& wanted) const {
    throw OptionError(std::string(option) + ": '" + std::string(value) + "' is not " + wanted);
  }
};

template <typename Number>
std::optional<Number> number_in(std::string_view text, Number low, Number high) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  // Written so that a value that is not a number fails.
  if (!(number >= low && number <= high)) return std::nullopt;
  return number;
}

std::optional<double> seconds_in(std::string_view text) {
  return number_in(text, 0.0, kLongestSeconds);
}

// The parts before and after the first separator; the second is missing if there is no separator.
std::pair<std::string_view, std::optional<std::string_view>> cut(std::string_view text, char separator) {
  const std::size_t at = text.find(separator);
  if (at == std::string_view::npos) return {text, std::nullopt};
  return {text.substr(0, at), text.substr(at + 1)};
}

void parse_link(const Given& given, GloveConfig& config) {
  if (given.value.empty()) given.refuse("a path");
  config.link = given.value;
}

void parse_serial(const Given& given, GloveConfig& config) {
  if (given.value.size() > kLongestSerial) given.refuse("a serial of at most 255 bytes");
  config.serial = given.value;
}

void parse_side(const Given& given, GloveConfig& config) {
  if (given.value != "left" && given.value != "right") given.refuse("left or right");
  config.left = given.value == "left";
}

void parse_firmware(const Given& given, GloveConfig& config) {
  const auto [major, minor] = cut(given.value, '.');
  const auto major_number = number_in(major, 0, 255);
  const auto minor_number = number_in(minor.value_or(""), 0, 255);
  if (!major_number || !minor_number) given.refuse("MAJOR.MINOR, each 0 to 255");
  config.firmware_major = *major_number;
  config.firmware_minor = *minor_number;
}

void parse_hz(const Given& given, GloveConfig& config) {
  const auto hz = number_in(given.value, kSlowestHz, kFastestHz);
  if (!hz) given.refuse("a rate of 0.01 to 20000");
  config.hz = *hz;
}

void parse_seed(const Given& given, GloveConfig& config) {
  const auto seed = number_in(given.value, std::uint64_t{0}, kNoLimit);
  if (!seed) given.refuse("a whole number below 2 to the 64");
  config.seed = *seed;
}

void parse_counter(const Given& given, GloveConfig& config) {
  const auto counter = number_in(given.value, std::uint16_t{0}, std::uint16_t{0xFFFF});
  if (!counter) given.refuse("a counter of 0 to 65535");
  config.first_counter = *counter;
}

void parse_frames(const Given& given, GloveConfig& config) {
  const auto frames = number_in(given.value, std::uint64_t{0}, kNoLimit);
  if (!frames) given.refuse("a number of frames");
  config.frames = *frames;
}

void parse_replug(const Given& given, GloveConfig& config) {
  const auto [first, second] = cut(given.value, ':');
  const auto [away_text, times_text] = cut(second.value_or(""), ':');
  const auto seconds = seconds_in(first);
  const auto away = second ? seconds_in(away_text) : Replug{}.away;
  const auto times = times_text ? number_in(*times_text, std::uint64_t{0}, kNoLimit) : Replug{}.times;
  if (!seconds || !away || !times)
    given.refuse("SECONDS[:AWAY[:TIMES]], up to 1000000 seconds and any number of times");
  config.replug = Replug{*seconds, *away, *times};
}

void parse_fault(const Given& given, GloveConfig& config) {
  const std::size_t sign = given.value.find_first_of("=@");
  const auto kind = fault_kind_named(given.value.substr(0, sign));
  if (!kind || sign == std::string_view::npos) given.refuse("KIND=RATE or KIND@SECONDS with a known kind");
  Fault fault;
  fault.kind = *kind;
  const auto [measure, duration_text] = cut(given.value.substr(sign + 1), '+');
  if (given.value[sign] == '=') {
    const auto rate = number_in(measure, 0.0, 1.0);
    if (!rate || *rate == 0) given.refuse("a fault with a rate above 0 up to 1");
    fault.rate = *rate;
  } else {
    const auto at = seconds_in(measure);
    if (!at) given.refuse("a fault with a time of 0 to 1000000 seconds");
    fault.at_seconds = *at;
  }
  if (duration_text) {
    const auto duration = seconds_in(*duration_text);
    if (!duration || *kind != FaultKind::silence)
      given.refuse("a silence with a duration of 0 to 1000000 seconds");
    fault.duration_seconds = *duration;
  }
  config.faults.push_back(fault);
}

struct DefectName {
  std::string_view name;
  DefectKind kind;
  double least_degrees;
  double default_degrees;
};

constexpr std::array<DefectName, 3> kDefectNames = {{
    {"stuck", DefectKind::stuck, -kLargestDefectDegrees, kDefaultStuckDegrees},
    {"noisy", DefectKind::noisy, 0, kDefaultNoiseDegrees},
    {"backlash", DefectKind::backlash, 0, kDefaultBacklashDegrees},
}};

void parse_defect(const Given& given, GloveConfig& config) {
  const auto [name, rest] = cut(given.value, ':');
  const auto [joint_text, degrees_text] = cut(rest.value_or(""), ':');
  for (const DefectName& known : kDefectNames) {
    if (known.name != name) continue;
    const auto joint = number_in(joint_text, 0, static_cast<int>(kJoints) - 1);
    if (!joint) given.refuse("a defect of a joint 0 to 19");
    const auto degrees = degrees_text ? number_in(*degrees_text, known.least_degrees, kLargestDefectDegrees)
                                      : known.default_degrees;
    if (!degrees) given.refuse("a defect of at most 180 degrees");
    config.defects.push_back({*joint, known.kind, *degrees});
    return;
  }
  given.refuse("KIND:JOINT[:DEGREES] with the kind stuck, noisy or backlash");
}

struct ValueOption {
  std::string_view name;
  void (*take)(const Given& given, GloveConfig& config);
};

constexpr std::array<ValueOption, 11> kValueOptions = {{
    {"--link", parse_link},
    {"--serial", parse_serial},
    {"--side", parse_side},
    {"--firmware", parse_firmware},
    {"--hz", parse_hz},
    {"--seed", parse_seed},
    {"--counter", parse_counter},
    {"--frames", parse_frames},
    {"--replug", parse_replug},
    {"--fault", parse_fault},
    {"--defect", parse_defect},
}};

}  // namespace

Options parse_options(std::span<const std::string_view> words) {
  Options options;
  for (std::size_t at = 0; at < words.size(); ++at) {
    const std::string_view word = words[at];
    if (word == "--help") {
      options.help = true;
      continue;
    }
    if (word == "--announce") {
      options.config.announce = true;
      continue;
    }
    if (word == "--overrun") {
      options.config.overrun = true;
      continue;
    }
    const auto option = std::ranges::find(kValueOptions, word, &ValueOption::name);
    if (option == kValueOptions.end()) throw OptionError("unknown option '" + std::string(word) + "'");
    if (++at == words.size()) throw OptionError(std::string(word) + ": a value is missing");
    option->take({word, words[at]}, options.config);
  }
  return options;
}

}  // namespace tarsil::virtual_glove
