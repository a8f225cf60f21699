// Usage, dispatch, and the one place where errors become messages and statuses.
#include "tools/recording/tool.h"

#include <algorithm>
#include <array>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "tarsil/cli/output.h"
#include "tools/recording/command_line.h"
#include "tools/recording/commands.h"

namespace tarsil::recording_tool {

namespace {

constexpr std::string_view kHelp =
    R"(Usage: tarsil-recording <command> [options] FILE...

Looks at, checks, mends, converts and draws recordings in the tsl format, as tarsil record writes them.

Commands:
  info FILE            what is in a recording: frames, rate, gaps, markers, metadata
  check FILE           where a recording is not as it should be
  recover IN OUT       a new recording of everything that is whole in a damaged one
  convert IN OUT       a recording as csv or json
  plot FILE -o OUT     a picture of a recording, as svg or png (needs gnuplot)

tarsil-recording <command> --help tells more about a command. A value may follow its option in the next word or behind an
equals sign (--name=value); options and files may be mixed, and behind "--" stand files only.

Exit status: 0 done, 1 failed, 2 wrong usage, 3 the recording is damaged (check, convert) or
no line of it is whole (info).
)";

constexpr std::string_view kInfoHelp =
    R"(Usage: tarsil-recording info [--json] FILE

Shows how many frames a recording has, how long it is, the rate of its fresh frames, the gaps in their numbers, the share
of stale frames, its markers and its metadata. Lines that are damaged are counted and otherwise passed over. Markers
after the first 100 are counted only, also in JSON, where marker_count is the number of all.

  --json     as a JSON document

Exit status: 0 done, 1 cannot be read, 2 wrong usage, 3 no line is whole.
)";

constexpr std::string_view kCheckHelp =
    R"(Usage: tarsil-recording check [--all] FILE

Compares every line with the format and says what is wrong where: line and column count from 1, the byte from the start
of the file from 0. Shows the first 20 damaged lines.

  --all      show all of them

Exit status: 0 fine, 1 cannot be read, 2 wrong usage, 3 damaged.
)";

constexpr std::string_view kRecoverHelp =
    R"(Usage: tarsil-recording recover [--force] IN OUT

Copies every whole line of IN to OUT and says what was left out. A line that lacks nothing but its line feed, or ends in
carriage return and line feed, is kept and mended. Where the header is damaged or missing, OUT gets the first one that
stands behind other lines or, if there is none or IN is no file, a new one without metadata. OUT passes the check.

  --force    replace OUT if it exists; it can never be IN itself
)";

constexpr std::string_view kConvertHelp =
    R"(Usage: tarsil-recording convert [--format csv|json] [--force] IN OUT

Writes the csv file or json document that the recorder would have written for the frames and markers of IN. A damaged
recording is refused (status 3); recover it first. Two things are not what they were at the time of recording: inertial
values have the 3 decimals of IN also in csv, with three more that say nothing, and t_created of a json document is that of
IN, so that converting again gives the same bytes.

  --format csv|json    the format of OUT; by default its extension says it
  --force              replace OUT if it exists; it can never be IN itself
)";

constexpr std::string_view kPlotHelp =
    R"(Usage: tarsil-recording plot FILE -o OUT [options]

Draws the joints of each finger in degrees, the pads as a heat map and the acceleration of each inertial unit over time.
Red stretches are gaps in the numbers of the frames, grey ones stale frames, dashed lines markers. Where there are more
frames than pixels, every column shows the smallest and the largest value. Runs gnuplot.

  -o, --output OUT      the picture
  --format svg|png      its format; by default its extension says it
  --width PIXELS        800 to 10000 (default 1200)
  --height PIXELS       1000 to 10000 (default 1600)
  --force               replace OUT if it exists; it can never be FILE itself
)";

struct Command {
  std::string_view name;
  std::string_view help;
  int (*run)(Words words);
};

constexpr std::array kCommands{
    Command{"info", kInfoHelp, info_command},          Command{"check", kCheckHelp, check_command},
    Command{"recover", kRecoverHelp, recover_command}, Command{"convert", kConvertHelp, convert_command},
    Command{"plot", kPlotHelp, plot_command},
};

bool asks_for_help(std::string_view word) {
  return word == "--help" || word == "-h";
}

int run_command(const Command& command, Words words) {
  // Behind "--" stand files only.
  const auto options_end = std::ranges::find(words, "--");
  if (std::any_of(words.begin(), options_end, asks_for_help)) {
    cli::write_output(command.help);
    return kDone;
  }
  try {
    return command.run(words);
  } catch (const UsageError& error) {
    cli::write_error("tarsil-recording " + std::string(command.name) + ": " + error.what() + "\n\n" +
                     std::string(command.help));
    return kUsage;
  }
}

int dispatch(Words words) {
  if (words.empty()) {
    cli::write_error(kHelp);
    return kUsage;
  }
  if (asks_for_help(words.front())) {
    cli::write_output(kHelp);
    return kDone;
  }
  const auto command = std::ranges::find(kCommands, words.front(), &Command::name);
  if (command == kCommands.end()) {
    const std::string kind = words.front().starts_with('-') ? "option" : "command";
    cli::write_error("tarsil-recording: unknown " + kind + " '" + std::string(words.front()) + "'\n\n" +
                     std::string(kHelp));
    return kUsage;
  }
  return run_command(*command, words.subspan(1));
}

int fail(const std::exception& error, int status) {
  cli::write_error("tarsil-recording: " + std::string(error.what()) + "\n");
  return status;
}

}  // namespace

int run_tool(int argc, const char* const* argv) {
  try {
    const std::vector<std::string_view> words(argv + std::min(argc, 1), argv + argc);
    return dispatch(words);
  } catch (const DamagedRecording& error) {
    return fail(error, kDamaged);
  } catch (const std::exception& error) {
    return fail(error, kFailed);
  }
}

}  // namespace tarsil::recording_tool
