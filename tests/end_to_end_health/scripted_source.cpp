// This program's own open_device and output take the place of the tool's, which is why there are no others in
// it.
#include "tests/end_to_end_health/scripted_source.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <utility>

#include "tarsil/cli/open_device.h"
#include "tarsil/cli/output.h"
#include "tarsil/cli/stop_flag.h"
#include "tarsil/cli/tool.h"
#include "tests/support/temp_directory.h"

namespace tarsil {

namespace test {

namespace {

namespace fs = std::filesystem;

/// What open_device gives to the command of this process, and where it notes what it was asked for.
struct Stage {
  const SourceScript* script = nullptr;
  std::string request_path;
};

Stage& stage() {
  static Stage the_stage;
  return the_stage;
}

class ScriptedSource : public IDataSource {
 public:
  explicit ScriptedSource(const SourceScript& script) : script_(script) {}

  Frame read_frame() override {
    const int number = delivered_;
    Frame frame = script_.frame ? script_.frame(number) : Frame{};
    ++delivered_;
    return frame;
  }
  [[nodiscard]] DeviceInfo device_info() const override {
    return script_.info ? script_.info(delivered_) : DeviceInfo{};
  }
  [[nodiscard]] bool is_open() const override { return !script_.open || script_.open(delivered_); }
  void close() override {}

 private:
  SourceScript script_;
  int delivered_ = 0;
};

void redirect(int descriptor, const std::string& path, int flags) {
  constexpr mode_t kMode = 0600;
  const int file = ::open(path.c_str(), flags | O_CLOEXEC, kMode);
  if (file < 0 || ::dup2(file, descriptor) < 0) ::_exit(EXIT_FAILURE);
}

/// A pipe whose other end this process holds as well, so that it never ends.
void wait_for_input_for_ever() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0 || ::dup2(ends[0], STDIN_FILENO) < 0) ::_exit(EXIT_FAILURE);
}

void write_all(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(descriptor, text.data(), text.size());
    if (count < 0) throw std::runtime_error("cannot write what the tool says");
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

[[noreturn]] void be_the_tool(const TempDirectory& directory, const std::vector<std::string>& arguments) {
  constexpr unsigned kPatienceSeconds = 30;
  ::alarm(kPatienceSeconds);
  if (fs::exists(directory.file("input"))) {
    redirect(STDIN_FILENO, directory.file("input"), O_RDONLY);
  } else {
    wait_for_input_for_ever();
  }
  redirect(STDOUT_FILENO, directory.file("output"), O_WRONLY | O_CREAT | O_APPEND);
  redirect(STDERR_FILENO, directory.file("error"), O_WRONLY | O_CREAT | O_APPEND);
  // An address that leads nowhere: an upload that should not happen fails here.
  ::setenv("TARSIL_SERVER_URL", "", 1);
  std::vector<const char*> words{"tarsil"};
  for (const std::string& argument : arguments) words.push_back(argument.c_str());
  cli::install_stop_signals();
  ::_exit(cli::run_tool(static_cast<int>(words.size()), words.data()));
}

OpenRequest read_request(const std::string& path) {
  const std::string text = read_file(path);
  const std::size_t space = text.find(' ');
  return {text.substr(0, space) == "1", std::stoi(text.substr(space + 1))};
}

}  // namespace

ScriptedRun run_with_source(const SourceScript& script, const std::vector<std::string>& arguments,
                            const std::optional<std::string>& input) {
  const TempDirectory directory;
  if (input) write_file(directory.file("input"), *input);
  write_file(directory.file("request"), "0 0");
  stage() = {&script, directory.file("request")};
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("cannot fork");
  if (child == 0) be_the_tool(directory, arguments);
  int status = 0;
  ::waitpid(child, &status, 0);
  const ExitStatus ended =
      WIFEXITED(status) ? ExitStatus{WEXITSTATUS(status), 0} : ExitStatus{-1, WTERMSIG(status)};
  return {{ended, read_file(directory.file("output")), read_file(directory.file("error"))},
          read_request(directory.file("request"))};
}

}  // namespace test

namespace cli {

Device open_device(const Options& /*options*/, bool reconnect, std::int32_t queue_depth) {
  test::write_file(test::stage().request_path,
                   std::to_string(reconnect ? 1 : 0) + " " + std::to_string(queue_depth));
  return Device(std::make_shared<test::ScriptedSource>(*test::stage().script));
}

void write_output(std::string_view text) {
  test::write_all(STDOUT_FILENO, text);
  const auto& written = test::stage().script->written;
  if (written) written(text);
}

void write_screen(std::string_view text) {
  write_output(text);
}

void write_error(std::string_view text) {
  test::write_all(STDERR_FILENO, text);
}

}  // namespace cli

}  // namespace tarsil
